// The import line parser on arbitrary text: each field is a terminated
// prefix of its part of the line, cut only when the part is longer than the
// field, and a cut of valid UTF-8 keeps whole characters.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "../app/mutils/pb/zpt_ui_pb_api_import.cpp"  // the parser is internal to the module
#include "text.h"

namespace {

// A field holds its part whole, or, when the part is longer than the
// field's 50 bytes, a prefix of 47 to 50 bytes that ends between characters
// of a valid UTF-8 part.
void check_field(const char (&field)[PB_TEXT_LEN], const std::string &part)
{
    const char *end = static_cast<const char *>(std::memchr(field, '\0', PB_TEXT_LEN));
    if (end == nullptr)
        std::abort();  // not terminated
    const std::string got(field, end);
    if (part.compare(0, got.size(), got) != 0)
        std::abort();  // not a prefix of its part
    if (got.size() == part.size())
        return;
    if (part.size() < PB_TEXT_LEN || got.size() + 3 < PB_TEXT_LEN - 1)
        std::abort();  // cut without need, or by more than one character
    if (pbui::as_utf8(part) == part && pbui::as_utf8(got) != got)
        std::abort();  // half a character kept
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // One piece as import reads it: at most 511 bytes, up to and with the
    // first line feed, in a buffer of exactly its size.
    size_t n = std::min(size, kLineBuf - 1);
    if (const void *lf = std::memchr(data, '\n', n))
        n = static_cast<size_t>(static_cast<const uint8_t *>(lf) - data) + 1;
    std::unique_ptr<char[]> line(new char[n + 1]());
    std::memcpy(line.get(), data, n);
    const std::string text(line.get());  // the parser sees the text up to a NUL byte

    std::unique_ptr<pb_flash_info> e(new pb_flash_info{});
    const int found = parse_line(line.get(), e.get());

    // The parts: number and name up to the next comma, then the e-mail as
    // one word after white space.
    const size_t c1 = text.find(',');
    const size_t c2 = c1 == std::string::npos ? c1 : text.find(',', c1 + 1);
    const std::string num = text.substr(0, c1);
    const std::string name = c1 == std::string::npos ? "" : text.substr(c1 + 1, c2 - (c1 + 1));
    const char *const space = " \t\n\v\f\r";  // isspace() in the C locale
    const size_t at = c2 == std::string::npos ? c2 : text.find_first_not_of(space, c2 + 1);
    const std::string email =
        at == std::string::npos ? "" : text.substr(at, text.find_first_of(space, at) - at);
    int want = -1;
    if (!text.empty())
        want = num.empty() ? 0 : c1 == std::string::npos || name.empty() ? 1 : email.empty() ? 2 : 3;
    if (found != want)
        std::abort();
    check_field(e->num, found >= 1 ? num : "");
    check_field(e->name, found >= 2 ? name : "");
    check_field(e->email, found >= 3 ? email : "");
    return 0;
}
