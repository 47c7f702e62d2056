// Import of arbitrary text files into the device phonebook: no crash, no
// field past its 50 bytes, and, for valid UTF-8 lines that fit one read,
// no name, number or e-mail ending in half a character.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zpt_ui_pb_api.h"

namespace {

const std::string kText = "/tmp/import_fuzz." + std::to_string(getpid()) + ".txt";
const char *const kDev = PB_DATA_DIR "/pb_device_file";

// Length of the valid UTF-8 prefix of s[0..n).
size_t utf8_valid_prefix(const unsigned char *s, size_t n)
{
    size_t i = 0;
    while (i < n) {
        size_t len = s[i] < 0x80 ? 1 : (s[i] & 0xE0) == 0xC0 ? 2 : (s[i] & 0xF0) == 0xE0 ? 3
                   : (s[i] & 0xF8) == 0xF0 ? 4 : 0;
        if (len == 0 || i + len > n)
            return i;
        for (size_t k = 1; k < len; ++k)
            if ((s[i + k] & 0xC0) != 0x80)
                return i;
        i += len;
    }
    return i;
}

bool fits_one_read(const uint8_t *data, size_t size)
{
    size_t run = 0;
    for (size_t i = 0; i < size; ++i) {
        run = data[i] == '\n' ? 0 : run + 1;
        if (run >= 511)
            return false;
    }
    return true;
}

void check_field(const char *f, bool whole_chars)
{
    size_t n = strnlen(f, PB_TEXT_LEN);
    if (n > PB_TEXT_LEN - 1)
        std::abort();
    if (whole_chars && utf8_valid_prefix(reinterpret_cast<const unsigned char *>(f), n) != n)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FILE *f = std::fopen(kText.c_str(), "wb");
    if (!f)
        return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    std::remove(kDev);

    if (simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH) != PB_RCODE_OK)
        std::abort();
    static pb_mem_info table;
    std::memset(&table, 0, sizeof table);
    if (simlib_pb_from_flash(STORAGE_TYPE_FLASH, &table) != 0)
        std::abort();
    const bool whole = fits_one_read(data, size) && utf8_valid_prefix(data, size) == size;
    for (const auto &e : table.mem.pb) {
        if (e.index == 0)
            continue;
        if (e.sim_index != 0xFFFFFFFFu)
            std::abort();
        check_field(e.name, whole);
        check_field(e.num, whole);
        check_field(e.email, whole);
    }
    std::remove(kText.c_str());
    return 0;
}
