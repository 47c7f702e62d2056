/*
 * contacts.h - contact exchange for the user interfaces (pbcli, the web page):
 * vCard and CSV text to and from phonebook entries, dialling numbers tidied
 * and checked, the SIM card's limits, and the import into the device
 * phonebook and the copy between the phonebooks, each with a report of what
 * happened to every contact.
 *
 * Text. Parsers and formatters work on memory buffers and do no I/O; every
 * text is UTF-8 (input that is not valid UTF-8 is read as Latin-1). Lengths
 * are in bytes unless a name says otherwise. Contacts come out as read, not
 * cut and not checked: the import decides and reports.
 *
 * Phonebooks. import_to_device() loads the device phonebook file, adds to a
 * working copy and saves it once, holding the exclusive lock on the
 * phonebook file's lock file for the whole cycle, so that no change of the
 * service or of another process made meanwhile is overwritten.
 * copy_to_sim() sends one add request per entry to the phonebook service
 * and blocks the calling thread for each answer. Nothing here keeps state
 * between calls; the functions may be called from any thread, one import or
 * copy at a time per process (the client API's read buffer is per process).
 */
#ifndef PBUI_CONTACTS_H
#define PBUI_CONTACTS_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zpt_ui_pb_api.h"

namespace pbui {

/* One contact as read from a file: one dialling number, at most one
 * e-mail. A card with several numbers gives one contact per number. */
struct Contact {
    std::string name;
    std::string number; /* as written in the file, not tidied */
    std::string email;
    std::string label;   /* kind of number ("work", "mobile"...), may be empty */
    int source = 0;      /* where it came from: the line of the file where it
                          * starts (from 1), or its index in the phonebook
                          * it is copied from */
    std::string problem; /* set when the text could not be read as a contact */
};

enum class Format { VCARD, CSV, MODULE };

/* "vcard", "csv" or "module". False for anything else. */
bool parse_format(std::string_view word, Format *out);
const char *format_name(Format f);
/* What an export is offered as unless told otherwise: CSV, which every
 * address book reads and which carries every name. */
constexpr Format DEFAULT_EXPORT = Format::CSV;
/* A file of the format: its extension ("vcf", "csv", "txt" for the
 * module's lines, a backup format) and its media type. */
const char *format_extension(Format f);
const char *format_media_type(Format f);

/* vCard when the text (after a byte-order mark and blank lines) begins with
 * BEGIN:VCARD; CSV when its first line is a header naming a name, number or
 * e-mail column; else the module's own line format. */
Format detect_format(std::string_view text);

/* vCard 2.1, 3.0 and 4.0: folded lines, quoted-printable values, FN or
 * else N, one contact per TEL, the first EMAIL. */
std::vector<Contact> parse_vcard(std::string_view text);

/* CSV with a header row (columns in any order, common address-book column
 * names); without one, the module's own "number,name,email" lines. */
std::vector<Contact> parse_csv(std::string_view text);

/* The module's own lines, as simlib_pb_import reads them; a line whose
 * first field is no number but whose second is, is read name first (the
 * order simlib_pb_export writes). */
std::vector<Contact> parse_module(std::string_view text);

std::vector<Contact> parse(std::string_view text, Format f);

/* vCard 3.0 (FN, N, TEL, EMAIL; CRLF; lines folded at 75 octets). */
std::string format_vcard(const std::vector<pb_flash_info> &entries);
/* CSV with the header "name,number,email", quoted where needed, CRLF. */
std::string format_csv(const std::vector<pb_flash_info> &entries);
/* The module's own "name,number,email" lines, as simlib_pb_export writes:
 * a backup format, with no quoting. */
std::string format_module(const std::vector<pb_flash_info> &entries);
/* Why those lines cannot carry the entries so that they read back the same
 * (a comma or a line break in a name, a name that reads as a number or
 * begins with a byte-order mark, no name or no number, a blank in the
 * e-mail), naming each entry ("...;
 * entry 3 (\"Smith, John\"): its name holds a comma or a line break"), or
 * "" when they can. */
std::string module_lines_refusal(const std::vector<pb_flash_info> &entries);
std::string format(const std::vector<pb_flash_info> &entries, Format f);

/* Reads a dialling number as people write it, into the characters a phone
 * dials: separators (spaces of every kind, - and the dashes, '.', '/',
 * brackets) dropped; full-width digits read as digits; "++" read as "+"; a
 * label in front ("Tel:", "Phone:", "Mobile:"...) or a tel: URI's scheme
 * and parameters dropped; a trunk prefix 0 in brackets after a country code
 * dropped ("+49 (0)30" is "+4930", "+61 (02)" is "+612"; not where the 0 is
 * dialled, as in Italy); an extension ("ext. 12", "x12", ";ext=12", ",12")
 * written as a pause and its digits ("P12"); p, w, t upper case. A leading
 * 00 and a national number are kept as written. Letters of a vanity number
 * are refused, as is every other character, with its place (from 1).
 * Returns "" with the number in *out (at most 50 characters), or why it
 * cannot be stored (*out then holds nothing useful). An empty number is no
 * error. */
std::string tidy_number(std::string_view in, std::string *out);

/* Why a number cannot be stored, as a word every user interface can put in
 * its own language: the refusals of tidy_number, and a number with more
 * digits than the card holds (check_fields). */
enum class NumberProblem {
    NONE,
    NOT_UTF8,          /* the text is not valid UTF-8 */
    BAD_CHAR,          /* a character no number holds: c, place */
    PLUS_INSIDE,       /* a '+' after the start: c, place */
    PLUS_ALONE,        /* a '+' and no digits */
    LETTERS,           /* a word that is no pause or extension: its first letter c, place */
    STARTS_WITH_PAUSE, /* c, place */
    STARTS_WITH_WAIT,  /* c, place */
    EXTENSION_TWICE,   /* the second extension's first character c, place */
    EXTENSION_FIRST,   /* an extension before any digit: c, place */
    EXTENSION_EMPTY,   /* an extension without digits */
    TOO_LONG,          /* count characters; max fit the phonebook's field */
    CARD_DIGITS,       /* count digits; max fit the card */
};
struct NumberRefusal {
    NumberProblem problem = NumberProblem::NONE;
    char32_t c = 0;   /* the character refused */
    size_t place = 0; /* its place in the number as written, from 1; 0: none */
    size_t count = 0; /* TOO_LONG, CARD_DIGITS: characters or digits there are */
    size_t max = 0;   /* ... and how many fit */
};
/* tidy_number, with the refusal as a problem and what it names. */
NumberRefusal tidy_number_refusal(std::string_view in, std::string *out);
/* The problem's word ("bad_char", "too_long"...), "" for NONE. */
const char *number_problem_word(NumberProblem p);
/* The refusal as the English sentence pbcli prints and pbweb answers with
 * ("'x' at place 3 cannot be part of a number ..."), "" for NONE. */
std::string number_refusal_text(const NumberRefusal &r);

/* A home country: ISO 3166 alpha-2 code ("DE"), calling code ("49") and
 * national trunk prefix ("0"; "" where the country has none). */
struct Country {
    const char *iso;
    const char *calling_code;
    const char *trunk;
};

/* The country of an ISO 3166 alpha-2 code, in either case, from the
 * library's table (static storage), or nullptr when the table lacks it. */
const Country *find_country(std::string_view iso);
/* Why a code names no country of the table ("" when it does), for the
 * user interfaces' --country and ?country=. */
std::string country_refusal(std::string_view iso);
/* The router's home country, from the NV key "pb_home_country", or nullptr
 * when it is unset or not in the table. Reads the NV store. */
const Country *router_country();

/* How two dialling numbers compare: the same international form (or the
 * same service code or short number), the same trailing digits, or not the
 * same subscriber. */
enum class NumberMatch { NONE, TRAILING, EQUAL };

/* Whether two numbers, written in any form tidy_number reads, reach the
 * same subscriber. Pauses, waits and an extension after the number are
 * dropped and a leading 00 is read as +. A national number is made
 * international with home (nullptr: not known) when it begins with home's
 * trunk prefix. Two international forms are EQUAL when their digits are,
 * and otherwise NONE. When one stays national, the two are TRAILING when
 * their last digits agree over the shorter one's length, leading zeros of a
 * national number not counted, at least 7 and at most 10 digits. A number
 * with * or #, or of fewer than 7 digits, matches only itself. A number
 * tidy_number refuses, or an empty one, matches nothing. */
NumberMatch match_numbers(std::string_view a, std::string_view b, const Country *home);

/* A number read once for many comparisons (a phonebook's numbers against
 * a caller's): its form and its digits, without what follows the number; an
 * international number's from its country code on, with no home country
 * applied yet. match_dialled(read_dialled(a), read_dialled(b), home) is
 * match_numbers(a, b, home), and allocates nothing. */
enum class NumberForm { NONE, SERVICE, SHORT, NATIONAL, INTERNATIONAL };
struct DialledNumber {
    NumberForm form = NumberForm::NONE;
    std::string digits;
};
DialledNumber read_dialled(std::string_view written);
NumberMatch match_dialled(const DialledNumber &a, const DialledNumber &b, const Country *home);

/* The longest head of text that fits in max_bytes, cut at a whole UTF-8
 * character. */
std::string cut_text(std::string_view text, size_t max_bytes);

/* What the card takes, as it reported when it was read: name octets of a
 * record's alpha identifier and digits of a number. */
struct SimLimits {
    int name_octets = 0;
    int number_digits = 0;
};

/* The limits the service stored when it last read the card. False when it
 * has not read one yet. */
bool read_sim_limits(SimLimits *out);
/* The card's number of records as the service stored it; 0 while unknown. */
int read_sim_records();

/* How a name is stored in a card record's alpha identifier: in the GSM
 * 7-bit default alphabet when every character has a GSM code, one octet a
 * character and two for one of its extension table (^ { } \\ [ ~ ] | and
 * the euro sign); else in the UCS-2 form 0x80, 1 + 2 octets a character.
 * The one rule for every user interface, the copy and the simulated card. */
enum class SimText { GSM7, UCS2, NONE /* a character outside the basic plane: not storable */ };
struct SimName {
    SimText encoding;
    int octets; /* -1 when NONE */
};
SimName sim_name(std::string_view name);
int sim_name_octets(std::string_view name); /* sim_name(name).octets */
const char *sim_text_name(SimText t);       /* "GSM 7-bit", "UCS-2", "none" */

/* Digits the number field of a card record holds, whatever the card says. */
constexpr int SIM_RECORD_DIGITS = 20;
/* The most digits a number may have on this card. */
int sim_max_digits(const SimLimits &limits);

/* Digits a number takes on the card; a leading '+' is not one of them. */
int sim_number_digits(std::string_view number);

/* What an entry's fields become in a phonebook and whether they fit: the
 * check behind the page's live counters and `pbcli check`. A field not
 * given is not checked. */
struct FieldsCheck {
    bool sim = false;          /* checked for the SIM phonebook */
    bool limits_known = false; /* the card's limits were read (SIM) */
    SimLimits limits;
    bool has_name = false, has_number = false, has_email = false;
    size_t name_bytes = 0;
    SimName name_card{SimText::GSM7, 0}; /* SIM only */
    bool name_fits = true;
    std::string number;           /* as it will be stored */
    NumberRefusal number_refusal; /* why it cannot be stored, else NONE */
    int number_digits = 0;        /* on the card (SIM only) */
    bool number_fits = true;
    size_t email_bytes = 0;
    bool email_fits = true;
};
/* limits: the card's, or null when not known (a name or number is then
 * checked against the 50-byte fields alone). */
FieldsCheck check_fields(storage_type_t type, const std::optional<std::string> &name,
                         const std::optional<std::string> &number, const std::optional<std::string> &email,
                         const SimLimits *limits);

/* Name, number and e-mail as a user gives them; a field not given is not
 * set (an edit keeps it). */
struct Fields {
    std::optional<std::string> name, number, email;
};
/* The check of the fields against the card's limits as the service last
 * read them (unknown before it has read the card). */
FieldsCheck check_fields(storage_type_t type, const Fields &f);

/* Search of a phonebook, the same for every user interface: an entry
 * matches when its name holds the text with case folded in every script
 * that has case (Latin, Greek, Cyrillic, Armenian, ...; "анна" finds "Анна
 * Каренина", "σ" finds "Σ" and "ς"), or when the text reads as a number and
 * the entry's number holds it with the separators of both ignored ("030
 * 12-34" finds 0301234...), or when the text is a whole number of at
 * least 7 digits that match_numbers finds the same as the entry's, with no
 * home country ("0049 171 1234567" and "0171 1234567" find +491711234567).
 * An empty text matches every entry. Made once per search; matches() may
 * then be called from any thread. */
class Search {
public:
    explicit Search(std::string_view text);
    bool matches(const pb_flash_info &e) const;

private:
    bool empty_;
    std::u32string text_;   /* folded */
    std::string number_;    /* the text as a number, "" when it is none */
    DialledNumber dialled_; /* the text as a whole number, for the same number */
};

/* What became of one contact. */
enum class Outcome {
    ADDED,           /* at `index` */
    NOT_READ,        /* the text was no contact: `detail` */
    NO_NUMBER,       /* nothing to dial */
    BAD_NUMBER,      /* characters a phonebook cannot hold: `detail` */
    DUPLICATE,       /* the same name and number are at `index` already */
    NAME_TOO_LONG,   /* the card cannot hold the name (copy to the SIM) */
    NUMBER_TOO_LONG, /* the card cannot hold the number (copy to the SIM) */
    FULL,            /* no free place left */
    FAILED,          /* the phonebook refused or failed: `rcode` */
};

struct ReportLine {
    Contact from;          /* as read */
    pb_flash_info entry{}; /* as stored, or as it would have been */
    Outcome outcome = Outcome::FAILED;
    int index = 0;           /* ADDED: where; DUPLICATE: the entry already there */
    int rcode = PB_RCODE_OK; /* FAILED: the phonebook's result code */
    bool renamed = false;    /* the name was taken by another number */
    bool name_cut = false;   /* cut at a whole character to fit */
    bool email_cut = false;
    bool email_dropped = false; /* the SIM holds no e-mail */
    std::string detail;         /* NOT_READ, BAD_NUMBER, NAME_TOO_LONG, NUMBER_TOO_LONG: why */
};

struct Report {
    std::vector<ReportLine> lines;
    int count(Outcome o) const;
};

/* One word for an outcome ("added", "duplicate", ...), for scripts. */
const char *outcome_word(Outcome o);
/* The line in words: "added at index 4 as \"Anna (2)\": the name was taken",
 * "not added: the same name and number are at index 2". */
std::string outcome_text(const ReportLine &line);

/* Adds the contacts to the device phonebook, in order, under the lock of
 * its file. Returns PB_RCODE_OK with one report line per contact;
 * PB_RCODE_READ_ERR when the phonebook file could not be locked or read
 * (the report is then empty); PB_RCODE_WRITE_ERR when it could not be
 * saved (nothing was added: the lines that would have been say FAILED). */
int import_to_device(const std::vector<Contact> &contacts, Report *report);

/* How to copy into the SIM phonebook. */
struct SimCopy {
    SimLimits limits;
    bool cut = false; /* cut a name that is too long instead of skipping it */
    /* The SIM phonebook as it is now (index order), for names and duplicates. */
    std::vector<pb_flash_info> present;
    /* Sends one add request and gives its result code; fills sim_index.
     * Default: simlib_pb_write_handler(STORAGE_TYPE_SIM, ADD, entry). */
    std::function<int(pb_flash_info *entry)> add;
};

/* Adds the contacts to the SIM phonebook through the service, one entry at
 * a time; a card that is full ends the copy (the rest are reported FULL).
 * Indexes of the added entries are looked up afterwards by their SIM
 * records. Returns PB_RCODE_OK; the report says what became of each. */
int copy_to_sim(const std::vector<Contact> &contacts, const SimCopy &how, Report *report);

/* Phonebook entries as contacts, for a copy between the phonebooks. */
std::vector<Contact> contacts_of(const std::vector<pb_flash_info> &entries);

}  // namespace pbui

#endif /* PBUI_CONTACTS_H */
