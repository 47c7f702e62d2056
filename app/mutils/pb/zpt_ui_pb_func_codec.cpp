// The SIM record codec: the name (alpha identifier) and the number (the
// 14-byte fixed part) of an abbreviated dialling number record, to and from
// the system's UTF-8 name and ASCII number. No state; the character work is
// done by the encodings of zpt_ui_conv.
#include <cstring>

#include "pb_log.h"
#include "zpt_ui_conv.h"
#include "zpt_ui_pb_func.h"

namespace {

constexpr unsigned char kUnused = 0xFF;
constexpr unsigned char kNumberDigitBytes = sizeof(pb_fixed_sim_rec_s_type::number);
constexpr int kMaxExpanded = 20;  // characters a 0x81/0x82 name expands to at most

// Expands a 0x81 or 0x82 name from a copy of its header and character bytes.
// The character count is cut to the bytes present inside read_len, so the
// expansion never reads past the identifier.
int expand_compressed(unsigned short *des, int *des_len, const unsigned char *read_buffer, int read_len,
                      int header_len, int (*expand)(unsigned short *, int *, unsigned char *))
{
    unsigned char copy[4 + kMaxExpanded] = {};
    const int avail = read_len < static_cast<int>(sizeof copy) ? read_len : static_cast<int>(sizeof copy);
    std::memcpy(copy, read_buffer, static_cast<size_t>(avail));
    const int present = avail > header_len ? avail - header_len : 0;
    if (read_len < header_len)
        copy[1] = 0;
    else if (copy[1] > present)
        copy[1] = static_cast<unsigned char>(present);
    return expand(des, des_len, copy);
}

// What decode_compressed() returns when the expansion failed.
constexpr int kExpandFailed = -2;

// A 0x81 or 0x82 name (header_len bytes of header): expanded to UCS-2 by
// `expand`, then converted to UTF-8 at out. kExpandFailed, with `failed`
// logged, when the expansion fails; else the UTF-8 conversion's result.
int decode_compressed(char *out, int *out_len, const unsigned char *read_buffer, int read_len, int header_len,
                      int (*expand)(unsigned short *, int *, unsigned char *), const char *failed)
{
    unsigned short ucs2[kMaxExpanded + 1] = {};
    int ucs2_len = 0;
    if (expand_compressed(ucs2, &ucs2_len, read_buffer, read_len, header_len, expand) != 0) {
        PB_LOG_FOR("pb_func_decode_name", "%s", failed);
        return kExpandFailed;
    }
    return conv_ucs2_to_utf8(out, out_len, reinterpret_cast<char *>(ucs2), ucs2_len);
}

}  // namespace

extern "C" pb_return_code_enum_t pb_func_decode_name(unsigned char *ptrname, unsigned char *read_buffer,
                                                     const int read_len)
{
    PB_LOG("enter \n\n");
    if (ptrname == nullptr || read_buffer == nullptr || read_len < 0) {
        PB_LOG("read buffer is null\n");
        return PB_RCODE_BUFFNULL_ERR;
    }
    if (read_len == 0 || read_buffer[0] == kUnused) {
        // Bytes outside read_len are not read: they are shown as 0xff.
        PB_LOG("read buffer has not correct data :[0x%x][0x%x]\n", read_len > 0 ? read_buffer[0] : kUnused,
               read_len > 1 ? read_buffer[1] : kUnused);
        return PB_RCODE_BUFFNULL_ERR;
    }
    int in_len = 1;
    while (in_len < read_len && read_buffer[in_len] != kUnused)
        ++in_len;
    PB_LOG("in_len=%d read_len=%d\n\n", in_len, read_len);

    char *out = reinterpret_cast<char *>(ptrname);
    int out_len = 0;
    int rc = 0;
    switch (read_buffer[0]) {
    case 0x80:
        PB_LOG("pb encode type is 80\n");
        rc = conv_ucs2_to_utf8(out, &out_len, reinterpret_cast<char *>(read_buffer + 1), in_len - 1);
        break;
    case 0x81:
        PB_LOG("pb encode type is 81\n");
        rc = decode_compressed(out, &out_len, read_buffer, read_len, 3, ucs2_81_to_80,
                               "convert from 81 to 80 failure\n");
        break;
    case 0x82:
        PB_LOG("pb encode type is 82\n");
        rc = decode_compressed(out, &out_len, read_buffer, read_len, 4, ucs2_82_to_80,
                               "convert from 82 to 80 failure\n");
        break;
    default:
        PB_LOG("gsm7 encode type\n");
        if (conv_gsm7_to_ascii(out, &out_len, reinterpret_cast<char *>(read_buffer), in_len) != 0) {
            PB_LOG("SIM ERROR pb's name could not convert from gsm7 to asci\n");
            return PB_RCODE_UTF_ERR;
        }
        break;
    }
    if (rc == kExpandFailed)
        return PB_RCODE_UTF_ERR;
    if (rc != 0) {
        PB_LOG("SIM ERROR pb's name could not convert to utf8 \n");
        return PB_RCODE_UTF_ERR;
    }
    PB_LOG("ok \n\n");
    return PB_RCODE_OK;
}

extern "C" pb_return_code_enum_t pb_func_encode_name(unsigned char *write_buffer, int *out_len,
                                                     unsigned char *ptrname, int in_len)
{
    PB_LOG("enter \n\n");
    if (write_buffer == nullptr || ptrname == nullptr) {
        PB_LOG("write buffer or utf name is null\n");
        return PB_RCODE_BUFFNULL_ERR;
    }
    char *out = reinterpret_cast<char *>(write_buffer);
    char *name = reinterpret_cast<char *>(ptrname);
    // An empty (or negatively sized) name is not looked into: it takes the
    // GSM path, which writes an empty text or refuses the length.
    if (in_len <= 0 || ptrname[0] < 0x80) {
        PB_LOG("asci pb encode type\n");
        if (conv_ascii_to_gsm7(out, out_len, name, in_len) != 0) {
            PB_LOG("swap order write buffer failure\n");
            return PB_RCODE_UTF_ERR;
        }
    } else {
        PB_LOG("ucs2 pb encode type\n");
        write_buffer[0] = 0x80;
        if (conv_utf8_to_ucs2(out + 1, out_len, name, in_len) != 0) {
            PB_LOG("SIM ERROR record could not convert to ucs2 \n");
            return PB_RCODE_UTF_ERR;
        }
        *out_len += 1;
    }
    PB_LOG("ok \n\n");
    return PB_RCODE_OK;
}

extern "C" pb_return_code_enum_t pb_func_decode_number(unsigned char *ptrnum,
                                                       pb_fixed_sim_rec_s_type *fixed_sim_record)
{
    PB_LOG("enter \n\n");
    pb_return_code_enum_t result = PB_RCODE_OK;
    if (fixed_sim_record == nullptr) {
        PB_LOG("SIM ERROR record number could not convert to asci\n");
        result = PB_RCODE_BUFFNULL_ERR;
    } else if (fixed_sim_record->bcd_len == kUnused) {
        PB_LOG("SIM ERROR record number is not validate 0x%x\n", fixed_sim_record->bcd_len);
        result = PB_RCODE_INVALID_ERR;
    } else if (fixed_sim_record->bcd_len > kNumberDigitBytes + 1) {
        // More digit bytes than the number field holds: refused, never read
        // past the fixed part (the extension record is not followed).
        PB_LOG("SIM ERROR record number could not convert to asci\n");
        result = PB_RCODE_BCD_ERR;
    } else if (conv_bcd_to_ascii(fixed_sim_record->number,
                                 static_cast<unsigned char>(fixed_sim_record->bcd_len - 1),
                                 fixed_sim_record->ton_npi, ptrnum) != 0) {
        PB_LOG("SIM ERROR record number could not convert to asci\n");
        result = PB_RCODE_BCD_ERR;
    }
    PB_LOG("ok \n\n");
    return result;
}

extern "C" pb_return_code_enum_t pb_func_encode_number(unsigned char *fixed_sim_record, unsigned char *ptrnum)
{
    PB_LOG("enter \n\n");
    pb_return_code_enum_t result = PB_RCODE_OK;
    // Encode into room for the longest number the conversion takes, then copy
    // only what fits the fixed part: more than 20 digits are refused and the
    // record is left untouched.
    unsigned char bcd[2 + 21];
    if (fixed_sim_record == nullptr || conv_ascii_to_bcd(ptrnum, 1, bcd) != 0) {
        PB_LOG("SIM ERROR record number could not convert to bcd\n");
        result = PB_RCODE_BCD_ERR;
    } else if (bcd[0] > kNumberDigitBytes + 1) {
        PB_LOG("SIM ERROR record number could not convert to bcd\n");
        result = PB_RCODE_BCD_ERR;
    } else {
        // bcd[0] is the last byte written: 0 for an empty number (byte 0 only).
        std::memcpy(fixed_sim_record, bcd, static_cast<size_t>(bcd[0]) + 1);
    }
    PB_LOG("ok \n\n");
    return result;
}
