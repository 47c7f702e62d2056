// Any bytes through the CSV reader and the module's line reader: no fault,
// and what each reads writes out in its format and reads back the same.
#include "contact_roundtrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    check_round_trip(pbui::parse_csv(text), pbui::Format::CSV);
    check_round_trip(pbui::parse_module(text), pbui::Format::MODULE);
    return 0;
}
