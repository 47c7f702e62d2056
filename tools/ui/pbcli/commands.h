/*
 * commands.h - the commands of pbcli, each on the operations of the user
 * side's library. A command prints its result (table or JSON) on standard
 * output, or its failure, and returns the exit status. Blocks while the
 * service answers (and, up to --wait, while the SIM phonebook is read).
 */
#ifndef PBCLI_COMMANDS_H
#define PBCLI_COMMANDS_H

#include "args.h"
#include "words.h"

namespace pbcli {

using pbui::Exit;
using pbui::EXIT_FAILED;
using pbui::EXIT_NO_SERVICE;
using pbui::EXIT_NOT_FOUND;
using pbui::EXIT_NOT_READY;
using pbui::EXIT_OK;
using pbui::EXIT_USAGE;

Exit run_command(const Args &args);

}  // namespace pbcli

#endif
