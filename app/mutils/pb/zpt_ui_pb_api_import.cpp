// Import and export: moving entries between a phonebook file and a text file
// of comma-separated lines, one entry per line, no header, no quoting.
//
// Import reads "number,name,e-mail" lines into the device phonebook; export
// writes "name,number,e-mail" lines. The two orders differ on purpose of the
// callers that exist: a file written by export and read back by import has
// its names and numbers swapped.
//
// Both run in the calling process and thread, on a working copy of their own
// (one whole table, taken from the heap for the length of the call), and go
// straight to the phonebook file without the service. Nothing here keeps
// state between calls.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "pb_log.h"
#include "pb_stdio.h"
#include "zpt_ui_pb_api.h"
#include "zpt_ui_pb_func.h"

namespace {

// Import reads a line in pieces of at most 511 characters; each piece is
// parsed as a line of its own.
constexpr size_t kLineBuf = 512;

using File = pb_file;

struct HeapFree {
    void operator()(void *p) const { std::free(p); }
};
using Table = std::unique_ptr<pb_mem_info, HeapFree>;

// A zero-filled working copy: an empty table with an unlocked lock.
Table new_working_copy() { return Table(static_cast<pb_mem_info *>(std::calloc(1, sizeof(pb_mem_info)))); }

// Copies the n bytes at src into a 51-byte field. Text longer than the field
// holds is cut at the last whole UTF-8 character that fits, so a name never
// ends in half a character.
void put_field(char (&dst)[PB_TEXT_LEN], const char *src, size_t n)
{
    if (n > PB_TEXT_LEN - 1) {
        n = PB_TEXT_LEN - 1;
        // src[n] is the first byte left out; while it continues a character,
        // that character started inside the kept part: leave it out whole.
        // A UTF-8 character is at most 4 bytes, so look back at most 3.
        for (int back = 0; back < 3 && n > 0 && (static_cast<unsigned char>(src[n]) & 0xC0) == 0x80; ++back)
            --n;
    }
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

// Parses one piece of a line as "%[^,],%[^,],%s" into num, name and email
// (in that order) and returns the number of fields found, -1 for an empty
// piece, as the scanf family would; fields are cut to fit as put_field does.
// The number and the name run up to the next comma, spaces and line feed
// included; the e-mail skips leading white space and ends at the next.
int parse_line(const char *line, pb_flash_info *e)
{
    if (*line == '\0')
        return -1;
    char(*const fields[2])[PB_TEXT_LEN] = {&e->num, &e->name};
    const char *p = line;
    int found = 0;
    for (auto *field : fields) {
        size_t n = std::strcspn(p, ",");
        if (n == 0)
            return found;
        put_field(*field, p, n);
        ++found;
        p += n;
        if (*p != ',')
            return found;
        ++p;
    }
    while (is_space(*p))
        ++p;
    size_t n = 0;
    while (p[n] != '\0' && !is_space(p[n]))
        ++n;
    if (n == 0)
        return found;
    put_field(e->email, p, n);
    return found + 1;
}

}  // namespace

extern "C" pb_return_code_enum_t simlib_pb_import(const char *path, storage_type_t type)
{
    char line[kLineBuf] = {};
    pb_flash_info entry;
    std::memset(&entry, 0, sizeof entry);

    if (path == nullptr || *path == '\0') {
        PB_LOG("null of path\n");
        return PB_RCODE_ARGSERR;
    }
    if (type == STORAGE_TYPE_SIM) {
        PB_LOG("SIM Card doesn't support import method\n");
        return PB_RCODE_INVALID_ERR;
    }
    Table pb_mem = new_working_copy();
    if (!pb_mem || simlib_pb_from_flash(type, pb_mem.get()) != 0) {
        PB_LOG("simlib_pb_from_flash failed, type = %d\n", static_cast<int>(type));
        return PB_RCODE_ERROR;
    }
    File in(std::fopen(path, "rb"));
    if (!in) {
        PB_LOG("open file %s failed, errno = %d\n", path, errno);
        return PB_RCODE_INVALID_ERR;
    }

    while (std::fgets(line, sizeof line, in.get()) != nullptr) {
        std::memset(&entry, 0, sizeof entry);
        int ret = parse_line(line, &entry);
        PB_LOG("import: num = %s, name=%s, email=%s, ret = %d\n", entry.num, entry.name, entry.email, ret);
        if (ret < 2) {
            PB_LOG("Invalied entry string: %s\n", line);
            continue;
        }
        entry.sim_index = 0xFFFFFFFFu;
        pb_return_code_enum_t rc = simlib_pb_add(pb_mem.get(), &entry);
        if (rc != PB_RCODE_OK) {
            PB_LOG("PB ADD ENTRY: simlib_pb_add failed, ret = %d\n", static_cast<int>(rc));
            continue;
        }
        PB_LOG("Import Entry: index = %d, number = %s, name = %s, email = %s\n",
               static_cast<int>(entry.index), entry.num, entry.name, entry.email);
    }

    // One rewrite for the whole file; the text file was read to its end, so
    // a failed rewrite is only logged.
    if (simlib_pb_to_flash(type, pb_mem.get()) != 0)
        PB_LOG("write pb info from memory into file failure\n");
    return PB_RCODE_OK;
}

extern "C" pb_return_code_enum_t simlib_pb_export(const char *path, storage_type_t type,
                                                  const zp_int32 *array, int count)
{
    pb_flash_info entry;
    std::memset(&entry, 0, sizeof entry);

    if (path == nullptr || *path == '\0') {
        PB_LOG("null of path\n");
        return PB_RCODE_ARGSERR;
    }
    if (array == nullptr && count > 0) {
        PB_LOG("null of index array, count = %d\n", count);
        return PB_RCODE_ARGSERR;
    }
    Table pb_mem = new_working_copy();
    if (!pb_mem || simlib_pb_from_flash(type, pb_mem.get()) != 0) {
        PB_LOG("simlib_pb_from_flash failed, type = %d\n", static_cast<int>(type));
        return PB_RCODE_ERROR;
    }
    File out(std::fopen(path, "w+b"));
    if (!out) {
        PB_LOG("open file %s failed\n", path);
        return PB_RCODE_ERROR;
    }

    // The values of array are places in the table (index), for the SIM
    // phonebook too, not SIM record numbers.
    for (int i = 0; i < count; ++i) {
        std::memset(&entry, 0, sizeof entry);
        if (simlib_pb_getbyidx(pb_mem.get(), static_cast<unsigned int>(array[i]), &entry, INDEX_TYPE_FLASH) !=
            0) {
            PB_LOG("PB EDIT ENTRY: index = %d not exist\n", static_cast<int>(array[i]));
            continue;
        }
        (void)std::fprintf(out.get(), "%s,%s,%s\n", entry.name, entry.num, entry.email);
    }
    return PB_RCODE_OK;
}
