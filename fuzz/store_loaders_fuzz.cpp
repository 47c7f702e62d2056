// Random phonebook file contents through both loaders: whatever the file
// holds, the loaded table must keep the table rules.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "../tests/store/table_rules.h"
#include "zpt_ui_pb_api.h"

namespace {

void check(const pb_mem_info &t, const char *loader)
{
    if (const char *broken = table_rule_broken(t.mem)) {
        std::fprintf(stderr, "%s: %s\n", loader, broken);
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FILE *f = std::fopen(PB_DATA_DIR "/pb_sim_file", "wb");
    if (f == nullptr)
        return 0;
    if (size > 0)
        std::fwrite(data, 1, size, f);
    std::fclose(f);

    static std::unique_ptr<pb_mem_info> table(new pb_mem_info());
    if (simlib_pb_from_flash(STORAGE_TYPE_SIM, table.get()) != 0)
        std::abort();
    check(*table, "record-by-index loader");
    if (simlib_pb_add_from_flash(STORAGE_TYPE_SIM, table.get()) != 0)
        std::abort();
    check(*table, "dense loader");
    return 0;
}
