#pragma once

#include <filesystem>

#include "xpon/config_writer/i_config_writer.hpp"

namespace xpon::config_writer {

/// Replaces a file so that a reader, a crash or a power cut finds the old text or the new one and nothing
/// between: the text goes to a temporary file in the same folder, to the disk, and then takes the file's
/// name. The file's mode is 0644. Any number of writers and processes may write one file at a time: the text
/// of the last one to finish stays, whole. What a killed process left behind is removed by the next write.
class ConfigWriter : public IConfigWriter {
  public:
    /// Nothing is touched before the first write.
    explicit ConfigWriter(std::filesystem::path target_file);

    core::Result<void> write(std::string const& text) override;

  private:
    std::filesystem::path target;
};

} // namespace xpon::config_writer
