// pbcli: the command-line phonebook tool. A user-interface process of the
// phonebook: changes go to the phonebook service as requests, reads load the
// phonebook files, import and export work on the files directly. This file
// only reads the command line and hands it to the command.
#include <cstdlib>
#include <iostream>

#include "args.h"
#include "commands.h"
#include "json_writer.h"

int main(int argc, char **argv)
{
    // The library logs every step at info level; a command-line user wants
    // only the tool's own output unless asked otherwise.
    setenv("ZP_LOG_LEVEL", "2", 0);

    pbcli::Args args;
    std::string err = pbcli::parse_args(argc, argv, &args);
    if (!err.empty()) {
        if (args.json)
            std::cout << pbui::JsonObject().add("ok", false).add("error", err).str() << "\n";
        std::cerr << "pbcli: " << err << "\nTry 'pbcli --help'.\n";
        return pbcli::EXIT_USAGE;
    }
    return pbcli::run_command(args);
}
