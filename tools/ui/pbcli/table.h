/*
 * table.h - pbcli's text output: entries as a table that lines up on a
 * terminal whatever the script, one entry a line whatever its bytes.
 * Pure functions; any thread.
 */
#ifndef PBCLI_TABLE_H
#define PBCLI_TABLE_H

#include <ostream>
#include <string>
#include <vector>

#include "zpt_ui_pb_api.h"

namespace pbcli {

/* Columns a UTF-8 text takes on a terminal: wide East Asian characters take
 * two, control characters are shown escaped (see display_text). */
size_t display_width(const std::string &s);
/* The text as a table cell: line feeds, tabs and other control bytes as
 * \n, \t, \xNN, so that one entry stays on one line. */
std::string display_text(const std::string &s);

/* A table of entries, with the SIM record column for the SIM phonebook,
 * under a line with the phonebook and its count unless heading is false. */
void print_table(std::ostream &out, storage_type_t type, const std::vector<pb_flash_info> &v,
                 bool heading = true);

}  // namespace pbcli

#endif
