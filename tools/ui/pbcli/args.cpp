// pbcli's command line: the commands from one table with their words and
// arity, options anywhere by getopt_long's rules, and every argument
// checked (indexes, phonebooks, fields read as they will be stored) before
// a command runs, so that nothing malformed reaches the service.
#include "args.h"

#include <getopt.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "entries.h"
#include "words.h"

namespace pbcli {

namespace {

struct CmdInfo {
    const char *name;
    Cmd cmd;
    bool takes_phonebook;
};

const CmdInfo kCommands[] = {
    {"help", Cmd::HELP, false},
    {"list", Cmd::LIST, true},
    {"show", Cmd::SHOW, true},
    {"add", Cmd::ADD, true},
    {"edit", Cmd::EDIT, true},
    {"delete", Cmd::DELETE, true},
    {"delete-all", Cmd::DELETE_ALL, true},
    {"import", Cmd::IMPORT, false},
    {"export", Cmd::EXPORT, true},
    {"copy", Cmd::COPY, true},
    {"check", Cmd::CHECK, true},
    {"find", Cmd::FIND, false},
    {"who", Cmd::WHO, false},
    {"duplicates", Cmd::DUPLICATES, false},
    {"merge", Cmd::MERGE, false},
};

// Long options without a short spelling.
constexpr int kOptCut = 0x100;
constexpr int kOptExpectName = 0x101;
constexpr int kOptExpectNumber = 0x102;
constexpr int kOptCountry = 0x103;
constexpr int kOptKeep = 0x104;

const option kOptions[] = {
    {"json", no_argument, nullptr, 'j'},
    {"wait", required_argument, nullptr, 'w'},
    {"name", required_argument, nullptr, 'n'},
    {"number", required_argument, nullptr, 'N'},
    {"email", required_argument, nullptr, 'e'},
    {"yes", no_argument, nullptr, 'y'},
    {"format", required_argument, nullptr, 'f'},
    {"verbose", no_argument, nullptr, 'v'},
    {"cut", no_argument, nullptr, kOptCut},
    {"expect-name", required_argument, nullptr, kOptExpectName},
    {"expect-number", required_argument, nullptr, kOptExpectNumber},
    {"country", required_argument, nullptr, kOptCountry},
    {"keep", required_argument, nullptr, kOptKeep},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

// '-': the words that are no options come back in their order as option 1,
// so options stand anywhere, before or after the command's words, and argv
// is never permuted. ':': a missing value comes back as ':', apart from an
// unknown option ('?'), and getopt_long prints nothing of its own.
constexpr char kShortOptions[] = "-:jw:n:N:e:yf:vh";

// An option's long name, or null for a character no option has.
const char *long_name(int val)
{
    for (const option *o = kOptions; o->name != nullptr; ++o)
        if (o->val == val)
            return o->name;
    return nullptr;
}

// What is wrong with the word getopt_long refused with '?'. optopt is 0
// for a long option it does not know (or that starts more than one), the
// option for a long one given a value it does not take, else the unknown
// short option.
std::string refused_option(int opt, const char *word)
{
    if (opt == 0)
        return std::string("unknown or ambiguous option '") + word + "'";
    if (const char *name = long_name(opt))
        return std::string("--") + name + " takes no value";
    return std::string("unknown option '-") + static_cast<char>(opt) + "'";
}

bool parse_phonebook(const std::string &word, storage_type_t *out)
{
    // "flash", the module's own word for the device phonebook, is taken too.
    *out = word == "flash" ? STORAGE_TYPE_FLASH : pbui::storage_named(word);
    return *out != STORAGE_TYPE_UNKNOWN;
}

// Seconds, a fraction allowed, up to an hour.
bool parse_seconds(const char *s, double *out)
{
    char *end = nullptr;
    errno = 0;
    const double v = std::strtod(s, &end);
    if (end == s || *end != '\0' || errno != 0 || !(v >= 0 && v <= 3600))
        return false;
    *out = v;
    return true;
}

}  // namespace

const char *command_word(Cmd cmd)
{
    for (const auto &c : kCommands)
        if (c.cmd == cmd)
            return c.name;
    return "?";
}

std::string parse_args(int argc, const char *const *argv, Args *args)
{
    *args = Args();
    std::vector<std::string> pos;
    // getopt_long keeps its place in globals; 0 makes it start afresh. In
    // '-' mode it only reads argv, so the const_cast is safe.
    optind = 0;
    char *const *av = const_cast<char *const *>(argv);
    for (int opt; (opt = getopt_long(argc, av, kShortOptions, kOptions, nullptr)) != -1;) {
        switch (opt) {
        case 1: pos.emplace_back(optarg); break;
        case 'h': args->cmd = Cmd::HELP; return "";
        case 'j': args->json = true; break;
        case 'y': args->yes = true; break;
        case 'v': args->verbose = true; break;
        case kOptCut: args->cut = true; break;
        case kOptExpectName: args->expect_name = optarg; break;
        case kOptExpectNumber: args->expect_number = optarg; break;
        case kOptKeep: {
            const std::string word = optarg;
            const size_t colon = word.find(':');
            storage_type_t type;
            int index;
            if (colon == std::string::npos || !parse_phonebook(word.substr(0, colon), &type) ||
                !pbui::parse_index(word.substr(colon + 1), &index))
                return "--keep takes PHONEBOOK:INDEX, such as sim:6 or device:2, not '" + word + "'";
            args->keep.emplace_back(type, index);
            break;
        }
        case kOptCountry:
            if (std::string why = pbui::country_refusal(optarg); !why.empty())
                return "--country: " + why;
            args->country = optarg;
            break;
        case 'f': {
            pbui::Format f;
            if (!pbui::parse_format(optarg, &f))
                return std::string("--format takes vcard, csv or module, not '") + optarg + "'";
            args->format = f;
            break;
        }
        case 'w':
            if (!parse_seconds(optarg, &args->wait_seconds))
                return std::string("--wait takes seconds from 0 to 3600, not '") + optarg + "'";
            break;
        case 'n': args->name = optarg; break;
        case 'N': args->number = optarg; break;
        case 'e': args->email = optarg; break;
        case ':': return std::string("--") + long_name(optopt) + " needs a value";
        default: return refused_option(optopt, argv[optind - 1]);
        }
    }
    for (; optind < argc; ++optind)  // the words after "--"
        pos.emplace_back(argv[optind]);

    if (pos.empty())
        return "no command given";
    const CmdInfo *info = nullptr;
    for (const auto &c : kCommands)
        if (pos[0] == c.name)
            info = &c;
    if (!info)
        return "unknown command '" + pos[0] + "'";
    args->cmd = info->cmd;
    size_t next = 1;
    if (info->takes_phonebook) {
        if (pos.size() < 2)
            return pos[0] + ": name the phonebook, sim or device";
        if (!parse_phonebook(pos[1], &args->type))
            return "unknown phonebook '" + pos[1] + "': use sim or device";
        next = 2;
    }
    if (args->cmd == Cmd::COPY) {
        if (pos.size() < 3 || !parse_phonebook(pos[2], &args->to) || args->to == args->type)
            return "copy: name the phonebook to copy into: copy sim device, or copy device sim";
        next = 3;
    }
    if (args->cmd == Cmd::FIND) {
        if (pos.size() <= next)
            return "find: give the text to look for";
        args->text = pos[next++];
    }
    if (args->cmd == Cmd::WHO) {
        if (pos.size() <= next)
            return "who: give the number to look up";
        args->text = pos[next++];
        std::string tidied;
        if (std::string why = pbui::tidy_number(args->text, &tidied); !why.empty() || tidied.empty())
            return "who: number '" + args->text + "': " + (why.empty() ? "no digits" : why);
    }
    if ((args->cmd == Cmd::DUPLICATES || args->cmd == Cmd::MERGE) && pos.size() > next &&
        pos[next] != "all") {
        if (!parse_phonebook(pos[next], &args->type))
            return pos[0] + ": name the phonebook, sim, device or all (the default)";
        ++next;
    } else if (args->cmd == Cmd::DUPLICATES || args->cmd == Cmd::MERGE) {
        next += pos.size() > next;  // "all"
    }
    if (args->cmd == Cmd::IMPORT || args->cmd == Cmd::EXPORT) {
        if (pos.size() <= next)
            return pos[0] + ": name the text file";
        args->file = pos[next++];
    }
    for (; next < pos.size(); ++next) {
        int idx;
        if (!pbui::parse_index(pos[next], &idx))
            return pbui::not_an_index(pos[next]);
        args->indexes.push_back(idx);
    }

    const size_t n = args->indexes.size();
    const bool has_fields = args->name || args->number || args->email;
    switch (args->cmd) {
    case Cmd::HELP: return "";
    case Cmd::LIST:
    case Cmd::DELETE_ALL:
    case Cmd::IMPORT:
    case Cmd::FIND:
    case Cmd::WHO:
    case Cmd::DUPLICATES:
    case Cmd::MERGE:
        if (n != 0)
            return pos[0] + " takes no index";
        if (args->cmd == Cmd::DELETE_ALL && !args->yes)
            return "delete-all removes every entry: confirm with --yes";
        if (args->cmd == Cmd::MERGE && !args->yes)
            return "merge deletes every entry of a group but the one it keeps: see them with duplicates, "
                   "then confirm with --yes";
        break;
    case Cmd::SHOW:
    case Cmd::EDIT:
        if (n != 1)
            return pos[0] + " takes exactly one index";
        if (args->cmd == Cmd::EDIT && !has_fields)
            return "edit: give at least one of --name, --number, --email";
        break;
    case Cmd::ADD:
        if (n != 0)
            return "add takes no index: the phonebook chooses it";
        if (!args->name && !args->number)
            return "add: give --name or --number";
        break;
    case Cmd::DELETE:
        if (n == 0)
            return "delete: give one or more indexes";
        break;
    case Cmd::CHECK:
        if (n != 0 || !has_fields)
            return "check: give --name, --number or --email, and no index";
        if (args->format || args->cut)
            return "check takes no --format or --cut";
        // The fields are the check's to judge, not refusals of the command line.
        return "";
    case Cmd::EXPORT:
    case Cmd::COPY: break;
    }
    if (has_fields && args->cmd != Cmd::ADD && args->cmd != Cmd::EDIT)
        return pos[0] + " takes no --name, --number or --email";
    if ((args->expect_name || args->expect_number) &&
        !(args->cmd == Cmd::EDIT || (args->cmd == Cmd::DELETE && n == 1)))
        return "--expect-name and --expect-number are for edit, or delete of one index";
    if (args->country && args->cmd != Cmd::WHO && args->cmd != Cmd::DUPLICATES && args->cmd != Cmd::MERGE)
        return pos[0] + " takes no --country";
    if (!args->keep.empty() && args->cmd != Cmd::MERGE)
        return pos[0] + " takes no --keep";
    if (args->format && args->cmd != Cmd::IMPORT && args->cmd != Cmd::EXPORT)
        return pos[0] + " takes no --format";
    if (args->cut && !(args->cmd == Cmd::COPY && args->to == STORAGE_TYPE_SIM))
        return "--cut is for copy device sim only";
    if (args->number) {
        std::string tidied;
        if (std::string why = pbui::tidy_number(*args->number, &tidied); !why.empty())
            return "number '" + *args->number + "': " + why;
        args->number = tidied;
    }
    for (auto [what, v] : {std::pair{"name", &args->name},
                           {"number", &args->number},
                           {"e-mail", &args->email},
                           {"expected name", &args->expect_name},
                           {"expected number", &args->expect_number}})
        if (std::string err = *v ? pbui::field_refusal(what, **v) : ""; !err.empty())
            return err;
    return "";
}

const char *usage_text()
{
    return R"(Usage: pbcli [OPTIONS] COMMAND [ARGUMENTS]

Reads and changes the SIM and device phonebooks through the phonebook
service (pb_host). PHONEBOOK is "sim" or "device". Indexes are the entries'
places in their phonebook, 1 to 1000, as "list" shows them.

Commands:
  list PHONEBOOK                   list every entry
  show PHONEBOOK INDEX             show one entry
  add PHONEBOOK [--name NAME] [--number NUMBER] [--email EMAIL]
                                   add an entry (--name or --number needed);
                                   prints the new entry with its index
  edit PHONEBOOK INDEX [--name NAME] [--number NUMBER] [--email EMAIL]
                                   change the fields given, keep the others
  delete PHONEBOOK INDEX...        delete one entry, or several at once
  delete-all PHONEBOOK --yes       delete every entry of the phonebook
  import FILE                      add the contacts of a file (vCard, CSV or the
                                   module's own lines) to the device phonebook
                                   and report what became of each
  export PHONEBOOK FILE [INDEX...] write entries to a file, all of them when no
                                   index is given; the file is replaced whole
                                   and flushed to the disk; FILE - is
                                   standard output (import - reads standard
                                   input)
  copy sim device [INDEX...]       copy entries (all when no index is given)
  copy device sim [INDEX...]       from one phonebook into the other
  find TEXT                        the entries of both phonebooks whose name
                                   holds TEXT in any case (every script with
                                   case) or whose number holds its digits,
                                   separators ignored
  who [--country CC] NUMBER        the entry a caller's number belongs to, in
                                   either phonebook (the rule is below);
                                   exit status 5 when none
  duplicates [sim|device|all] [--country CC]
                                   groups of entries with the same number (by
                                   the rule of who), of one phonebook or both;
                                   the one merge keeps first
  merge [sim|device|all] [--country CC] [--keep PHONEBOOK:INDEX]... --yes
                                   keep one entry of each group (the one
                                   --keep names, else an e-mail, then the
                                   longest name, then the device's, then the
                                   lowest index) and delete the others
  check PHONEBOOK [--name NAME] [--number NUMBER] [--email EMAIL]
                                   how the fields would be stored and whether
                                   they fit: bytes of 50, and on the SIM the
                                   name's octets on the card (GSM 7-bit, or
                                   UCS-2) and the number's digits
  help                             show this text

Options:
  -j, --json          print results (and failures) as JSON on standard output
  -w, --wait SECONDS  how long to wait while the SIM phonebook is being read
                      (default 30; 0 fails at once)
  -n, --name NAME     name, UTF-8, at most 50 bytes
  -N, --number NUMBER number: digits * # P W T, + in front for international;
                      at most 50 bytes
  -e, --email EMAIL   e-mail address, at most 50 bytes
  -y, --yes           confirm delete-all and merge
  -f, --format FORMAT import and export: csv (a header row name,number,email;
                      address-book columns read), vcard (vCard 3.0 written;
                      2.1, 3.0 and 4.0 read) or module (the router's own
                      lines: a backup format, no header, no quoting; an entry
                      it cannot carry, such as a name with a comma, stops the
                      export). Export writes csv unless told; import tells
                      the format from the content.
  -v, --verbose       import, copy: a line for every contact
      --cut           copy device sim: cut a name the card cannot hold to fit
                      (at a whole character) instead of leaving it out
      --expect-name NAME, --expect-number NUMBER
                      edit, delete of one index: the entry as the script
                      saw it (as list prints it); the change is made only
                      if the entry at the index still holds it. Without
                      them pbcli sends the entry it finds at the index.
      --country CC    who, duplicates, merge: the home country (ISO 3166 two-letter code, DE,
                      FR, US, ...) whose national numbers are meant; without
                      it the router's, from the NV key pb_home_country
  -h, --help          show this text

Indexes move when entries are added or deleted, also by other users at the
same time. Every edit and delete therefore names the entry it means; when
the entry at the index holds something else by the time the change is made,
nothing is changed and pbcli follows the entry to its new index, or fails
with "the entry changed meanwhile" when it is gone.

Numbers are read as people write them: separators, labels (Tel:), a tel:
URI and a bracketed trunk 0 after the country code go, an extension (ext. 12,
x12, ,12) becomes P12; what is left must be digits * # P W T with + only in
front. A name that is taken by another number gets the kind of number or a
count after it, Anna (work) or Anna (2); the same name and number are not
added twice.

Two numbers are the same caller (who) when their international forms are
equal (00 and + alike); a national number is made international with the
home country; one that cannot be is compared by its last digits, at least
7. Pauses, waits and an extension after the number do not count; short and
service codes (112, *100#) match only themselves. The device phonebook's
entry comes before the SIM's, the same number before the same last digits,
then the lowest index.

The module's own lines have no header and no quoting: export writes
name,number,email, import reads number,name,email (and name first when the
first field is no number). Keep them as a backup (.txt); give address
books CSV or vCard.

Exit status:
  0  done
  1  the phonebook refused or failed the operation (message says why)
  2  bad command line
  3  the phonebook service could not be reached (is pb_host running?)
  4  the SIM phonebook was still being read when the wait ran out
  5  no entry at the index given

Environment: ZP_IPC_DIR names the folder of the service's socket;
ZP_LOG_LEVEL (default 2 here: errors only) and ZP_LOG_FILE control
the library's log.
)"
#ifdef PB_DATA_DIR_FROM_ENV
           // Only a host build reads it; the router's folder is fixed.
           "PB_DATA_DIR names the folder of the phonebook files (default\n" PB_DATA_DIR
           "); pb_host, pbweb and pbcli of one set-up need the same.\n"
#endif
        ;
}

}  // namespace pbcli
