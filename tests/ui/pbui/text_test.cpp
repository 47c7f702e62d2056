// Contact files read and written: sample files in the shapes phones,
// desktop programs and address books write, the examples of RFC 2426 and
// RFC 6350, odd but valid texts of every format, round trips of every
// format, and the SIM name rule.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "contacts.h"
#include "harness.h"

namespace {

// Contacts as "name|number|email|label", a problem as "!problem".
std::vector<std::string> flat(const std::vector<pbui::Contact> &v)
{
    std::vector<std::string> out;
    for (const auto &c : v)
        out.push_back(c.problem.empty() ? c.name + "|" + c.number + "|" + c.email + "|" + c.label
                                        : "!" + c.problem);
    return out;
}

pb_flash_info entry(zp_uint32 index, const std::string &name, const std::string &num,
                    const std::string &email)
{
    return pbt::entry(index, pbt::kNoSim, name, num, email);
}

// Each text is told by its format and read as its writer meant it: sample
// files of phones, desktop programs and address books and the RFCs'
// examples (from SAMPLES, with the line each contact starts on), odd but
// valid vCards, the header names of common CSV exports, and the module's
// own lines.
TEST(Parse, TextsAreReadAsTheirWritersMeantThem)
{
    struct Case {
        const char *what;  // a sample file's name when there is no text
        std::string text;
        std::vector<std::string> expect;
        std::vector<int> lines = {};  // of a sample file: where each contact starts
    };
    const std::pair<pbui::Format, std::vector<Case>> formats[] = {
        {pbui::Format::VCARD,
         {{"phone_21.vcf",
           "",
           {"Jürgen Müller|+49 171 1234567||mobile", "Jürgen Müller|030-1234-567||work",
            "Анна Каренина|+7 (495) 123-45-67|anna@example.ru|home", "Voicemail|*86||",
            "René Groß|0171 9876543||mobile"},
           {1, 1, 8, 19, 24}},
          {"desktop_30.vcf",
           "",
           {"Renée Dubois|+33 6 12 34 56 78|renee@dubois.example|mobile",
            "Renée Dubois|+33 (1) 42 86 82 00|renee@dubois.example|work",
            "Renée Dubois|01 40 20 50 50|renee@dubois.example|",
            "Søren Holm, København|+45 20 12 34 56||home"}},
          {"rfc6350.vcf",
           "",
           {"Simon Perreault|+1-418-656-9254P102|simon.perreault@viagenie.ca|work",
            "Simon Perreault|+1-418-262-6501|simon.perreault@viagenie.ca|mobile"}},
          {"rfc2426.vcf",
           "",
           {"Frank Dawson|+1-919-676-9515|Frank_Dawson@Lotus.com|work",
            "Frank Dawson|+1-919-676-9564|Frank_Dawson@Lotus.com|fax",
            "Tim Howes|+1-415-937-3419|howes@netscape.com|work",
            "Tim Howes|+1-415-528-4164|howes@netscape.com|fax"}},
          {"LF only, lower case, N without FN",
           "begin:vcard\nversion:3.0\nn:Doe;Jane;Q.;Dr.;\ntel:1\nend:vcard\n",
           {"Jane Q. Doe|1||"}},
          {"no TEL at all", "BEGIN:VCARD\r\nFN:Nobody\r\nEMAIL:n@x\r\nEND:VCARD\r\n", {"Nobody||n@x|"}},
          {"escapes in FN",
           "BEGIN:VCARD\r\nFN:a\\,b\\;c\\\\d\\ne\r\nTEL:2\r\nEND:VCARD\r\n",
           {"a,b;c\\d\ne|2||"}},
          {"fold inside a UTF-8 character's line",
           "BEGIN:VCARD\r\nFN:Zo\r\n ë\r\n\t M\r\nTEL:3\r\nEND:VCARD\r\n",
           {"Zoë M|3||"}},
          {"nested card ignored",
           "BEGIN:VCARD\nFN:Outer\nAGENT:\nBEGIN:VCARD\nFN:Inner\nTEL:9\nEND:VCARD\nTEL:4\nEND:VCARD\n",
           {"Outer|4||"}},
          {"quoted parameter with a colon",
           "BEGIN:VCARD\nFN:X\nTEL;X-LABEL=\"a:b\";TYPE=pager:5\nEND:VCARD\n",
           {"X|5||pager"}},
          {"unterminated card dropped", "BEGIN:VCARD\nFN:Cut\nTEL:6\n", {}},
          {"Latin-1 bytes without a charset", "BEGIN:VCARD\nFN:Ren\xE9\nTEL:7\nEND:VCARD\n", {"René|7||"}}}},
        {pbui::Format::CSV,
         {// The first record spans lines 2 to 4 (quoted line breaks).
          {"address_book.csv",
           "",
           {"Zoë Müller|+49 151 2345 6789|zoe@example.de|mobile",
            "Zoë Müller|+49 30 123456|zoe@example.de|work", "Zoë Müller|+49 30 123457|zoe@example.de|work",
            "Smith, John|(030) 555-0101||home", "Wei Wang|+86 138 0013 8000|wei@example.cn|mobile",
            "No Phone Person||nophone@example.org|", "Quote \"The Boss\" Jones|+1 555 0100||"},
           {2, 2, 2, 5, 6, 7, 8}},
          {"desktop_mail.csv",
           "",
           {"Ольга Петрова|+7 495 765 43 21|olga@example.ru|home",
            "Ольга Петрова|+7 916 000 11 22|olga@example.ru|mobile",
            "Li Na|+86 10 8765 4321|lina@example.cn|work"}},
          {"header in another order", "email,number,name\r\na@b,123,Ann\r\n", {"Ann|123|a@b|"}},
          {"a mail program's names",
           "Last Name,First Name,Mobile Phone,E-mail Address\n\"Doe\",\"Jo\",\"+1 2\",\"j@d\"\n",
           {"Jo Doe|+1 2|j@d|mobile"}},
          {"typed phone columns",
           "Display Name,Phone 1 - Type,Phone 1 - Value\nAl,* Work,555\n",
           {"Al|555||work"}},
          {"two numbers", "Full Name,Telephone,Pager\nBo,1,2\n", {"Bo|1||", "Bo|2||pager"}},
          {"blank records are no contacts", "name,number\n\n,,\nCy,3\n", {"Cy|3||"}},
          // Kept as read: the import refuses the number.
          {"a quote in a number", "name,number\nDi,\"4\"\"\"\n", {"Di|4\"||"}},
          {"no line break at the end", "name,number\nEd,5", {"Ed|5||"}}}},
        {pbui::Format::MODULE,
         {{"the BOM is not part of the number", "\xEF\xBB\xBF+4930,Zoë,z@x extra\r\n", {"Zoë|+4930|z@x|"}},
          {"name first, as export writes", "Alice,+4930,a@x\n", {"Alice|+4930|a@x|"}},
          {"number first", "123,Alice\n", {"Alice|123||"}},
          {"no header, it holds a number", "0301234,Phone Shop,\n", {"Phone Shop|0301234||"}},
          {"a line without a name",
           "123\n\n,Bob,b\n",
           {"!a line needs at least a number and a name: number,name,email",
            "!a line needs at least a number and a name: number,name,email"}}}},
    };
    for (const auto &[format, cases] : formats) {
        for (const Case &c : cases) {
            const std::string text = c.text.empty() ? pbt::slurp(SAMPLES "/" + std::string(c.what)) : c.text;
            ASSERT_FALSE(text.empty()) << c.what;
            EXPECT_EQ(pbui::detect_format(text), format) << c.what;
            const std::vector<pbui::Contact> got = pbui::parse(text, format);
            EXPECT_EQ(flat(got), c.expect) << c.what;
            std::vector<int> lines;
            for (const auto &contact : got)
                lines.push_back(contact.source);
            EXPECT_TRUE(c.lines.empty() || lines == c.lines) << c.what;
        }
    }
}

// Export folds at 75 octets, never inside a character, and reads back.
TEST(Vcard, LongLinesFoldAtWholeCharacters)
{
    const std::string name = "Ääääääääääääääääääääääää";  // 24 two-byte characters: 48 bytes
    const std::string text = pbui::format_vcard({entry(1, name, "+491", "a,b;c\\d@example.org")});
    size_t start = 0;
    for (size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
        const std::string line = text.substr(start, end - start);
        EXPECT_LE(line.size(), 75u) << line;
        ASSERT_FALSE(line.empty());
        EXPECT_NE(static_cast<unsigned char>(line[line[0] == ' ' ? 1 : 0]) & 0xC0, 0x80) << "split character";
    }
    EXPECT_EQ(flat(pbui::parse_vcard(text)), std::vector<std::string>{name + "|+491|a,b;c\\d@example.org|"});
}

TEST(Formats, EveryFormatReadsBackWhatItWrote)
{
    const std::vector<pb_flash_info> entries = {
        entry(1, "Zoë Müller", "+4930123456", "zoe@example.de"),
        entry(2, "Smith, John \"Jack\"", "*100#", ""),
        entry(3, "王小明", "0301234P5W6T", "wang@example.cn"),
        entry(4, "Back\\slash; semi", "112", "x@y"),
        entry(5, std::string(50, 'n'), std::string(50, '9'), std::string(50, 'e')),
    };
    for (pbui::Format f : {pbui::Format::VCARD, pbui::Format::CSV, pbui::Format::MODULE}) {
        // The module's lines hold no comma in a name.
        std::vector<pb_flash_info> sent = entries;
        if (f == pbui::Format::MODULE)
            std::strcpy(sent[1].name, "Smith John \"Jack\"");
        const std::string text = pbui::format(sent, f);
        EXPECT_EQ(pbui::detect_format(text), f) << pbui::format_name(f);
        std::vector<std::string> expect;
        for (const auto &e : sent)
            expect.push_back(std::string(e.name) + "|" + e.num + "|" + e.email + "|");
        EXPECT_EQ(flat(pbui::parse(text, f)), expect) << pbui::format_name(f) << "\n" << text;
    }
}

// The router's lines have no quoting: what would read back as another
// contact is named, so that the export refuses it rather than split it.
TEST(Formats, TheRoutersLinesNameWhatTheyCannotCarry)
{
    const struct {
        pb_flash_info e;
        const char *why;  // part of the refusal, or "" for none
    } cases[] = {
        {entry(1, "Zoë Müller", "+4930123456", "zoe@example.de"), ""},
        {entry(2, "Smith, John", "1", ""), "entry 2 (\"Smith, John\"): its name holds a comma"},
        {entry(3, "Two\nLines", "1", ""), "line break"},
        {entry(4, "112", "999", ""), "read back as the number"},
        {entry(5, "", "999", ""), "both a name and a number"},
        {entry(6, "Anna", "", ""), "both a name and a number"},
        {entry(7, "Anna", "1", "a b@x"), "e-mail holds a blank"},
    };
    for (const auto &c : cases) {
        const std::string why = pbui::module_lines_refusal({c.e});
        EXPECT_TRUE(*c.why ? why.find(c.why) != std::string::npos : why.empty()) << c.e.index << ": " << why;
    }
}

TEST(SimNames, OctetsFollowTheEncodingTheNameNeeds)
{
    const struct {
        const char *name;
        int octets;
    } cases[] = {
        {"Anna", 4},
        {"Åse Müller", 10},  // Å and ü are GSM characters
        {"Zoë", 7},          // ë is not
        {"Søren_@$", 8},
        {"a[b]", 6},  // [ and ] take the escape octet
        {"€", 2},
        {"Анна", 9},  // UCS-2: 0x80 and two a character
        {"a`b", 7},   // the backquote has no GSM code
        {"王小明", 7},
        {"", 0},
        {"\xF0\x9F\x98\x80", -1},  // outside the basic plane
    };
    for (const auto &c : cases)
        EXPECT_EQ(pbui::sim_name_octets(c.name), c.octets) << c.name;
    EXPECT_EQ(pbui::sim_number_digits("+4930"), 4);
    EXPECT_EQ(pbui::sim_number_digits("*100#"), 5);
}

}  // namespace
