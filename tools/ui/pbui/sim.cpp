// The card's limits as the phonebook service stored them in the NV store
// when it read the card's capabilities: octets of a name's alpha identifier
// (counted by sim_name.cpp) and digits of a number; and the check of an
// entry's fields against them and the phonebook's 50-byte fields.
#include <algorithm>
#include <cstdlib>

#include "contacts.h"
#include "nvmanager.h"

namespace pbui {

namespace {

bool read_nv_int(const char *key, int *out)
{
    char text[16] = {};
    int len = 0;
    if (nvmram_readnv(key, text, sizeof text - 1, &len) != NV_OK)
        return false;
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (end == text || v <= 0 || v > 1000)
        return false;
    *out = static_cast<int>(v);
    return true;
}

}  // namespace

bool read_sim_limits(SimLimits *out)
{
    SimLimits l;
    if (!read_nv_int("pb_sim_name_maxlen", &l.name_octets) ||
        !read_nv_int("pb_sim_number_maxlen", &l.number_digits))
        return false;
    *out = l;
    return true;
}

int read_sim_records()
{
    int n = 0;
    return read_nv_int("pb_sim_max_count", &n) ? n : 0;
}

FieldsCheck check_fields(storage_type_t type, const Fields &f)
{
    SimLimits limits;
    const bool known = type == STORAGE_TYPE_SIM && read_sim_limits(&limits);
    return check_fields(type, f.name, f.number, f.email, known ? &limits : nullptr);
}

int sim_max_digits(const SimLimits &limits) { return std::min(limits.number_digits, SIM_RECORD_DIGITS); }

FieldsCheck check_fields(storage_type_t type, const std::optional<std::string> &name,
                         const std::optional<std::string> &number, const std::optional<std::string> &email,
                         const SimLimits *limits)
{
    constexpr size_t kFieldBytes = PB_TEXT_LEN - 1;
    FieldsCheck c;
    c.sim = type == STORAGE_TYPE_SIM;
    c.limits_known = c.sim && limits != nullptr;
    if (c.limits_known)
        c.limits = *limits;
    if ((c.has_name = name.has_value())) {
        c.name_bytes = name->size();
        c.name_fits = c.name_bytes <= kFieldBytes;
        if (c.sim) {
            c.name_card = sim_name(*name);
            c.name_fits = c.name_fits && c.name_card.octets >= 0 &&
                          (!c.limits_known || c.name_card.octets <= c.limits.name_octets);
        }
    }
    if ((c.has_number = number.has_value())) {
        c.number_refusal = tidy_number_refusal(*number, &c.number);
        c.number_fits = c.number_refusal.problem == NumberProblem::NONE;
        if (c.number_fits && c.sim) {
            c.number_digits = sim_number_digits(c.number);
            c.number_fits = !c.limits_known || c.number_digits <= sim_max_digits(c.limits);
            if (!c.number_fits) {
                c.number_refusal.problem = NumberProblem::CARD_DIGITS;
                c.number_refusal.count = static_cast<size_t>(c.number_digits);
                c.number_refusal.max = static_cast<size_t>(sim_max_digits(c.limits));
            }
        }
        if (!c.number_fits)
            c.number.clear();
    }
    if ((c.has_email = email.has_value())) {
        c.email_bytes = email->size();
        c.email_fits = c.email_bytes <= kFieldBytes;
    }
    return c;
}

}  // namespace pbui
