// The SIM record decoders: an even first byte decodes the rest as an alpha
// identifier, an odd one as the 14-byte fixed part. Outputs have exactly the
// room the codec documents.
#include <cstdlib>

#include "exact_buf.h"
#include "zpt_ui_pb_func.h"

namespace {

void decode_name(const uint8_t *data, size_t n)
{
    if (n == 0 || n > 1000)
        return;
    Buf ident = copy_of(data, n);
    Buf name = room(data[0] == 0x80 ? 3 * n / 2 : data[0] == 0x81 || data[0] == 0x82 ? 60 : n + 1);
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
    const bool fits = rec->bcd_len >= 1 && rec->bcd_len <= 11;
    const size_t max = fits ? 2 * (rec->bcd_len - 1) + 2 : 1;
    Buf num = room(max);
    const pb_return_code_enum_t rc = pb_func_decode_number(num.get(), rec.get());
    if ((rc == PB_RCODE_OK) != fits || strnlen(chars(num), max) == max)
        abort();  // a length out of range taken, or a number not terminated
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 0)
        (data[0] % 2 == 0 ? decode_name : decode_number)(data + 1, size - 1);
    return 0;
}
