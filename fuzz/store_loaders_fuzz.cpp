// Random phonebook file contents through both loaders: whatever the file
// holds, the loaded table must keep the table rules.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "../tests/store/table_rules.h"
#include "pb_data_dir.h"
#include "zpt_ui_pb_api.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::ofstream(std::string(pb_data_dir()) + "/pb_sim_file", std::ios::binary)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    const struct {
        const char *what;
        decltype(&simlib_pb_from_flash) load;
    } loaders[] = {{"record-by-index loader", simlib_pb_from_flash},
                   {"dense loader", simlib_pb_add_from_flash}};
    static std::unique_ptr<pb_mem_info> table(new pb_mem_info());
    for (const auto &l : loaders) {
        if (l.load(STORAGE_TYPE_SIM, table.get()) != 0)
            std::abort();
        if (const char *broken = table_rule_broken(table->mem)) {
            std::fprintf(stderr, "%s: %s\n", l.what, broken);
            std::abort();
        }
    }
    return 0;
}
