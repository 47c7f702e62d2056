// Host log library: one line per call, "time tid level message", to stderr
// or to the file named by ZP_LOG_FILE. ZP_LOG_LEVEL sets the threshold
// (default ZP_LOG_INFO); a call below it returns before any formatting.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "liblog.h"

namespace {

struct Sink {
    int threshold = ZP_LOG_INFO;
    FILE *out = stderr;

    Sink()
    {
        if (const char *lvl = std::getenv("ZP_LOG_LEVEL"); lvl && *lvl)
            threshold = std::atoi(lvl);
        if (const char *path = std::getenv("ZP_LOG_FILE"); path && *path) {
            if (FILE *f = open_private(path))
                out = f;
        }
    }

    // The log holds names and numbers: a log file is the owner's only,
    // whatever the umask (a terminal or other device named is left as it is).
    static FILE *open_private(const char *path)
    {
        int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        struct stat st {};
        if (fd < 0)
            return nullptr;
        if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode))
            (void)fchmod(fd, 0600);
        FILE *f = fdopen(fd, "a");
        if (f == nullptr)
            close(fd);
        return f;
    }
};

// Built on first use so that a log call from another library's constructor
// still finds it ready.
Sink &sink()
{
    static Sink s;
    return s;
}

const char *level_name(int level)
{
    switch (level) {
    case ZP_LOG_DEBUG: return "D";
    case ZP_LOG_INFO: return "I";
    case ZP_LOG_ERROR: return "E";
    default: return "?";
    }
}

}  // namespace

extern "C" int log_enabled(int level) { return level >= sink().threshold; }

extern "C" void log_print(int level, const char *format, ...)
{
    Sink &s = sink();
    if (level < s.threshold || format == nullptr)
        return;

    // Build the whole line first, then write it with one locked call so that
    // lines of different threads never interleave.
    char line[1024];
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    tm t{};
    localtime_r(&ts.tv_sec, &t);
    int n = std::snprintf(line, sizeof line, "%02d:%02d:%02d.%06ld %5ld %s ", t.tm_hour, t.tm_min, t.tm_sec,
                          ts.tv_nsec / 1000, static_cast<long>(syscall(SYS_gettid)), level_name(level));
    if (n < 0)
        n = 0;
    va_list ap;
    va_start(ap, format);
    int m = std::vsnprintf(line + n, sizeof line - n, format, ap);
    va_end(ap);
    size_t len = n + (m < 0 ? 0 : static_cast<size_t>(m));
    if (len > sizeof line - 2)
        len = sizeof line - 2;
    // Messages end in one or more line feeds; keep exactly one.
    while (len > 0 && line[len - 1] == '\n')
        --len;
    line[len++] = '\n';

    flockfile(s.out);
    std::fwrite(line, 1, len, s.out);
    std::fflush(s.out);
    funlockfile(s.out);
}
