// backup and restore.

#include <memory>
#include <string>

#include "commands/command.hpp"
#include "xpon/cfgdb/backup.hpp"

namespace xpon::logctl {

namespace {

using Copy = core::Result<void> (*)(std::filesystem::path const& file, std::filesystem::path const& folder);

Action file_command(Arguments& arguments, char const* help, Copy copy) {
    auto const file = std::make_shared<std::string>();
    arguments.add({.name = "FILE", .help = help, .required = true}, *file);
    return [file, copy](Context const& context) -> core::Result<int> {
        OUTCOME_TRY(copy(*file, context.database));
        return 0;
    };
}

} // namespace

Action backup_command(Arguments& arguments) {
    return file_command(arguments, "The copy; an existing file is replaced", cfgdb::backup);
}

Action restore_command(Arguments& arguments) {
    return file_command(arguments, "The copy; it is checked first", cfgdb::restore);
}

} // namespace xpon::logctl
