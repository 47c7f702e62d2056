// Heap buffers of exactly the size a codec is given or documents, so the
// address sanitizer reports any byte read or written outside them.
#ifndef EXACT_BUF_H
#define EXACT_BUF_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

using Buf = std::unique_ptr<unsigned char[]>;

// n zero bytes (one when n is 0, so that there is a pointer to pass).
inline Buf room(size_t n) { return Buf(new unsigned char[n ? n : 1]()); }

inline Buf copy_of(const uint8_t *data, size_t n)
{
    Buf b = room(n);
    if (n)
        std::memcpy(b.get(), data, n);
    return b;
}

inline char *chars(const Buf &b) { return reinterpret_cast<char *>(b.get()); }

#endif
