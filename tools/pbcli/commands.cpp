#include "commands.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "zpt_ui_pb_api.h"

namespace pbcli {

namespace {

using Clock = std::chrono::steady_clock;
using Entries = std::vector<pb_flash_info>;

// Poll interval while the SIM phonebook is being read.
constexpr auto kPoll = std::chrono::milliseconds(200);

class Session {
public:
    explicit Session(const Args &a)
        : args_(a), deadline_(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(a.wait_seconds)))
    {}

    const Args &args() const { return args_; }
    const char *book() const { return storage_name(args_.type); }

    // The whole phonebook, in index order. While the service answers that
    // the SIM phonebook is still being read (the first read starts it), asks
    // again until the time limit. A phonebook without entries is no failure.
    int read_all(storage_type_t type, Entries *out)
    {
        out->clear();
        if (simlib_pb_init(type) != 0)
            return PB_RCODE_ERROR;
        for (;;) {
            int num = 0;
            pb_flash_info *p = simlib_pb_read_handler(type, SIM_PB_HANDLE_TYPE_GETALL, &num);
            if (p != nullptr) {
                out->assign(p, p + num);
                return PB_RCODE_OK;
            }
            if (num == 0)
                return PB_RCODE_OK;
            if (!rcode_busy(num) || !pause())
                return num;
        }
    }

    // One change through the service, asked again while the SIM phonebook
    // is not ready, until the time limit. A change by index names the entry
    // it means in `was`: while the change waits, the SIM phonebook may be
    // read again (the modem restarted) and its entries numbered anew, so
    // before each new ask the entry is looked up and the change follows it
    // to its index (info->index tells where it went); when the entry is
    // gone, nothing more is sent.
    int write(sim_pb_handle_t action, pb_flash_info *info, const pb_flash_info *was = nullptr)
    {
        for (;;) {
            pb_flash_info sent = *info;
            int rc = simlib_pb_write_handler(args_.type, action, &sent);
            if (!rcode_busy(rc) || !pause()) {
                *info = sent;
                return rc;
            }
            if (was != nullptr) {
                Entries now;
                if (int r = read_all(args_.type, &now); r != PB_RCODE_OK)
                    return r;
                const pb_flash_info *e = find_same(now, *was);
                if (e == nullptr)
                    return RC_CHANGED;
                info->index = e->index;
            }
        }
    }

    // Several deletes by index; while it waits, the entries must stay where
    // they were, or nothing more is sent.
    int del_any(const Entries &targets)
    {
        std::vector<int> idx;
        for (const pb_flash_info &e : targets)
            idx.push_back(static_cast<int>(e.index));
        for (size_t at = 0; at < idx.size(); at += PB_DEL_ANY_MAX) {
            int n = static_cast<int>(std::min<size_t>(PB_DEL_ANY_MAX, idx.size() - at));
            int rc;
            while (rcode_busy(rc = simlib_pb_del_any(args_.type, idx.data() + at, n)) && pause()) {
                Entries now;
                if (int r = read_all(args_.type, &now); r != PB_RCODE_OK)
                    return r;
                for (const pb_flash_info &e : targets)
                    if (const pb_flash_info *found = find_same(now, e);
                        found == nullptr || found->index != e.index)
                        return RC_CHANGED;
            }
            if (rc != PB_RCODE_OK)
                return rc;
        }
        return PB_RCODE_OK;
    }

    // Reports a failure and gives the exit status for it.
    Exit fail(int rc, const std::string &context = "") const
    {
        std::string msg = (context.empty() ? "" : context + ": ") + rcode_message(rc);
        if (args_.json && rc == RC_CHANGED)  // no code of the phonebook
            std::cout << "{\"ok\":false,\"error\":" << json_string(msg) << "}\n";
        else if (args_.json)
            std::cout << "{\"ok\":false,\"code\":" << rc << ",\"error\":" << json_string(msg) << "}\n";
        else
            std::cerr << "pbcli: " << msg << "\n";
        return rcode_exit(rc);
    }

    Exit fail_text(Exit status, const std::string &msg) const
    {
        if (args_.json)
            std::cout << "{\"ok\":false,\"error\":" << json_string(msg) << "}\n";
        else
            std::cerr << "pbcli: " << msg << "\n";
        return status;
    }

private:
    bool pause()
    {
        if (Clock::now() + kPoll > deadline_)
            return false;
        if (!told_ && !args_.json)
            std::cerr << "pbcli: waiting for the SIM phonebook to be read...\n";
        told_ = true;
        std::this_thread::sleep_for(kPoll);
        return true;
    }

    const Args &args_;
    Clock::time_point deadline_;
    bool told_ = false;
};

std::string join(const std::vector<int> &v)
{
    std::string s;
    for (int i : v)
        s += (s.empty() ? "" : ", ") + std::to_string(i);
    return s;
}

void print_entry(const Session &s, const char *verb, const pb_flash_info &e)
{
    if (s.args().json) {
        std::cout << "{\"ok\":true,\"phonebook\":\"" << s.book() << "\",\"entry\":" << json_entry(e) << "}\n";
        return;
    }
    if (verb)
        std::cout << verb << " " << (s.args().type == STORAGE_TYPE_SIM ? "SIM" : "device")
                  << " phonebook entry:\n";
    const auto line = [](const char *label, const std::string &v) {
        std::cout << "  " << label << (v.empty() ? "" : std::string(9 - std::strlen(label), ' ') + v) << "\n";
    };
    line("Index:", std::to_string(e.index));
    if (s.args().type == STORAGE_TYPE_SIM)
        line("SIM:", std::to_string(e.sim_index));
    line("Name:", display_text(e.name));
    line("Number:", display_text(e.num));
    line("E-mail:", display_text(e.email));
}

Exit not_found(const Session &s, int index)
{
    return s.fail_text(EXIT_NOT_FOUND, "no entry at index " + std::to_string(index) + " in the " +
                                           (s.args().type == STORAGE_TYPE_SIM ? "SIM" : "device") +
                                           " phonebook");
}

Exit cmd_list(Session &s)
{
    Entries v;
    if (int rc = s.read_all(s.args().type, &v); rc != PB_RCODE_OK)
        return s.fail(rc, "list");
    if (s.args().json)
        std::cout << "{\"ok\":true,\"phonebook\":\"" << s.book() << "\",\"count\":" << v.size()
                  << ",\"entries\":" << json_entries(v) << "}\n";
    else
        print_table(std::cout, s.args().type, v);
    return EXIT_OK;
}

Exit cmd_show(Session &s)
{
    Entries v;
    if (int rc = s.read_all(s.args().type, &v); rc != PB_RCODE_OK)
        return s.fail(rc, "show");
    const pb_flash_info *e = find_entry(v, s.args().indexes[0]);
    if (!e)
        return not_found(s, s.args().indexes[0]);
    print_entry(s, nullptr, *e);
    return EXIT_OK;
}

Exit cmd_add(Session &s)
{
    const Args &a = s.args();
    Entries before;
    if (int rc = s.read_all(a.type, &before); rc != PB_RCODE_OK)
        return s.fail(rc, "add");
    pb_flash_info e;
    std::memset(&e, 0, sizeof e);
    set_field(e.name, a.name.value_or(""));
    set_field(e.num, a.number.value_or(""));
    set_field(e.email, a.email.value_or(""));
    if (int rc = s.write(SIM_PB_HANDLE_TYPE_ADD, &e); rc != PB_RCODE_OK)
        return s.fail(rc, "add");

    // The service answers with the SIM record only; find the new entry's
    // index in the phonebook as it is now: the last one that matches.
    Entries after;
    s.read_all(a.type, &after);
    for (auto it = after.rbegin(); it != after.rend(); ++it) {
        bool same = std::strcmp(it->name, e.name) == 0 && std::strcmp(it->num, e.num) == 0 &&
                    std::strcmp(it->email, e.email) == 0;
        if (same && (a.type != STORAGE_TYPE_SIM || it->sim_index == e.sim_index)) {
            e = *it;
            break;
        }
    }
    print_entry(s, "Added", e);
    return EXIT_OK;
}

Exit cmd_edit(Session &s)
{
    const Args &a = s.args();
    const int index = a.indexes[0];
    Entries v;
    if (int rc = s.read_all(a.type, &v); rc != PB_RCODE_OK)
        return s.fail(rc, "edit");
    const pb_flash_info *old = find_entry(v, index);
    if (!old)
        return not_found(s, index);
    pb_flash_info e = *old;
    if (a.name)
        set_field(e.name, *a.name);
    if (a.number)
        set_field(e.num, *a.number);
    if (a.email)
        set_field(e.email, *a.email);
    const pb_flash_info was = *old;
    if (int rc = s.write(SIM_PB_HANDLE_TYPE_EDIT, &e, &was); rc != PB_RCODE_OK)
        return s.fail(rc, "edit " + std::to_string(index));
    Entries after;
    if (s.read_all(a.type, &after) == PB_RCODE_OK && find_entry(after, static_cast<int>(e.index)))
        e = *find_entry(after, static_cast<int>(e.index));
    print_entry(s, "Changed", e);
    return EXIT_OK;
}

Exit cmd_delete(Session &s)
{
    const Args &a = s.args();
    Entries v;
    if (int rc = s.read_all(a.type, &v); rc != PB_RCODE_OK)
        return s.fail(rc, "delete");
    std::vector<int> present, missing;
    for (int i : a.indexes) {
        bool seen = std::find(present.begin(), present.end(), i) != present.end() ||
                    std::find(missing.begin(), missing.end(), i) != missing.end();
        if (!seen)
            (find_entry(v, i) ? present : missing).push_back(i);
    }
    if (a.indexes.size() == 1 && !missing.empty())
        return not_found(s, missing[0]);

    int rc = PB_RCODE_OK;
    if (a.indexes.size() == 1) {
        const pb_flash_info was = *find_entry(v, present[0]);
        pb_flash_info e = was;
        rc = s.write(SIM_PB_HANDLE_TYPE_DEL, &e, &was);
        present[0] = static_cast<int>(e.index);
    } else if (!present.empty()) {
        Entries targets;
        for (int i : present)
            targets.push_back(*find_entry(v, i));
        rc = s.del_any(targets);
    }
    if (rc != PB_RCODE_OK)
        return s.fail(rc, "delete");

    // Several at once: the service skips what it cannot delete, so look.
    std::vector<int> deleted, kept;
    Entries after;
    if (int r = s.read_all(a.type, &after); r != PB_RCODE_OK)
        return s.fail(r, "delete");
    for (int i : present)
        (find_entry(after, i) ? kept : deleted).push_back(i);
    if (!kept.empty())
        return s.fail_text(EXIT_FAILED, "the phonebook kept index " + join(kept) +
                                            " (deleted: " + (deleted.empty() ? "none" : join(deleted)) + ")");
    Exit status = missing.empty() ? EXIT_OK : EXIT_NOT_FOUND;
    if (a.json) {
        std::cout << "{\"ok\":" << (status == EXIT_OK ? "true" : "false") << ",\"phonebook\":\"" << s.book()
                  << "\",\"deleted\":" << json_ints(deleted) << ",\"not_found\":" << json_ints(missing)
                  << "}\n";
    } else {
        std::cout << "Deleted " << deleted.size() << (deleted.size() == 1 ? " entry" : " entries");
        if (!deleted.empty())
            std::cout << " (index " << join(deleted) << ")";
        std::cout << "\n";
        if (!missing.empty())
            std::cerr << "pbcli: no entry at index " << join(missing) << "\n";
    }
    return status;
}

Exit cmd_delete_all(Session &s)
{
    Entries v;
    if (int rc = s.read_all(s.args().type, &v); rc != PB_RCODE_OK)
        return s.fail(rc, "delete-all");
    pb_flash_info e;
    std::memset(&e, 0, sizeof e);
    if (int rc = s.write(SIM_PB_HANDLE_TYPE_DEL_ALL, &e); rc != PB_RCODE_OK)
        return s.fail(rc, "delete-all");
    if (s.args().json)
        std::cout << "{\"ok\":true,\"phonebook\":\"" << s.book() << "\",\"deleted\":" << v.size() << "}\n";
    else
        std::cout << "Deleted all " << v.size() << " entries of the "
                  << (s.args().type == STORAGE_TYPE_SIM ? "SIM" : "device") << " phonebook\n";
    return EXIT_OK;
}

Exit cmd_import(Session &s)
{
    const std::string &file = s.args().file;
    Entries before, after;
    if (int rc = s.read_all(STORAGE_TYPE_FLASH, &before); rc != PB_RCODE_OK)
        return s.fail(rc, "import");
    int rc = simlib_pb_import(file.c_str(), STORAGE_TYPE_FLASH);
    if (rc == PB_RCODE_INVALID_ERR)
        return s.fail_text(EXIT_FAILED, "import: cannot read '" + file + "' (not a readable regular file)");
    if (rc != PB_RCODE_OK)
        return s.fail(rc, "import");
    s.read_all(STORAGE_TYPE_FLASH, &after);
    const long added = static_cast<long>(after.size()) - static_cast<long>(before.size());
    if (s.args().json)
        std::cout << "{\"ok\":true,\"phonebook\":\"device\",\"imported\":" << added
                  << ",\"count\":" << after.size() << "}\n";
    else
        std::cout << "Imported " << added << (added == 1 ? " entry" : " entries") << " from " << file
                  << " into the device phonebook (" << after.size() << " entries now)\n";
    return EXIT_OK;
}

Exit cmd_export(Session &s)
{
    const Args &a = s.args();
    Entries v;
    if (int rc = s.read_all(a.type, &v); rc != PB_RCODE_OK)
        return s.fail(rc, "export");
    std::vector<int> idx = a.indexes, missing;
    if (idx.empty())
        for (const auto &e : v)
            idx.push_back(static_cast<int>(e.index));
    for (int i : idx)
        if (!find_entry(v, i))
            missing.push_back(i);
    std::vector<zp_int32> arr(idx.begin(), idx.end());
    int rc = simlib_pb_export(a.file.c_str(), a.type, arr.data(), static_cast<int>(arr.size()));
    if (rc != PB_RCODE_OK)
        return s.fail_text(rc == PB_RCODE_ERROR ? EXIT_FAILED : rcode_exit(rc),
                           "export: cannot write '" + a.file + "'");
    const size_t written = idx.size() - missing.size();
    Exit status = missing.empty() ? EXIT_OK : EXIT_NOT_FOUND;
    if (a.json) {
        std::cout << "{\"ok\":" << (status == EXIT_OK ? "true" : "false") << ",\"phonebook\":\"" << s.book()
                  << "\",\"file\":" << json_string(a.file) << ",\"exported\":" << written
                  << ",\"not_found\":" << json_ints(missing) << "}\n";
    } else {
        std::cout << "Exported " << written << (written == 1 ? " entry" : " entries") << " of the "
                  << (a.type == STORAGE_TYPE_SIM ? "SIM" : "device") << " phonebook to " << a.file << "\n";
        if (!missing.empty())
            std::cerr << "pbcli: no entry at index " << join(missing) << "\n";
    }
    return status;
}

}  // namespace

Exit run_command(const Args &args)
{
    Session s(args);
    switch (args.cmd) {
    case Cmd::HELP: std::cout << usage_text(); return EXIT_OK;
    case Cmd::LIST: return cmd_list(s);
    case Cmd::SHOW: return cmd_show(s);
    case Cmd::ADD: return cmd_add(s);
    case Cmd::EDIT: return cmd_edit(s);
    case Cmd::DELETE: return cmd_delete(s);
    case Cmd::DELETE_ALL: return cmd_delete_all(s);
    case Cmd::IMPORT: return cmd_import(s);
    case Cmd::EXPORT: return cmd_export(s);
    }
    return EXIT_USAGE;
}

}  // namespace pbcli
