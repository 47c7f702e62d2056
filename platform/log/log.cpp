// Host log library: one line per call, "HH:MM:SS.uuuuuu tid L message", to
// standard error or to the file named by ZP_LOG_FILE. ZP_LOG_LEVEL sets the
// threshold (default ZP_LOG_INFO); a call below it returns before any
// formatting. ZP_LOG_MAX_KB caps the file (default 1024): the line that
// would pass the cap first moves the file to "<file>.1", replacing the one
// before, as a ring buffer keeps only the latest lines.
//
// Lines are formatted straight into one process-wide buffer under a mutex,
// so they stay whole and in call order across threads. Buffers reach the
// file through write(2) on an O_APPEND descriptor, in whole lines, one
// writer at a time and in order: a flusher thread takes the buffer (and the
// callers go on filling a second one) when it is half full or kFlushMs after
// its first line; an error line is written before its call returns, with
// every line before it; and what is left is written at exit. A process
// killed outright loses only the debug and info lines of that last moment.
// On standard error every line is written at once.
//
// The sink and both buffers are static storage, set up on first use without
// allocating: the first line of a process may come when memory has run out
// (a library's start-up under a memory limit), and log_print must neither
// throw through the C API nor fail to write it.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include "liblog.h"
#include "log_format.h"
#include "unique_fd.h"

namespace {

constexpr size_t kMaxLine = 1024;        // a longer message is cut
constexpr size_t kBufSize = 128 * 1024;  // lines waiting for the file
constexpr long kFlushMs = 20;            // longest wait of a line in the buffer
constexpr long kDefaultMaxKb = 1024;
constexpr long kLargestMaxKb = 1024 * 1024;  // the cap fits a 32-bit size

thread_local long t_tid;  // the calling thread's kernel id, once looked up

struct Sink {
    int threshold = ZP_LOG_INFO;
    char path[PATH_MAX] = {};  // empty: standard error
    size_t cap = 0;            // bytes the file may hold
    zp_host::UniqueFd file;    // the log file open at `path`
    size_t size = 0;           // bytes in the file, as of the last write

    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t pending = PTHREAD_COND_INITIALIZER;  // the flusher has work
    pthread_cond_t idle = PTHREAD_COND_INITIALIZER;     // no write under way
    bool flusher = false;                               // the flusher thread runs
    bool direct = false;                                // write each line at once
    bool writing = false;                               // a thread writes `out`
    time_t clock_sec = -1;                              // second of clock_text
    char clock_text[9] = {};                            // "HH:MM:SS:"
    char *fill = bufs[0];                               // the buffer lines go to
    char *out = bufs[1];                                // the buffer being written
    size_t used = 0;                                    // bytes in `fill`
    char bufs[2][kBufSize];
};

Sink *g_sink;

long env_long(const char *name, long fallback)
{
    const char *v = std::getenv(name);
    if (v == nullptr || *v == '\0')
        return fallback;
    char *end = nullptr;
    long n = std::strtol(v, &end, 10);
    return *end == '\0' ? n : fallback;
}

// Opens (or reopens) the log file for appending and learns its size. The
// log holds names and numbers: a log file is the owner's only, whatever the
// umask (a terminal or other device named is left as it is).
void open_file(Sink *s)
{
    s->file.reset(open(s->path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    struct stat st {};
    const bool known = s->file.valid() && fstat(s->file.get(), &st) == 0;
    if (known && S_ISREG(st.st_mode))
        (void)fchmod(s->file.get(), 0600);
    s->size = known ? static_cast<size_t>(st.st_size) : 0;
}

// The old ".1" goes first: a rename over an existing file makes ext4 write
// the renamed file's data to disk at once, a cost the log need not pay.
void rotate(Sink *s)
{
    char old[PATH_MAX + 2];
    std::snprintf(old, sizeof old, "%s.1", s->path);
    (void)unlink(old);
    (void)rename(s->path, old);
    open_file(s);
}

// Another process writing the same log may have moved the file away or
// added to it: follow the path and take the size from the file.
void refresh(Sink *s)
{
    struct stat mine {
    }, named{};
    if (!s->file.valid() || fstat(s->file.get(), &mine) != 0 || stat(s->path, &named) != 0 ||
        mine.st_ino != named.st_ino || mine.st_dev != named.st_dev) {
        open_file(s);
        return;
    }
    s->size = static_cast<size_t>(mine.st_size);
}

void write_all(int fd, const char *p, size_t n)
{
    while (n > 0) {
        ssize_t w = write(fd, p, n);
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0)
            return;  // nowhere to log a failure of the log
        p += w;
        n -= static_cast<size_t>(w);
    }
}

// Writes n bytes of whole lines to the log; only the thread that set
// `writing` calls it, without the lock. The file takes whole lines up to its
// cap and is rotated in between.
void write_lines(Sink *s, const char *buf, size_t len)
{
    if (s->path[0] == '\0') {
        write_all(STDERR_FILENO, buf, len);
        return;
    }
    refresh(s);
    size_t off = 0;
    while (off < len && s->file.valid()) {
        size_t n = len - off;
        const size_t room = s->cap > s->size ? s->cap - s->size : 0;
        if (n > room) {
            const void *nl = room > 0 ? memrchr(buf + off, '\n', room) : nullptr;
            n = nl ? static_cast<size_t>(static_cast<const char *>(nl) - (buf + off)) + 1 : 0;
        }
        if (n == 0) {
            if (s->size == 0)
                break;  // a line longer than the cap: dropped
            rotate(s);
            continue;
        }
        write_all(s->file.get(), buf + off, n);
        s->size += n;
        off += n;
    }
}

// Writes out every line logged so far, after any write under way; the
// caller holds the lock, which is let go during the write so that other
// threads go on logging into the other buffer.
void drain(Sink *s)
{
    while (s->writing)
        pthread_cond_wait(&s->idle, &s->lock);
    if (s->used == 0)
        return;
    std::swap(s->fill, s->out);
    const size_t n = s->used;
    s->used = 0;
    s->writing = true;
    pthread_mutex_unlock(&s->lock);
    write_lines(s, s->out, n);
    pthread_mutex_lock(&s->lock);
    s->writing = false;
    pthread_cond_broadcast(&s->idle);
}

void *flusher_main(void *arg)
{
    auto *s = static_cast<Sink *>(arg);
    pthread_mutex_lock(&s->lock);
    for (;;) {
        while (s->used == 0)
            pthread_cond_wait(&s->pending, &s->lock);
        // Let lines gather, then write them in one go.
        timespec due{};
        clock_gettime(CLOCK_MONOTONIC, &due);
        due.tv_nsec += kFlushMs * 1000000;
        due.tv_sec += due.tv_nsec / 1000000000;
        due.tv_nsec %= 1000000000;
        while (s->used < kBufSize / 2 && pthread_cond_timedwait(&s->pending, &s->lock, &due) != ETIMEDOUT) {
        }
        drain(s);
    }
    return nullptr;
}

// At exit: write out what is left, then write every later line at once (the
// flusher may not run again).
void flush_at_exit()
{
    pthread_mutex_lock(&g_sink->lock);
    drain(g_sink);
    g_sink->direct = true;
    pthread_mutex_unlock(&g_sink->lock);
}

// A child of fork() has no flusher and must not write its parent's lines.
void before_fork() { pthread_mutex_lock(&g_sink->lock); }
void after_fork_parent() { pthread_mutex_unlock(&g_sink->lock); }
void after_fork_child()
{
    g_sink->used = 0;
    g_sink->flusher = false;
    g_sink->writing = false;
    t_tid = 0;
    pthread_mutex_unlock(&g_sink->lock);
}

Sink *make_sink()
{
    // Never destroyed, so that a line logged from a destructor at exit
    // still finds it.
    alignas(Sink) static unsigned char storage[sizeof(Sink)];
    auto *s = new (storage) Sink;
    s->threshold = static_cast<int>(env_long("ZP_LOG_LEVEL", ZP_LOG_INFO));
    long kb = env_long("ZP_LOG_MAX_KB", kDefaultMaxKb);
    if (kb <= 0)
        kb = kDefaultMaxKb;
    s->cap = static_cast<size_t>(kb < kLargestMaxKb ? kb : kLargestMaxKb) * 1024;
    if (const char *p = std::getenv("ZP_LOG_FILE"); p && *p && std::strlen(p) < sizeof s->path) {
        std::memcpy(s->path, p, std::strlen(p) + 1);
        open_file(s);
        if (!s->file.valid())  // unusable: fall back to standard error
            s->path[0] = '\0';
    }
    s->direct = s->path[0] == '\0';
    // The flusher's time limits run on the monotonic clock.
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(&s->pending, &attr);
    pthread_condattr_destroy(&attr);
    g_sink = s;
    std::atexit(flush_at_exit);
    pthread_atfork(before_fork, after_fork_parent, after_fork_child);
    return s;
}

// Built on first use, so that a log call from another library's constructor
// finds it ready.
Sink *sink()
{
    static Sink *s = make_sink();
    return s;
}

char level_letter(int level)
{
    switch (level) {
    case ZP_LOG_DEBUG: return 'D';
    case ZP_LOG_INFO: return 'I';
    case ZP_LOG_ERROR: return 'E';
    default: return '?';
    }
}

// Writes v in decimal, right-aligned in `width` characters padded with
// `pad`; returns the end.
char *put_number(char *p, unsigned long v, int width, char pad)
{
    char digits[24];
    int n = 0;
    do {
        digits[n++] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0);
    for (int k = n; k < width; ++k)
        *p++ = pad;
    while (n > 0)
        *p++ = digits[--n];
    return p;
}

// "HH:MM:SS.uuuuuu tid L " at p; the caller holds the lock (the clock text
// is shared). Local time is looked up once a second.
char *put_prefix(Sink *s, char *p, int level)
{
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    if (ts.tv_sec != s->clock_sec) {
        tm t{};
        localtime_r(&ts.tv_sec, &t);
        char *c = s->clock_text;
        for (int part : {t.tm_hour, t.tm_min, t.tm_sec}) {
            *c++ = static_cast<char>('0' + part / 10 % 10);
            *c++ = static_cast<char>('0' + part % 10);
            *c++ = ':';
        }
        s->clock_sec = ts.tv_sec;
    }
    std::memcpy(p, s->clock_text, 8);
    p += 8;
    *p++ = '.';
    p = put_number(p, static_cast<unsigned long>(ts.tv_nsec / 1000), 6, '0');
    *p++ = ' ';
    if (t_tid == 0)
        t_tid = syscall(SYS_gettid);
    p = put_number(p, static_cast<unsigned long>(t_tid), 5, ' ');
    *p++ = ' ';
    *p++ = level_letter(level);
    *p++ = ' ';
    return p;
}

}  // namespace

extern "C" void log_print(int level, const char *format, ...)
{
    Sink *s = sink();
    if (level < s->threshold || format == nullptr)
        return;

    pthread_mutex_lock(&s->lock);
    while (kBufSize - s->used < kMaxLine)
        drain(s);  // the flusher fell behind
    char *line = s->fill + s->used;
    char *body = put_prefix(s, line, level);
    const size_t room = kMaxLine - static_cast<size_t>(body - line);
    va_list ap;
    va_start(ap, format);
    size_t len = log_format(body, room, format, ap);
    va_end(ap);
    // Messages end in one or more line feeds; keep exactly one.
    while (len > 0 && body[len - 1] == '\n')
        --len;
    body[len++] = '\n';
    const size_t before = s->used;
    s->used += static_cast<size_t>(body - line) + len;

    if (s->direct || level >= ZP_LOG_ERROR) {
        drain(s);
    } else if (!s->flusher) {
        // The flusher takes no signals: they stay with the process's own
        // threads, whatever the mask of the thread that logged first.
        sigset_t all, old;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &old);
        pthread_t t;
        s->flusher = pthread_create(&t, nullptr, flusher_main, s) == 0;
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        if (s->flusher)
            pthread_detach(t);
        else
            s->direct = true, drain(s);  // no thread: write every line at once
    } else if (before == 0 || (before < kBufSize / 2 && s->used >= kBufSize / 2)) {
        pthread_cond_signal(&s->pending);  // a first line to time, or half full
    }
    pthread_mutex_unlock(&s->lock);
}
