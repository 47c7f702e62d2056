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
// straight to the phonebook file without the service. Import reads the text
// file first and then loads, changes and saves the phonebook file under its
// lock, the lock the service's writes take. Export replaces its text file
// only once it is complete. Nothing here keeps state between calls.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "pb_book.h"
#include "pb_conv.h"
#include "pb_fs.h"
#include "pb_heap.h"
#include "pb_log.h"
#include "pb_stdio.h"
#include "pb_work.h"
#include "zpt_ui_pb_api.h"
#include "zpt_ui_pb_func.h"

namespace {

// Import reads a line in pieces of at most 511 characters; each piece is
// parsed as a line of its own.
constexpr size_t kLineBuf = 512;

// Copies the n bytes at src into a 51-byte field. Text longer than the field
// holds is cut at the last whole UTF-8 character that fits, so a name never
// ends in half a character.
void put_field(char (&dst)[PB_TEXT_LEN], const char *src, size_t n)
{
    n = pb_utf8_cut(src, n, PB_TEXT_LEN - 1);
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

// Opens the text file to import, refusing what is not a regular file: a
// folder reads as nothing, and a device or a FIFO may never end. Opened
// without blocking, so that a FIFO without a writer cannot hold the call.
pb_file open_import(const char *path)
{
    pb_fd fd(pb_fs_open(path, O_RDONLY | O_NONBLOCK));
    struct stat st {};
    if (!fd || fstat(fd.get(), &st) != 0)
        return pb_file();
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return pb_file();
    }
    pb_file f(fdopen(fd.get(), "rb"));
    if (f)
        (void)fd.release();
    return f;
}

// Reads the entries of the text file into `out` (at most a whole
// phonebook: more could not be added); their count.
int read_import(FILE *in, pb_flash_info *out)
{
    char line[kLineBuf] = {};
    int n = 0;
    while (n < PB_MAX_ENTRIES && std::fgets(line, sizeof line, in) != nullptr) {
        pb_flash_info &entry = out[n];
        std::memset(&entry, 0, sizeof entry);
        int ret = parse_line(line, &entry);
        PB_LOG_FOR("simlib_pb_import", "import: num = %s, name=%s, email=%s, ret = %d\n", entry.num,
                   entry.name, entry.email, ret);
        if (ret < 2) {
            PB_LOG_FOR("simlib_pb_import", "Invalied entry string: %s\n", line);
            continue;
        }
        entry.sim_index = PB_SIM_INDEX_NONE;
        ++n;
    }
    return n;
}

// Writes the export lines of the entries at `array` to a new file beside
// `path` and renames it over `path`; any failure removes it and leaves
// `path` as it was. The new file takes the mode of the file it replaces, or
// the phonebook files' mode.
pb_return_code_enum_t write_export(const char *path, pb_mem_info *pb_mem, const zp_int32 *array, int count)
{
    struct stat st {};
    mode_t mode = PB_FILE_MODE;
    if (stat(path, &st) == 0) {
        if (!S_ISREG(st.st_mode))
            return PB_RCODE_ERROR;  // a folder, a device, a FIFO: not ours to replace
        mode = st.st_mode & 0777;
    }
    const size_t len = std::strlen(path);
    pb_heap_ptr<char[]> tmp = pb_heap_alloc<char>(len + 8);
    if (!tmp)
        return PB_RCODE_ERROR;
    std::memcpy(tmp.get(), path, len);
    std::memcpy(tmp.get() + len, ".XXXXXX", 8);
    pb_fd fd(mkostemp(tmp.get(), O_CLOEXEC));
    if (!fd)
        return PB_RCODE_ERROR;
    bool ok = fchmod(fd.get(), mode) == 0;
    // The values of array are places in the table (index), for the SIM
    // phonebook too, not SIM record numbers.
    char line[3 * PB_TEXT_LEN + 1];
    for (int i = 0; ok && i < count; ++i) {
        pb_flash_info entry{};
        if (simlib_pb_getbyidx(pb_mem, static_cast<unsigned int>(array[i]), &entry, INDEX_TYPE_FLASH) != 0) {
            PB_LOG_FOR("simlib_pb_export", "PB EDIT ENTRY: index = %d not exist\n",
                       static_cast<int>(array[i]));
            continue;
        }
        int n = std::snprintf(line, sizeof line, "%s,%s,%s\n", entry.name, entry.num, entry.email);
        // A short write to a regular file means a full disk.
        ok = n > 0 && write(fd.get(), line, static_cast<size_t>(n)) == n;
    }
    return pb_fs_replace(fd, tmp.get(), path, ok) == 0 ? PB_RCODE_OK : PB_RCODE_ERROR;
}

}  // namespace

extern "C" pb_return_code_enum_t simlib_pb_import(const char *path, storage_type_t type)
{
    if (path == nullptr || *path == '\0') {
        PB_LOG("null of path\n");
        return PB_RCODE_ARGSERR;
    }
    if (type == STORAGE_TYPE_SIM) {
        PB_LOG("SIM Card doesn't support import method\n");
        return PB_RCODE_INVALID_ERR;
    }
    if (type != STORAGE_TYPE_FLASH) {
        PB_LOG("simlib_pb_from_flash failed, type = %d\n", static_cast<int>(type));
        return PB_RCODE_ERROR;
    }
    pb_file in = open_import(path);
    if (!in) {
        PB_LOG("open file %s failed, errno = %d\n", path, errno);
        return PB_RCODE_INVALID_ERR;
    }
    pb_heap_ptr<pb_flash_info[]> lines = pb_heap_alloc<pb_flash_info>(PB_MAX_ENTRIES);
    pb_working_copy_ptr pb_mem = pb_working_copy_new();
    if (!lines || !pb_mem) {
        PB_LOG("out of memory\n");
        return PB_RCODE_ERROR;
    }
    const int count = read_import(in.get(), lines.get());
    if (std::ferror(in.get())) {
        PB_LOG("read file %s failed, errno = %d\n", path, errno);
        return PB_RCODE_INVALID_ERR;
    }

    pb_book_lock lock(type);
    if (!lock.ok())
        return PB_RCODE_WRITE_ERR;
    if (simlib_pb_from_flash(type, pb_mem->get()) != 0) {
        PB_LOG("simlib_pb_from_flash failed, type = %d\n", static_cast<int>(type));
        return PB_RCODE_ERROR;
    }
    for (int i = 0; i < count; ++i) {
        pb_flash_info &entry = lines[i];
        pb_return_code_enum_t rc = simlib_pb_add(pb_mem->get(), &entry);
        if (rc != PB_RCODE_OK) {
            PB_LOG("PB ADD ENTRY: simlib_pb_add failed, ret = %d\n", static_cast<int>(rc));
            continue;
        }
        PB_LOG("Import Entry: index = %d, number = %s, name = %s, email = %s\n",
               static_cast<int>(entry.index), entry.num, entry.name, entry.email);
    }
    // One rewrite for the whole file; when it fails, the phonebook file is
    // as it was before the import.
    if (simlib_pb_to_flash(type, pb_mem->get()) != 0) {
        PB_LOG("write pb info from memory into file failure\n");
        return PB_RCODE_WRITE_ERR;
    }
    return PB_RCODE_OK;
}

extern "C" pb_return_code_enum_t simlib_pb_export(const char *path, storage_type_t type,
                                                  const zp_int32 *array, int count)
{
    if (path == nullptr || *path == '\0') {
        PB_LOG("null of path\n");
        return PB_RCODE_ARGSERR;
    }
    if (array == nullptr && count > 0) {
        PB_LOG("null of index array, count = %d\n", count);
        return PB_RCODE_ARGSERR;
    }
    pb_working_copy_ptr pb_mem = pb_working_copy_new();
    if (!pb_mem || simlib_pb_from_flash(type, pb_mem->get()) != 0) {
        PB_LOG("simlib_pb_from_flash failed, type = %d\n", static_cast<int>(type));
        return PB_RCODE_ERROR;
    }
    if (write_export(path, pb_mem->get(), array, count) != PB_RCODE_OK) {
        PB_LOG("open file %s failed\n", path);
        return PB_RCODE_ERROR;
    }
    return PB_RCODE_OK;
}
