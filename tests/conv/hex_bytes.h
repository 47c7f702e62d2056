// Byte vectors written as hex text, shared by the encoding tests and the SIM
// record tests.
#ifndef CONV_HEX_BYTES_H
#define CONV_HEX_BYTES_H

#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

// "E8 32 9B" to its bytes; spaces between bytes are optional.
inline Bytes hex(const std::string &s)
{
    Bytes out;
    for (size_t i = 0; i + 1 < s.size(); i += (s[i] == ' ') ? 1 : 2)
        if (s[i] != ' ')
            out.push_back(static_cast<unsigned char>(std::stoul(s.substr(i, 2), nullptr, 16)));
    return out;
}

// The hex byte h repeated n times, each with a leading space.
inline std::string rep(const std::string &h, int n) { return n > 0 ? " " + h + rep(h, n - 1) : ""; }

#endif
