// A process whose memory has run out: simlib_pb_init cannot make its table
// and says so with -1, and the first log line of the process, which comes
// from simlib_pb_init, is written instead of failing with it (an exception
// thrown through the C API ends the process). This binary holds this one
// test, so that nothing has logged before the child starts.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "zpt_ui_pb_api.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PB_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PB_SANITIZED 1
#endif
#endif

namespace {

// Room left above what the process has mapped: less than one table
// (sizeof(pb_mem_info), about 200 KiB) and less than a thread's stack.
constexpr rlim_t kHeadroomBytes = 64 * 1024;
constexpr int kLimitIgnored = 3;  // the child's status when the limit has no effect

long vm_size_kib()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmSize:", 0) == 0)
            return std::atol(line.c_str() + 7);
    return -1;
}

// In the child: address space capped just above what is mapped, then
// simlib_pb_init as the process's first call into the module. 0 when it
// returned -1.
[[noreturn]] void init_under_limit()
{
    const long kib = vm_size_kib();
    const rlimit cap{static_cast<rlim_t>(kib) * 1024 + kHeadroomBytes,
                     static_cast<rlim_t>(kib) * 1024 + kHeadroomBytes};
    if (kib <= 0 || setrlimit(RLIMIT_AS, &cap) != 0)
        _exit(kLimitIgnored);
    // An emulator that keeps the limit to itself lets this through.
    if (void *probe = std::malloc(4 * 1024 * 1024)) {
        std::free(probe);
        _exit(kLimitIgnored);
    }
    _exit(simlib_pb_init(STORAGE_TYPE_SIM) == -1 ? 0 : 1);
}

TEST(LowMemory, InitReturnsMinusOneAndItsFirstLogLineIsWritten)
{
#ifdef PB_SANITIZED
    // The sanitizers map terabytes of shadow memory up front and abort on an
    // allocation that fails, so an address-space limit cannot be set here.
    GTEST_SKIP() << "an address-space limit does not work under the sanitizers";
#endif
    std::remove(LOW_MEMORY_LOG);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0)
        init_under_limit();
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << "child ended by signal " << WTERMSIG(status);
    if (WEXITSTATUS(status) == kLimitIgnored)
        GTEST_SKIP() << "RLIMIT_AS has no effect in this process (an emulator)";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "simlib_pb_init did not return -1";

    std::ifstream log(LOW_MEMORY_LOG);
    const std::string text{std::istreambuf_iterator<char>(log), {}};
    EXPECT_NE(text.find("simlib_pb_init"), std::string::npos) << text;
    EXPECT_NE(text.find("pb memory is null"), std::string::npos) << text;
}

}  // namespace
