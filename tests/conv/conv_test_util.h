// Byte vectors written as hex text ("E8 32 9B"), for the encoding tests.
#ifndef CONV_TEST_UTIL_H
#define CONV_TEST_UTIL_H

#include <cstdlib>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline Bytes hex(const std::string &s)
{
    Bytes out;
    for (size_t i = 0; i < s.size();) {
        if (s[i] == ' ') {
            ++i;
            continue;
        }
        out.push_back(static_cast<unsigned char>(std::strtoul(s.substr(i, 2).c_str(), nullptr, 16)));
        i += 2;
    }
    return out;
}

inline Bytes bytes(const std::string &s) { return Bytes(s.begin(), s.end()); }

// Never null, even for an empty vector: an empty input is not a missing one.
inline char *cp(Bytes &b)
{
    static char empty[1];
    return b.empty() ? empty : reinterpret_cast<char *>(b.data());
}

#endif
