// backup and restore.

#include <memory>
#include <string>

#include "commands/command.hpp"
#include "xpon/cfgdb/backup.hpp"

namespace xpon::logctl {

namespace {

using Copy = core::Result<void> (*)(std::filesystem::path const& file, std::filesystem::path const& folder);

void add(CLI::App& program, Action& chosen, char const* name, char const* description, char const* of_file,
         Copy copy) {
    auto* const command = program.add_subcommand(name, description);
    auto const file = std::make_shared<std::string>();
    command->add_option("FILE", *file, of_file)->required()->type_name("");
    command->callback([file, copy, &chosen] {
        chosen = [file, copy](Context const& context) -> core::Result<int> {
            OUTCOME_TRY(copy(*file, context.database));
            return 0;
        };
    });
}

} // namespace

void add_backup(CLI::App& program, Action& chosen) {
    add(program, chosen, "backup", "Copy the whole database, history included, to one file",
        "Where to; a file of that name is replaced", cfgdb::backup);
}

void add_restore(CLI::App& program, Action& chosen) {
    add(program, chosen, "restore",
        "Make the database what a copy says, all at once or not at all; a running daemon follows",
        "The copy; it is checked first", cfgdb::restore);
}

} // namespace xpon::logctl
