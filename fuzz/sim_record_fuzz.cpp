// The SIM record decoders: an even first byte decodes the rest as an alpha
// identifier, an odd one as the 14-byte fixed part. Outputs are heap buffers
// of exactly the room the codec documents, so the address sanitizer reports
// any byte written beyond it.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "zpt_ui_pb_func.h"

namespace {

using Buf = std::unique_ptr<unsigned char[]>;

void decode_name(const uint8_t *data, size_t n)
{
    if (n == 0 || n > 1000)
        return;
    Buf ident(new unsigned char[n]);
    std::memcpy(ident.get(), data, n);
    size_t room;
    if (data[0] == 0x80)
        room = 3 * n / 2;
    else if (data[0] == 0x81 || data[0] == 0x82)
        room = 60;
    else
        room = n + 1;
    Buf name(new unsigned char[room ? room : 1]());
    const pb_return_code_enum_t rc = pb_func_decode_name(name.get(), ident.get(), static_cast<int>(n));
    if (rc != PB_RCODE_OK && rc != PB_RCODE_UTF_ERR && rc != PB_RCODE_BUFFNULL_ERR)
        abort();
}

void decode_number(const uint8_t *data, size_t n)
{
    if (n < sizeof(pb_fixed_sim_rec_s_type))
        return;
    std::unique_ptr<pb_fixed_sim_rec_s_type> rec(new pb_fixed_sim_rec_s_type);
    std::memcpy(rec.get(), data, sizeof *rec);
    const unsigned bcd_len = rec->bcd_len;
    const bool fits = bcd_len >= 1 && bcd_len <= 11;
    const size_t room = fits ? 2 * (bcd_len - 1) + 2 : 1;
    Buf num(new unsigned char[room]());
    const pb_return_code_enum_t rc = pb_func_decode_number(num.get(), rec.get());
    if ((rc == PB_RCODE_OK) != fits || (!fits && num[0] != 0))
        abort();
    if (fits && strnlen(reinterpret_cast<char *>(num.get()), room) >= room)
        abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    if (data[0] % 2 == 0)
        decode_name(data + 1, size - 1);
    else
        decode_number(data + 1, size - 1);
    return 0;
}
