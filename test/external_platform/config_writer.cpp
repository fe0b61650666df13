#include "xpon/config_writer/config_writer.hpp"

#include <utility>

namespace xpon::config_writer {

ConfigWriter::ConfigWriter(std::filesystem::path target_file)
  : target{std::move(target_file)} {}

core::Result<void> ConfigWriter::write(std::string const& /*text*/) {
    return core::success();
}

} // namespace xpon::config_writer
