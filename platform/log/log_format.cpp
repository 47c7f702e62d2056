// printf formatting for log lines, with the conversions that log messages
// use done here: vsnprintf costs more than all the rest of a log call. A
// format with anything else (precision, '*', '+', ' ', '#', floating point,
// ...) goes to vsnprintf whole, so the output is always what vsnprintf
// would write.
#include "log_format.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

// Output cut at `end`, as vsnprintf cuts it; one byte stays for the NUL.
struct Out {
    char *p;
    char *end;

    void put(char c)
    {
        if (p < end)
            *p++ = c;
    }
    void put(const char *s, size_t n)
    {
        size_t k = static_cast<size_t>(end - p) < n ? static_cast<size_t>(end - p) : n;
        std::memcpy(p, s, k);
        p += k;
    }
    void pad(char c, size_t n)
    {
        while (n-- > 0)
            put(c);
    }
};

struct Conversion {
    bool left = false;  // '-'
    bool zero = false;  // '0'
    size_t width = 0;
    int size = 0;  // 0 int, 1 long, 2 long long, 3 size_t; -1 short, -2 char
    char conv = 0;
};

// Reads one conversion after '%'; false for anything not handled here.
bool parse(const char **fmt, Conversion *cv)
{
    const char *f = *fmt;
    for (;; ++f) {
        if (*f == '-')
            cv->left = true;
        else if (*f == '0')
            cv->zero = true;
        else
            break;
    }
    while (*f >= '0' && *f <= '9')
        cv->width = cv->width * 10 + static_cast<size_t>(*f++ - '0');
    if (cv->width > 256)
        return false;
    if (f[0] == 'h')
        cv->size = f[1] == 'h' ? (++f, -2) : -1, ++f;
    else if (f[0] == 'l')
        cv->size = f[1] == 'l' ? (++f, 2) : 1, ++f;
    else if (f[0] == 'z')
        cv->size = 3, ++f;
    cv->conv = *f;
    *fmt = f + 1;
    switch (cv->conv) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X': return true;
    case 's':
    case 'c':
    case 'p': return cv->size == 0 && !cv->zero;
    case '%': return cv->size == 0 && !cv->zero && !cv->left && cv->width == 0;
    default: return false;
    }
}

// Writes `text` (n bytes) padded to the conversion's width; `sign_len` leading
// bytes of text stay before zero padding.
void put_padded(Out *out, const Conversion &cv, const char *text, size_t n, size_t sign_len = 0)
{
    const size_t fill = cv.width > n ? cv.width - n : 0;
    if (cv.left) {
        out->put(text, n);
        out->pad(' ', fill);
    } else if (cv.zero) {
        out->put(text, sign_len);
        out->pad('0', fill);
        out->put(text + sign_len, n - sign_len);
    } else {
        out->pad(' ', fill);
        out->put(text, n);
    }
}

void put_integer(Out *out, const Conversion &cv, va_list *ap)
{
    const bool is_signed = cv.conv == 'd' || cv.conv == 'i';
    unsigned long long v;
    bool negative = false;
    if (is_signed) {
        long long s;
        switch (cv.size) {
        case -2: s = static_cast<signed char>(va_arg(*ap, int)); break;
        case -1: s = static_cast<short>(va_arg(*ap, int)); break;
        case 1: s = va_arg(*ap, long); break;
        case 2: s = va_arg(*ap, long long); break;
        case 3: s = va_arg(*ap, ssize_t); break;
        default: s = va_arg(*ap, int); break;
        }
        negative = s < 0;
        v = negative ? 0ull - static_cast<unsigned long long>(s) : static_cast<unsigned long long>(s);
    } else {
        switch (cv.size) {
        case -2: v = static_cast<unsigned char>(va_arg(*ap, unsigned)); break;
        case -1: v = static_cast<unsigned short>(va_arg(*ap, unsigned)); break;
        case 1: v = va_arg(*ap, unsigned long); break;
        case 2: v = va_arg(*ap, unsigned long long); break;
        case 3: v = va_arg(*ap, size_t); break;
        default: v = va_arg(*ap, unsigned); break;
        }
    }
    const unsigned base = cv.conv == 'x' || cv.conv == 'X' ? 16 : 10;
    const char *digits = cv.conv == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    char text[24];
    char *end = text + sizeof text, *p = end;
    do {
        *--p = digits[v % base];
        v /= base;
    } while (v != 0);
    if (negative)
        *--p = '-';
    put_padded(out, cv, p, static_cast<size_t>(end - p), negative ? 1 : 0);
}

}  // namespace

size_t log_format(char *buf, size_t size, const char *format, va_list ap)
{
    if (size == 0)
        return 0;
    // Copies: the conversions read their arguments through a pointer (a
    // va_list handed down by value would not advance on every ABI), and a
    // format given up on restarts from the first argument.
    va_list args, again;
    va_copy(args, ap);
    va_copy(again, ap);
    Out out{buf, buf + size - 1};
    bool handled = true;
    for (const char *f = format; *f != '\0' && handled;) {
        const char *pct = std::strchr(f, '%');
        const size_t n = pct ? static_cast<size_t>(pct - f) : std::strlen(f);
        out.put(f, n);
        if (pct == nullptr)
            break;
        f = pct + 1;
        Conversion cv;
        if (!parse(&f, &cv)) {
            handled = false;
            break;
        }
        switch (cv.conv) {
        case 's': {
            const char *s = va_arg(args, const char *);
            if (s == nullptr)
                s = "(null)";
            put_padded(&out, cv, s, std::strlen(s));
            break;
        }
        case 'c': {
            const char c = static_cast<char>(va_arg(args, int));
            put_padded(&out, cv, &c, 1);
            break;
        }
        case 'p': {
            char text[24];
            const void *ptr = va_arg(args, void *);
            const int n_text =
                ptr ? std::snprintf(text, sizeof text, "0x%llx",
                                    static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(ptr)))
                    : std::snprintf(text, sizeof text, "(nil)");
            put_padded(&out, cv, text, static_cast<size_t>(n_text));
            break;
        }
        case '%': out.put('%'); break;
        default: put_integer(&out, cv, &args); break;
        }
    }
    size_t len;
    if (handled) {
        *out.p = '\0';
        len = static_cast<size_t>(out.p - buf);
    } else {
        const int m = std::vsnprintf(buf, size, format, again);
        len = m < 0 ? 0 : static_cast<size_t>(m) < size ? static_cast<size_t>(m) : size - 1;
    }
    va_end(args);
    va_end(again);
    return len;
}
