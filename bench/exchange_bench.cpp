// A phone's 1000 contacts into an empty device phonebook: the vCard import
// (read the file, parse, check every contact, add under the file lock, save
// once) against the module's own import of the same 1000 entries from its
// line format. Both start from the text file on disk.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "contacts.h"
#include "pb_data_dir.h"
#include "zpt_ui_pb_api.h"

namespace {

const std::string kVcard = std::string(pb_data_dir()) + "/bench_contacts.vcf";
const std::string kLines = std::string(pb_data_dir()) + "/bench_contacts.txt";

// 1000 contacts the way a phone writes them, and the same entries as the
// module's "number,name,email" lines.
void write_files()
{
    std::ofstream vcf(kVcard, std::ios::binary), txt(kLines, std::ios::binary);
    char name[40], number[24], email[48];
    for (int k = 0; k < PB_MAX_ENTRIES; ++k) {
        std::snprintf(name, sizeof name, "Kontakt Müller %04d", k);
        std::snprintf(number, sizeof number, "+49170%07d", k);
        std::snprintf(email, sizeof email, "kontakt%04d@example.org", k);
        vcf << "BEGIN:VCARD\r\nVERSION:3.0\r\nN:Müller;Kontakt;;;\r\nFN:" << name
            << "\r\nTEL;TYPE=CELL:" << number << "\r\nEMAIL;TYPE=INTERNET:" << email << "\r\nEND:VCARD\r\n";
        txt << number << "," << name << "," << email << "\n";
    }
}

// Read whole, as pbcli reads a file to import.
std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    std::string text(static_cast<size_t>(in.tellg()), '\0');
    in.seekg(0);
    in.read(&text[0], static_cast<std::streamsize>(text.size()));
    return text;
}

// Runs one import per iteration into an emptied device phonebook; the
// emptying is not timed. `import` gives whether every entry was added.
template <typename Import> void imports(benchmark::State &state, Import import)
{
    write_files();
    for (auto _ : state) {
        state.PauseTiming();
        simlib_clear_flash(STORAGE_TYPE_FLASH);
        state.ResumeTiming();
        if (!import())
            state.SkipWithError("import failed");
    }
}

bool all_added(const pbui::Report &r) { return r.count(pbui::Outcome::ADDED) == PB_MAX_ENTRIES; }

void BM_ModuleImport(benchmark::State &state)
{
    imports(state, [] { return simlib_pb_import(kLines.c_str(), STORAGE_TYPE_FLASH) == PB_RCODE_OK; });
}
BENCHMARK(BM_ModuleImport)->Unit(benchmark::kMillisecond);

void BM_VcardImport(benchmark::State &state)
{
    imports(state, [] {
        pbui::Report report;
        return pbui::import_to_device(pbui::parse_vcard(slurp(kVcard)), &report) == PB_RCODE_OK &&
               all_added(report);
    });
}
BENCHMARK(BM_VcardImport)->Unit(benchmark::kMillisecond);

// The two halves of the vCard import on their own.
void BM_VcardParse(benchmark::State &state)
{
    write_files();
    const std::string text = slurp(kVcard);
    for (auto _ : state)
        benchmark::DoNotOptimize(pbui::parse_vcard(text));
}
BENCHMARK(BM_VcardParse)->Unit(benchmark::kMillisecond);

void BM_ContactsImport(benchmark::State &state)
{
    write_files();
    const std::vector<pbui::Contact> contacts = pbui::parse_vcard(slurp(kVcard));
    imports(state, [&] {
        pbui::Report report;
        return pbui::import_to_device(contacts, &report) == PB_RCODE_OK && all_added(report);
    });
}
BENCHMARK(BM_ContactsImport)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
