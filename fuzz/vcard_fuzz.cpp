// Any bytes through the vCard reader: no fault, and what it reads writes
// out as vCard 3.0 and reads back the same.
#include "contact_roundtrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    (void)pbui::detect_format(text);
    check_round_trip(pbui::parse_vcard(text), pbui::Format::VCARD);
    return 0;
}
