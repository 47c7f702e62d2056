// The phonebook files: one per storage type, a plain run of 161-byte records
// (index and sim_index as 32-bit little-endian, then name, num and email as
// 51 bytes each), no header. A backup file holds a copy of the phonebook file
// while it is rewritten or appended to; one found at the start of a write is
// the trace of a write that was cut short and puts the file back first.
//
// Ownership: the loaders fill the table they are given without taking its
// lock; the caller owns it (a working copy) or keeps other threads off it.
// The files carry no lock. Every FILE* is owned by a FilePtr and closed on
// every path; a writer closes explicitly so that a failed flush counts.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "pb_log.h"
#include "pb_stdio.h"
#include "zpt_ui_pb_api.h"

namespace {

using FilePtr = pb_file;

// Close now and report whether everything buffered reached the file.
bool close_ok(FilePtr &f) { return std::fclose(f.release()) == 0; }

// Whole-file stream buffer: a phonebook file is at most 161,000 bytes, so a
// load or a rewrite is a handful of system calls.
constexpr size_t kStreamBuffer = size_t{64} * 1024;

// Without the big buffer the stream keeps its default one: slower, not wrong.
void use_big_buffer(FILE *f) { (void)std::setvbuf(f, nullptr, _IOFBF, kStreamBuffer); }

// Each stream here belongs to one call on one thread, so the per-call stream
// lock of fread/fwrite buys nothing; skip it.
size_t read_bytes(void *buf, size_t n, FILE *f) { return fread_unlocked(buf, 1, n, f); }
size_t write_bytes(const void *buf, size_t n, FILE *f) { return fwrite_unlocked(buf, 1, n, f); }

struct BookPaths {
    const char *book;
    const char *backup;
};

constexpr BookPaths kSimPaths{PB_DATA_DIR "/pb_sim_file", PB_DATA_DIR "/pb_sim_file_tmp"};
constexpr BookPaths kDevicePaths{PB_DATA_DIR "/pb_device_file", PB_DATA_DIR "/pb_device_file_tmp"};

const BookPaths *paths_of(storage_type_t type)
{
    switch (type) {
    case STORAGE_TYPE_SIM: return &kSimPaths;
    case STORAGE_TYPE_FLASH: return &kDevicePaths;
    default: return nullptr;
    }
}

// The argument check shared by the loaders and the writers.
const BookPaths *checked_paths(storage_type_t type, const void *table_or_entry)
{
    if (table_or_entry == nullptr) {
        PB_LOG("pb memory is null \n\n");
        return nullptr;
    }
    const BookPaths *paths = paths_of(type);
    if (paths == nullptr)
        PB_LOG("file path error\n\n");
    return paths;
}

bool exists(const char *path) { return access(path, F_OK) == 0; }

// Record fields in file byte order, independent of the host's.
bool write_u32(FILE *f, zp_uint32 v)
{
    const unsigned char b[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                                static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
    return write_bytes(b, sizeof b, f) == sizeof b;
}

bool read_u32(FILE *f, zp_uint32 *v)
{
    unsigned char b[4];
    if (read_bytes(b, sizeof b, f) != sizeof b)
        return false;
    *v = zp_uint32{b[0]} | zp_uint32{b[1]} << 8 | zp_uint32{b[2]} << 16 | zp_uint32{b[3]} << 24;
    return true;
}

bool write_text(FILE *f, const char *field) { return write_bytes(field, PB_TEXT_LEN, f) == PB_TEXT_LEN; }

// A loaded text field always ends inside its 51 bytes, whatever the file held.
bool read_text(FILE *f, char *field)
{
    bool whole = read_bytes(field, PB_TEXT_LEN, f) == PB_TEXT_LEN;
    field[PB_TEXT_LEN - 1] = '\0';
    return whole;
}

// Reads the fields after the stored index, one read per field, and logs the
// field that came up short. With trace, also logs the sim_index and the name
// as they are read (the dense loader's progress lines). The lines name the
// loader that asked, `caller`.
bool read_record_tail(FILE *f, pb_flash_info *rec, bool trace, const char *caller)
{
    if (!read_u32(f, &rec->sim_index)) {
        PB_LOG_FOR(caller, "read sim index error \n\n");
        return false;
    }
    if (trace)
        PB_LOG_FOR(caller, "sim_index is [%d] \n\n", rec->sim_index);
    if (!read_text(f, rec->name)) {
        PB_LOG_FOR(caller, "read name error \n\n");
        return false;
    }
    if (trace)
        PB_LOG_FOR(caller, "read SIM record name==>[%s]\n\n", rec->name);
    if (!read_text(f, rec->num)) {
        PB_LOG_FOR(caller, "read number error \n\n");
        return false;
    }
    if (!read_text(f, rec->email)) {
        PB_LOG_FOR(caller, "read email error \n\n");
        return false;
    }
    return true;
}

int simlib_pb_write_file(FILE *pfile, pb_flash_info *pb)
{
    if (pfile == nullptr || pb == nullptr) {
        PB_LOG("error \n\n");
        return -1;
    }
    PB_LOG("Write File: index = %d, sim_index = %d, number = %s, name = %s\n", pb->index, pb->sim_index,
           pb->num, pb->name);
    if (!write_u32(pfile, pb->index)) {
        PB_LOG("write index error \n\n");
        return -1;
    }
    if (!write_u32(pfile, pb->sim_index)) {
        PB_LOG("write sim index error \n\n");
        return -1;
    }
    if (!write_text(pfile, pb->name)) {
        PB_LOG("write name error \n\n");
        return -1;
    }
    if (!write_text(pfile, pb->num)) {
        PB_LOG("write nubmer error \n\n");
        return -1;
    }
    if (!write_text(pfile, pb->email)) {
        PB_LOG("write email error \n\n");
        return -1;
    }
    return 0;
}

int simlib_pb_backup_file(const char *path_a, const char *path_b)
{
    PB_LOG("enter\n\n");
    if (path_a == nullptr || path_b == nullptr) {
        PB_LOG("error\n\n");
        return -1;
    }
    FilePtr src(std::fopen(path_a, "r"));
    if (!src) {
        PB_LOG("error\n\n");
        return -1;
    }
    FilePtr dst(std::fopen(path_b, "w"));
    if (!dst) {
        PB_LOG("error\n\n");
        return -1;
    }
    use_big_buffer(src.get());
    use_big_buffer(dst.get());
    unsigned char buf[32];
    size_t n;
    while ((n = read_bytes(buf, sizeof buf, src.get())) > 0) {
        if (write_bytes(buf, n, dst.get()) != n) {
            PB_LOG("error\n\n");
            return -1;
        }
    }
    if (!close_ok(dst)) {
        PB_LOG("error\n\n");
        return -1;
    }
    PB_LOG("OK\n\n");
    return 0;
}

// Before a write: put back the file of a write that was cut short, or keep a
// copy of the current file. A failed copy is only logged by the copy.
void backup_step(const BookPaths &p)
{
    bool have_backup = exists(p.backup);
    bool have_book = exists(p.book);
    if (have_backup && have_book) {
        unlink(p.book);
        simlib_pb_backup_file(p.backup, p.book);
    } else if (!have_backup && have_book) {
        simlib_pb_backup_file(p.book, p.backup);
    }
}

// After a write, successful or not, once the phonebook file is closed.
void cleanup_step(const BookPaths &p)
{
    if (exists(p.backup)) {
        PB_LOG("clean  %s\n\n", p.backup);
        unlink(p.backup);
    }
}

// Zeroes the table's contents (not its lock) and opens the phonebook file;
// null when there is no file, which loads as an empty phonebook.
FilePtr open_for_load(const BookPaths &p, pb_mem_info *p_pb_mem)
{
    std::memset(&p_pb_mem->mem, 0, sizeof p_pb_mem->mem);
    p_pb_mem->mem.pb_count = 0;
    FilePtr f(std::fopen(p.book, "r"));
    if (!f)
        PB_LOG("empty \n\n");
    else
        use_big_buffer(f.get());
    return f;
}

}  // namespace

int simlib_clear_flash(storage_type_t type)
{
    PB_LOG("enter \n\n");
    const BookPaths *p = paths_of(type);
    if (p == nullptr) {
        PB_LOG("file path error\n\n");
        return -1;
    }
    for (const char *path : {p->book, p->backup}) {
        if (FILE *f = std::fopen(path, "r")) {
            (void)std::fclose(f);
            unlink(path);
        }
    }
    PB_LOG("ok \n\n");
    return 0;
}

// The dense loader: the k-th record of the file goes to slot k with index
// k + 1, whatever index it was stored with.
int simlib_pb_add_from_flash(storage_type_t type, pb_mem_info *p_pb_mem)
{
    PB_LOG("enter \n\n");
    const BookPaths *p = checked_paths(type, p_pb_mem);
    if (p == nullptr)
        return -1;
    FilePtr f = open_for_load(*p, p_pb_mem);
    if (!f)
        return 0;
    pb_flash_info_v &mem = p_pb_mem->mem;
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k) {
        // Read into a scratch record so that a record cut short leaves its
        // slot free.
        pb_flash_info rec{};
        if (!read_u32(f.get(), &rec.index))
            break;
        PB_LOG("index is [%d] k [%d]\n\n", rec.index, k);
        rec.index = k + 1;
        if (!read_record_tail(f.get(), &rec, true, __func__))
            break;
        mem.pb[k] = rec;
        ++mem.pb_count;
    }
    PB_LOG("ok \n\n");
    return 0;
}

// The record-by-index loader: a record with index i goes to slot i - 1, so
// the gaps of the file stay free slots. A record whose index is 0, above
// 1000 or not above the one loaded before it cannot take its slot without
// breaking the table; it is logged and skipped.
int simlib_pb_from_flash(storage_type_t type, pb_mem_info *p_pb_mem)
{
    PB_LOG("enter \n\n");
    const BookPaths *p = checked_paths(type, p_pb_mem);
    if (p == nullptr)
        return -1;
    FilePtr f = open_for_load(*p, p_pb_mem);
    if (!f)
        return 0;
    pb_flash_info_v &mem = p_pb_mem->mem;
    zp_uint32 k = 0;  // next slot that may be filled
    while (k < PB_MAX_ENTRIES) {
        pb_flash_info rec{};
        if (!read_u32(f.get(), &rec.index)) {
            PB_LOG("no data to read \n\n");
            break;
        }
        // The slots passed over stay free, and are logged before the rest
        // of the record is read.
        const bool fits = rec.index > k && rec.index <= PB_MAX_ENTRIES;
        for (; fits && k < rec.index - 1; ++k)
            PB_LOG("read SIM record index==>[%d] tmp_num [%d]\n\n", rec.index, k);
        if (!read_record_tail(f.get(), &rec, false, __func__))
            break;
        if (!fits) {
            PB_LOG("skip record index [%d] at slot [%d]\n\n", rec.index, k);
            continue;
        }
        mem.pb[k] = rec;
        PB_LOG("pb_array[%d]: index = %d, sim_index = %d, number = %s, name = %s, email = %s\n", k, rec.index,
               rec.sim_index, rec.num, rec.name, rec.email);
        ++k;
        ++mem.pb_count;
    }
    PB_LOG("ok \n\n");
    return 0;
}

int simlib_pb_add_to_file(storage_type_t type, pb_flash_info *p_info)
{
    PB_LOG("enter \n\n");
    const BookPaths *p = checked_paths(type, p_info);
    if (p == nullptr)
        return -1;
    backup_step(*p);
    PB_LOG("open file %s\n\n", p->book);
    FilePtr f(std::fopen(p->book, "a+"));
    if (!f) {
        PB_LOG("open file error \n\n");
        return -1;
    }
    int result = 0;
    if (simlib_pb_write_file(f.get(), p_info) != 0)
        result = -1;
    // Buffered bytes meet a full disk only here.
    if (!close_ok(f))
        result = -1;
    if (result != 0)
        PB_LOG("error \n\n");
    cleanup_step(*p);
    PB_LOG("ok \n\n");
    return result;
}

int simlib_pb_to_flash(storage_type_t type, pb_mem_info *p_pb_mem)
{
    PB_LOG("enter \n\n");
    const BookPaths *p = checked_paths(type, p_pb_mem);
    if (p == nullptr)
        return -1;
    backup_step(*p);
    PB_LOG("open file %s\n\n", p->book);
    FilePtr f(std::fopen(p->book, "w"));
    if (!f) {
        PB_LOG("open file error \n\n");
        return -1;
    }
    use_big_buffer(f.get());
    const pb_flash_info_v &mem = p_pb_mem->mem;
    PB_LOG("begin to write record %d\n\n", mem.pb_count);
    int result = 0;
    if (mem.pb_count == 0) {
        PB_LOG("no need to save \n\n");
    } else {
        for (int k = 0; k < PB_MAX_ENTRIES; ++k) {
            pb_flash_info &slot = p_pb_mem->mem.pb[k];
            if (slot.index == 0)
                continue;
            PB_LOG("RAM PB Entry[%d]: index = %d, sim_index = %d\n", k, slot.index, slot.sim_index);
            if (simlib_pb_write_file(f.get(), &slot) != 0) {
                PB_LOG("error \n\n");
                result = -1;
                break;
            }
        }
    }
    if (!close_ok(f)) {
        PB_LOG("error \n\n");
        result = -1;
    }
    cleanup_step(*p);
    PB_LOG("ok \n\n");
    return result;
}
