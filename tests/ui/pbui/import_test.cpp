// Contacts into the phonebooks: the import into the real device phonebook
// file under its lock, and the copy into the SIM with the card's limits
// (the service's add request played by a recorder).
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "book_text.h"
#include "contacts.h"
#include "pb_data_dir.h"

namespace {

using namespace std::chrono_literals;
using pbui::Outcome;

const std::string kBook = std::string(pb_data_dir()) + "/pb_device_file";

pbui::Contact contact(const std::string &name, const std::string &number, const std::string &email = "",
                      const std::string &label = "")
{
    return {name, number, email, label, 0, ""};
}

// Outcomes as "word index name" per line.
std::vector<std::string> outcomes(const pbui::Report &r)
{
    std::vector<std::string> out;
    for (const auto &l : r.lines)
        out.push_back(std::string(pbui::outcome_word(l.outcome)) + " " + std::to_string(l.index) + " " +
                      l.entry.name);
    return out;
}

class Exchange : public ::testing::Test {
protected:
    void SetUp() override { simlib_clear_flash(STORAGE_TYPE_FLASH); }
};

TEST_F(Exchange, ImportFillsFreePlacesAndSaysWhatBecameOfEveryContact)
{
    store_book(STORAGE_TYPE_FLASH, {{1, "101|Anna|"}, {3, "103|Bob|"}});
    const std::string long_name = std::string(49, 'x') + "é";  // 51 bytes
    pbui::Report r;
    ASSERT_EQ(
        pbui::import_to_device({contact("Cleo", "+49 (30) 1-2", "c@x"), contact("Anna", "101"),
                                contact("Anna", "555", "", "work"), contact("Anna", "556"),
                                contact("Anna", "557", "", "work"), contact("Dan", ""),
                                contact("", "", "x@y"), contact("Eve", "12_3"),
                                contact(long_name, "7", std::string(60, 'm')), contact("Anna (2)", "556")},
                               &r),
        PB_RCODE_OK);
    EXPECT_EQ(outcomes(r), (std::vector<std::string>{
                               "added 2 Cleo", "duplicate 1 Anna", "added 4 Anna (work)", "added 5 Anna (2)",
                               "added 6 Anna (3)", "added 7 Dan", "no_number 0 ", "bad_number 0 ",
                               "added 8 " + std::string(49, 'x'), "duplicate 5 Anna (2)"}));
    EXPECT_TRUE(r.lines[2].renamed);
    EXPECT_TRUE(r.lines[8].name_cut);
    EXPECT_TRUE(r.lines[8].email_cut);
    EXPECT_EQ(load_book(STORAGE_TYPE_FLASH),
              (std::vector<std::string>{"1:101|Anna|", "2:+493012|Cleo|c@x", "3:103|Bob|",
                                        "4:555|Anna (work)|", "5:556|Anna (2)|", "6:557|Anna (3)|", "7:|Dan|",
                                        "8:7|" + std::string(49, 'x') + "|" + std::string(50, 'm')}));
}

TEST_F(Exchange, ImportIntoAFullPhonebookReportsTheRestAsFull)
{
    std::vector<std::pair<int, std::string>> entries;
    for (int i = 1; i <= PB_MAX_ENTRIES; ++i)
        if (i != 500)
            entries.push_back({i, std::to_string(i) + "|n|"});
    store_book(STORAGE_TYPE_FLASH, entries);
    pbui::Report r;
    ASSERT_EQ(pbui::import_to_device({contact("A", "1"), contact("B", "2")}, &r), PB_RCODE_OK);
    EXPECT_EQ(outcomes(r), (std::vector<std::string>{"added 500 A", "full 0 B"}));
    EXPECT_EQ(load_book(STORAGE_TYPE_FLASH).size(), size_t{PB_MAX_ENTRIES});
}

// Another process's change made while the import waits for the lock is
// loaded by the import, not overwritten by it.
TEST_F(Exchange, ImportWaitsForTheLockAndKeepsTheChangeMadeMeanwhile)
{
    store_book(STORAGE_TYPE_FLASH, {{1, "101|Anna|"}});
    const int fd = open((kBook + ".lock").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    std::atomic<bool> done{false};
    pbui::Report r;
    std::thread importer([&] {
        pbui::import_to_device({contact("Cleo", "3")}, &r);
        done = true;
    });
    std::this_thread::sleep_for(200ms);
    EXPECT_FALSE(done) << "the import ran without the lock";
    store_book(STORAGE_TYPE_FLASH, {{1, "101|Anna|"}, {2, "102|Bob|"}});
    flock(fd, LOCK_UN);
    close(fd);
    importer.join();
    EXPECT_EQ(load_book(STORAGE_TYPE_FLASH),
              (std::vector<std::string>{"1:101|Anna|", "2:102|Bob|", "3:3|Cleo|"}));
}

// The copy into the SIM with a card of 14 name octets and 20 digits; the
// service's answer is played by a recorder.
class SimCopy : public ::testing::Test {
protected:
    pbui::Report copy(const std::vector<pbui::Contact> &contacts, bool cut, int free_records = 100)
    {
        pbui::SimCopy how;
        how.limits = {14, 20};
        how.cut = cut;
        how.present = {pb_flash_info{1, 1, "Anna", "111", ""}};
        how.add = [this, free_records](pb_flash_info *e) {
            if (static_cast<int>(sent_.size()) >= free_records)
                return static_cast<int>(PB_RCODE_NOTFREE_ERR);
            sent_.push_back(std::string(e->name) + "|" + e->num + "|" + e->email);
            e->sim_index = static_cast<zp_uint32>(sent_.size() + 1);
            return static_cast<int>(PB_RCODE_OK);
        };
        pbui::Report r;
        EXPECT_EQ(pbui::copy_to_sim(contacts, how, &r), PB_RCODE_OK);
        return r;
    }
    std::vector<std::string> sent_;
};

TEST_F(SimCopy, NamesAndNumbersAreCheckedAgainstTheCardAtTheEdges)
{
    const struct {
        pbui::Contact c;
        Outcome plain, with_cut;
        const char *stored_when_cut;
    } cases[] = {
        {contact("Fourteen chars", "1"), Outcome::ADDED, Outcome::ADDED, "Fourteen chars"},
        {contact("Fifteen chars!!", "1"), Outcome::NAME_TOO_LONG, Outcome::ADDED, "Fifteen chars!"},
        {contact("Thirteen[]chr", "1"), Outcome::NAME_TOO_LONG, Outcome::ADDED, "Thirteen[]ch"},
        {contact("Ольга1", "1"), Outcome::ADDED, Outcome::ADDED, "Ольга1"},  // 13 octets
        {contact("Дмитрий", "1"), Outcome::NAME_TOO_LONG, Outcome::ADDED, "Дмитри"},
        {contact("Anna", "222"), Outcome::ADDED, Outcome::ADDED, "Anna (2)"},
        {contact("Anna Karenina", "333"), Outcome::ADDED, Outcome::ADDED, "Anna Karenina"},
        {contact("Anna", "111"), Outcome::DUPLICATE, Outcome::DUPLICATE, "Anna"},
        {contact("Ab", std::string(20, '1')), Outcome::ADDED, Outcome::ADDED, "Ab"},
        {contact("Ab", "+" + std::string(20, '2')), Outcome::ADDED, Outcome::ADDED, "Ab"},
        {contact("Ab", std::string(21, '3')), Outcome::NUMBER_TOO_LONG, Outcome::NUMBER_TOO_LONG, "Ab"},
        {contact("😀", "1"), Outcome::NAME_TOO_LONG, Outcome::NAME_TOO_LONG, ""},
    };
    for (bool cut : {false, true}) {
        for (const auto &c : cases) {
            sent_.clear();
            const pbui::Report r = copy({c.c}, cut);
            ASSERT_EQ(r.lines.size(), 1u);
            const auto &l = r.lines[0];
            EXPECT_EQ(l.outcome, cut ? c.with_cut : c.plain)
                << c.c.name << (cut ? " --cut" : "") << ": " << l.detail;
            if (cut && l.outcome == Outcome::ADDED) {
                EXPECT_EQ(std::string(l.entry.name), c.stored_when_cut);
                EXPECT_EQ(l.name_cut, std::string(c.stored_when_cut) != c.c.name && !l.renamed);
            }
            EXPECT_EQ(sent_.size(), l.outcome == Outcome::ADDED ? 1u : 0u) << c.c.name;
        }
    }
    // A name the card takes alone may not take a count after it.
    sent_.clear();
    const pbui::Report r = copy({contact("Anna", "1"), contact("Anna", "2"), contact("Annabel Smith", "3"),
                                 contact("Annabel Smith", "4")},
                                false);
    EXPECT_EQ(outcomes(r)[1], "added 0 Anna (3)");
    EXPECT_EQ(r.lines[3].outcome, Outcome::NAME_TOO_LONG) << "\"Annabel Smith (2)\" takes 17 octets";
}

TEST_F(SimCopy, EmailIsLeftOutAndAFullCardEndsTheCopy)
{
    const pbui::Report r = copy({contact("A", "1", "a@x"), contact("B", "2"), contact("C", "3")}, false, 2);
    EXPECT_EQ(sent_, (std::vector<std::string>{"A|1|", "B|2|"}));
    EXPECT_TRUE(r.lines[0].email_dropped);
    EXPECT_EQ(r.lines[2].outcome, Outcome::FULL);
    EXPECT_NE(pbui::outcome_text(r.lines[0]).find("the SIM holds none"), std::string::npos);
}

}  // namespace
