/*
 * pb_conv.h - what the text conversions and their users share (internal):
 * the argument check of the conversions, and cutting UTF-8 text at a whole
 * character. No state.
 */
#ifndef PB_CONV_H
#define PB_CONV_H

#include <cstddef>

/* The check every conversion makes first: false, logged for `caller` with
 * null_text or bad_length_text, on a null buffer or a negative length. */
bool pb_conv_args_ok(const char *des_data, const int *des_len, const char *src_data, int src_len,
                     const char *null_text, const char *bad_length_text, const char *caller);

/* Length of the longest prefix of the len bytes of UTF-8 at s that fits in
 * room bytes without splitting a character. While s[cut] continues a
 * character, that character started inside the kept part and is left out
 * whole; a character is at most 4 bytes, so the cut goes back at most 3. */
inline size_t pb_utf8_cut(const char *s, size_t len, size_t room)
{
    if (len <= room)
        return len;
    size_t cut = room;
    for (int back = 0; back < 3 && cut > 0 && (static_cast<unsigned char>(s[cut]) & 0xC0) == 0x80; ++back)
        --cut;
    return cut;
}

#endif /* PB_CONV_H */
