// Any bytes as a dialling number and as a search text: no fault; a number
// that is read holds only what a phonebook can store, at most 50
// characters, and reads again as itself, and is the same number as it is
// stored whichever way the pair is compared; a search text finds a name
// that is that text.
#include <cstdlib>
#include <cstring>
#include <string>

#include "contacts.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::string number, again;
    if (pbui::tidy_number(text, &number).empty()) {
        const bool storable = number.size() <= PB_TEXT_LEN - 1 &&
                              number.find_first_not_of("0123456789*#PWT+") == std::string::npos &&
                              number.find('+', 1) == std::string::npos;
        if (!storable || !pbui::tidy_number(number, &again).empty() || again != number)
            std::abort();
        const pbui::Country *home = pbui::find_country("DE");
        const pbui::NumberMatch m = pbui::match_numbers(text, number, home);
        if (m != pbui::match_numbers(number, number, home) || m != pbui::match_numbers(number, text, home))
            std::abort();
    }
    if (size < PB_TEXT_LEN && std::memchr(data, 0, size) == nullptr) {
        pb_flash_info e{};
        std::memcpy(e.name, data, size);
        if (!pbui::Search(text).matches(e))
            std::abort();
    }
    return 0;
}
