// The commands of the phonebook tool, each built only on the client API of
// the phonebook library. A command prints its result (table or JSON) on
// standard output, or its failure, and returns the exit status.
#ifndef PBCLI_COMMANDS_H
#define PBCLI_COMMANDS_H

#include "args.h"
#include "output.h"

namespace pbcli {

Exit run_command(const Args &args);

}  // namespace pbcli

#endif
