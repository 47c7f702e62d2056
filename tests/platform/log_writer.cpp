// Writes log lines for the log library's tests, then ends as told:
//   log_writer THREADS LINES exit|kill
// Each of THREADS threads logs LINES info lines "w <thread> <n> end"; then
// one info line "all-written" and one error line "last-error". "kill" ends
// the process with SIGKILL right after them, "exit" returns normally.
#include <signal.h>

#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "liblog.h"

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    const int threads = std::atoi(argv[1]), lines = std::atoi(argv[2]);
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; ++t)
        writers.emplace_back([t, lines] {
            for (int i = 0; i < lines; ++i)
                log_print(ZP_LOG_INFO, "[%s:%s:%d]w %d %d end\n", "log_writer.cpp", "writer", 1, t, i);
        });
    for (auto &w : writers)
        w.join();
    log_print(ZP_LOG_INFO, "[%s:%s:%d]all-written\n", "log_writer.cpp", "main", 2);
    log_print(ZP_LOG_ERROR, "[%s:%s:%d]last-error\n", "log_writer.cpp", "main", 3);
    if (std::strcmp(argv[3], "kill") == 0)
        raise(SIGKILL);
    return 0;
}
