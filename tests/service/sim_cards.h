/* sim_cards.h - simulated SIM cards for the service tests and benchmarks:
 * records numbered from 1, named `name` and the record number, and when
 * `number` is given, numbered `number` and 100000 plus the record number. */
#pragma once

#include <cstdint>
#include <string>

#include "pbm_sim.h"

namespace pbt {

inline pbm_sim::Card numbered_card(unsigned records, unsigned max_records, const std::string &name,
                                   const std::string &number = "")
{
    pbm_sim::Card c;
    c.max_records = static_cast<uint16_t>(max_records);
    for (unsigned k = 1; k <= records; ++k) {
        pbm_sim::Record &r = c.records[static_cast<uint16_t>(k)];
        pbm_sim::utf8_to_ucs2(name + std::to_string(k), &r.name);
        if (!number.empty())
            r.number = number + std::to_string(100000 + k);
    }
    return c;
}

}  // namespace pbt
