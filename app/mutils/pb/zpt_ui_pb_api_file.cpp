// The phonebook files: one per storage type, a plain run of 161-byte records
// (index and sim_index as 32-bit little-endian, then name, num and email as
// 51 bytes each), no header.
//
// A rewrite never touches the phonebook file: it writes the whole table to a
// new file beside it ("<file>.new"), flushes it to the disk and renames it
// over the phonebook file, so a reader sees the old or the new table whole
// and a failed or cut-short rewrite leaves the old one. An append adds one
// record with one write; a record cut short by a crash can only be the last
// one, which the loaders drop and the next append cuts off. A backup file
// ("<file>_tmp") is the trace of a cut-short write of an older firmware: the
// writers put it back first, and the loaders read it instead while it is
// there.
//
// Ownership: the loaders fill the table they are given without taking its
// lock; the caller owns it (a working copy) or keeps other threads off it.
// Writers that load, change and save a file hold its pb_book_lock; the
// functions here take none. Every FILE* and descriptor has an owner that
// closes it on every path.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "pb_book.h"
#include "pb_data_dir.h"
#include "pb_fs.h"
#include "pb_log.h"
#include "pb_stdio.h"
#include "zpt_ui_pb_api.h"

namespace {

// Whole-file stream buffer: a phonebook file is at most 161,000 bytes, so a
// load is a handful of system calls.
constexpr size_t kStreamBuffer = size_t{64} * 1024;

// Without the big buffer the stream keeps its default one: slower, not wrong.
void use_big_buffer(FILE *f) { (void)std::setvbuf(f, nullptr, _IOFBF, kStreamBuffer); }

// Each stream here belongs to one call on one thread, so the per-call stream
// lock of fread buys nothing; skip it.
size_t read_bytes(void *buf, size_t n, FILE *f) { return fread_unlocked(buf, 1, n, f); }

// The files of one phonebook in the data folder as it is when the object is
// made: the phonebook file, the backup an older firmware's cut-short write
// left, a rewrite's new file until it is renamed, and the lock file. The
// four paths share one buffer, each ending with its '\0'.
class BookPaths {
public:
    explicit BookPaths(storage_type_t type)
    {
        const char *name = book_name(type);
        if (name == nullptr)
            return;
        const char *dir = pb_data_dir();
        const char **paths[] = {&book_, &backup_, &fresh_, &lock_};
        const char *suffixes[] = {"", "_tmp", ".new", PB_LOCK_SUFFIX};
        char *at = buf_;
        size_t left = sizeof buf_;
        for (size_t k = 0; k < sizeof paths / sizeof paths[0]; ++k) {
            const int n = std::snprintf(at, left, "%s/%s%s", dir, name, suffixes[k]);
            if (n < 0 || static_cast<size_t>(n) >= left) {
                PB_LOG("data folder path too long: %s\n", dir);
                book_ = nullptr;
                return;
            }
            *paths[k] = at;
            at += n + 1;
            left -= static_cast<size_t>(n) + 1;
        }
    }
    BookPaths(const BookPaths &) = delete;
    BookPaths &operator=(const BookPaths &) = delete;

    // False for a storage type without a file, or a data folder whose
    // paths do not fit.
    bool ok() const { return book_ != nullptr; }
    const char *book() const { return book_; }
    const char *backup() const { return backup_; }
    const char *fresh() const { return fresh_; }
    const char *lock() const { return lock_; }

private:
    static const char *book_name(storage_type_t type)
    {
        switch (type) {
        case STORAGE_TYPE_SIM: return "pb_sim_file";
        case STORAGE_TYPE_FLASH: return "pb_device_file";
        case STORAGE_TYPE_UNKNOWN: return nullptr;
        }
        return nullptr;  // a value from outside the enum, through the C API
    }

    const char *book_ = nullptr;
    const char *backup_ = nullptr;
    const char *fresh_ = nullptr;
    const char *lock_ = nullptr;
    char buf_[PATH_MAX];
};

// The argument check shared by the loaders and the writers.
bool checked(const BookPaths &paths, const void *table_or_entry)
{
    if (table_or_entry == nullptr) {
        PB_LOG("pb memory is null \n\n");
        return false;
    }
    if (!paths.ok())
        PB_LOG("file path error\n\n");
    return paths.ok();
}

// Record fields in file byte order, independent of the host's.
unsigned char *put_u32(unsigned char *out, zp_uint32 v)
{
    for (int b = 0; b < 4; ++b)
        out[b] = static_cast<unsigned char>(v >> (8 * b));
    return out + 4;
}

bool read_u32(FILE *f, zp_uint32 *v)
{
    unsigned char b[4];
    if (read_bytes(b, sizeof b, f) != sizeof b)
        return false;
    *v = zp_uint32{b[0]} | zp_uint32{b[1]} << 8 | zp_uint32{b[2]} << 16 | zp_uint32{b[3]} << 24;
    return true;
}

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

// One record in file form. Logs it as the record writer always has.
void encode_record(const pb_flash_info &pb, unsigned char *out)
{
    PB_LOG_FOR("simlib_pb_write_file", "Write File: index = %d, sim_index = %d, number = %s, name = %s\n",
               pb.index, pb.sim_index, pb.num, pb.name);
    out = put_u32(out, pb.index);
    out = put_u32(out, pb.sim_index);
    for (const char *field : {pb.name, pb.num, pb.email}) {
        std::memcpy(out, field, PB_TEXT_LEN);
        out += PB_TEXT_LEN;
    }
}

// Writes records in file form from `at` on, in blocks of 64 (10,304 bytes):
// add() each record, then flush() for the rest; ok() until a write failed.
class RecordWriter {
public:
    RecordWriter(int fd, off_t at) : fd_(fd), at_(at) {}
    void add(const pb_flash_info &rec)
    {
        encode_record(rec, block_ + used_);
        used_ += PB_RECORD_SIZE;
        if (used_ == sizeof block_)
            flush();
    }
    bool flush()
    {
        if (ok_ && used_ > 0)
            ok_ = pwrite(fd_, block_, used_, at_) == static_cast<ssize_t>(used_);
        at_ += static_cast<off_t>(used_);
        used_ = 0;
        return ok_;
    }
    bool ok() const { return ok_; }

private:
    int fd_;
    off_t at_;
    bool ok_ = true;
    size_t used_ = 0;
    unsigned char block_[64 * PB_RECORD_SIZE];
};

// Puts a backup file left by an older firmware back over the phonebook
// file: a rename, so the phonebook file is at every moment either the one
// that write left or the backup. 0 also when there is no backup.
int simlib_pb_backup_file(const char *backup, const char *book)
{
    if (std::rename(backup, book) != 0) {
        if (errno == ENOENT)
            return 0;
        PB_LOG("error\n\n");
        return -1;
    }
    PB_LOG("clean  %s\n\n", backup);
    return pb_fs_sync_folder(book);
}

// Readers take the backup while there is one: the phonebook file beside it
// may be what the cut-short write left.
pb_file open_book(const BookPaths &p)
{
    pb_file f(std::fopen(p.backup(), "re"));
    if (!f)
        f.reset(std::fopen(p.book(), "re"));
    return f;
}

// Zeroes the table's contents (not its lock) and opens the phonebook file;
// null when there is no file, which loads as an empty phonebook.
pb_file open_for_load(const BookPaths &p, pb_mem_info *p_pb_mem)
{
    std::memset(&p_pb_mem->mem, 0, sizeof p_pb_mem->mem);
    p_pb_mem->mem.pb_count = 0;
    pb_file f = open_book(p);
    if (!f)
        PB_LOG("empty \n\n");
    else
        use_big_buffer(f.get());
    return f;
}

}  // namespace

pb_book_lock::pb_book_lock(storage_type_t type)
{
    const BookPaths p(type);
    if (!p.ok())
        return;
    pb_fd fd(pb_fs_open(p.lock(), O_RDWR | O_CREAT));
    if (fd) {
        int rc;
        while ((rc = flock(fd.get(), LOCK_EX)) != 0 && errno == EINTR) {
        }
        if (rc == 0) {
            fd_ = fd.release();
            return;
        }
    }
    PB_LOG("lock %s failed, errno = %d\n", p.lock(), errno);
    ok_ = false;
}

// Closing the lock file's only descriptor releases the lock.
pb_book_lock::~pb_book_lock()
{
    if (fd_ >= 0)
        (void)close(fd_);
}

int pb_book_recover(storage_type_t type)
{
    const BookPaths p(type);
    return p.ok() ? simlib_pb_backup_file(p.backup(), p.book()) : -1;
}

// The backup goes first: readers take it while it is there, so a crash
// after the phonebook file went would otherwise bring back an older
// phonebook instead of none.
int simlib_clear_flash(storage_type_t type)
{
    PB_LOG("enter \n\n");
    const BookPaths p(type);
    if (!p.ok()) {
        PB_LOG("file path error\n\n");
        return -1;
    }
    int result = 0;
    for (const char *path : {p.backup(), p.fresh(), p.book()}) {
        if (unlink(path) != 0 && errno != ENOENT) {
            PB_LOG("remove %s failed, errno = %d\n", path, errno);
            result = -1;
        }
    }
    if (result == 0 && pb_fs_sync_folder(p.book()) != 0)
        result = -1;
    PB_LOG("ok \n\n");
    return result;
}

namespace {

// The dense loader's records: the k-th record of the file goes to slot k
// with index k + 1, whatever index it was stored with.
void place_dense(FILE *f, pb_flash_info_v &mem, const char *caller)
{
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k) {
        // Read into a scratch record so that a record cut short leaves its
        // slot free.
        pb_flash_info rec{};
        if (!read_u32(f, &rec.index))
            break;
        PB_LOG_FOR(caller, "index is [%d] k [%d]\n\n", rec.index, k);
        rec.index = k + 1;
        if (!read_record_tail(f, &rec, true, caller))
            break;
        mem.pb[k] = rec;
        ++mem.pb_count;
    }
}

// The record-by-index loader's records: a record with index i goes to slot
// i - 1, so the gaps of the file stay free slots. A record whose index is 0,
// above 1000 or not above the one loaded before it cannot take its slot
// without breaking the table; it is logged and skipped.
void place_by_index(FILE *f, pb_flash_info_v &mem, const char *caller)
{
    zp_uint32 k = 0;  // next slot that may be filled
    while (k < PB_MAX_ENTRIES) {
        pb_flash_info rec{};
        if (!read_u32(f, &rec.index)) {
            PB_LOG_FOR(caller, "no data to read \n\n");
            break;
        }
        // The slots passed over stay free, and are logged before the rest
        // of the record is read.
        const bool fits = rec.index > k && rec.index <= PB_MAX_ENTRIES;
        for (; fits && k < rec.index - 1; ++k)
            PB_LOG_FOR(caller, "read SIM record index==>[%d] tmp_num [%d]\n\n", rec.index, k);
        if (!read_record_tail(f, &rec, false, caller))
            break;
        if (!fits) {
            PB_LOG_FOR(caller, "skip record index [%d] at slot [%d]\n\n", rec.index, k);
            continue;
        }
        mem.pb[k] = rec;
        PB_LOG_FOR(caller, "pb_array[%d]: index = %d, sim_index = %d, number = %s, name = %s, email = %s\n",
                   k, rec.index, rec.sim_index, rec.num, rec.name, rec.email);
        ++k;
        ++mem.pb_count;
    }
}

// A loader, logged for `caller`: empties the table and, when there is a
// phonebook file, has `place` read its records into it. -1 on bad
// arguments; no file loads as an empty phonebook.
int load_book(storage_type_t type, pb_mem_info *p_pb_mem,
              void (*place)(FILE *f, pb_flash_info_v &mem, const char *caller), const char *caller)
{
    PB_LOG_FOR(caller, "enter \n\n");
    const BookPaths p(type);
    if (!checked(p, p_pb_mem))
        return -1;
    pb_file f = open_for_load(p, p_pb_mem);
    if (!f)
        return 0;
    place(f.get(), p_pb_mem->mem, caller);
    PB_LOG_FOR(caller, "ok \n\n");
    return 0;
}

}  // namespace

int simlib_pb_add_from_flash(storage_type_t type, pb_mem_info *p_pb_mem)
{
    return load_book(type, p_pb_mem, place_dense, __func__);
}

int simlib_pb_from_flash(storage_type_t type, pb_mem_info *p_pb_mem)
{
    return load_book(type, p_pb_mem, place_by_index, __func__);
}

// The records go after the last whole record, with one write for up to 64
// of them. The SIM phonebook file that appends build is a cache rebuilt at
// every start, so an append is not flushed to the disk.
int pb_book_append(storage_type_t type, const pb_flash_info *records, int count)
{
    const BookPaths p(type);
    if (!checked(p, records) || simlib_pb_backup_file(p.backup(), p.book()) != 0)
        return -1;
    PB_LOG_FOR("simlib_pb_add_to_file", "open file %s\n\n", p.book());
    pb_fd fd(pb_fs_open(p.book(), O_WRONLY | O_CREAT));
    struct stat st {};
    if (!fd || fstat(fd.get(), &st) != 0) {
        PB_LOG_FOR("simlib_pb_add_to_file", "open file error \n\n");
        return -1;
    }
    // A record cut short by a crash would put every later one out of step.
    const off_t end = st.st_size - st.st_size % PB_RECORD_SIZE;
    RecordWriter out(fd.get(), end);
    for (int i = 0; i < count && out.ok(); ++i)
        out.add(records[i]);
    int result = 0;
    if ((end != st.st_size && ftruncate(fd.get(), end) != 0) || !out.flush()) {
        // A full disk may have taken part of the records: cut them off again.
        (void)ftruncate(fd.get(), end);
        PB_LOG_FOR("simlib_pb_add_to_file", "error \n\n");
        result = -1;
    }
    if (close(fd.release()) != 0)
        result = -1;
    return result;
}

int simlib_pb_add_to_file(storage_type_t type, pb_flash_info *p_info)
{
    PB_LOG("enter \n\n");
    int result = pb_book_append(type, p_info, 1);
    if (result == 0)
        PB_LOG("ok \n\n");
    return result;
}

// Writes the used slots, in slot order, to a new file and puts it in the
// phonebook file's place; any failure leaves the phonebook file as it was.
int simlib_pb_to_flash(storage_type_t type, pb_mem_info *p_pb_mem)
{
    PB_LOG("enter \n\n");
    const BookPaths p(type);
    if (!checked(p, p_pb_mem) || simlib_pb_backup_file(p.backup(), p.book()) != 0)
        return -1;
    PB_LOG("open file %s\n\n", p.fresh());
    // A new file of an earlier cut-short rewrite is dropped, whatever it is.
    (void)unlink(p.fresh());
    pb_fd fd(pb_fs_open(p.fresh(), O_WRONLY | O_CREAT | O_EXCL));
    if (!fd) {
        PB_LOG("open file error \n\n");
        return -1;
    }
    const pb_flash_info_v &mem = p_pb_mem->mem;
    PB_LOG("begin to write record %d\n\n", mem.pb_count);
    if (mem.pb_count == 0)
        PB_LOG("no need to save \n\n");
    RecordWriter out(fd.get(), 0);
    for (int k = 0; k < PB_MAX_ENTRIES && mem.pb_count != 0 && out.ok(); ++k) {
        const pb_flash_info &slot = mem.pb[k];
        if (slot.index == 0)
            continue;
        PB_LOG("RAM PB Entry[%d]: index = %d, sim_index = %d\n", k, slot.index, slot.sim_index);
        out.add(slot);
    }
    const bool written = out.flush();
    int result = pb_fs_replace(fd, p.fresh(), p.book(), written);
    if (result != 0)
        PB_LOG("error \n\n");
    PB_LOG("ok \n\n");
    return result;
}
