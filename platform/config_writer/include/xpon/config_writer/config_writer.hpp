#pragma once

#include <filesystem>

#include "xpon/config_writer/i_config_writer.hpp"

namespace xpon::config_writer {

/// Replaces a file so that a reader sees either the old or the new text, even after a crash or a power cut.
/// The text is written to a temporary file in the same folder, flushed to disk, and renamed to the target.
/// The file's mode is 0644. Any number of writers and processes may write one file at the same time; the text
/// of the last one to finish stays, complete. The next write removes the temporary file of a killed process.
///
/// A file that already has this text, its mode and the process's user as its owner, and no other name, is left
/// alone: flash memory wears with every write.
class ConfigWriter : public IConfigWriter {
  public:
    /// Touches nothing before the first write.
    explicit ConfigWriter(std::filesystem::path target_file);

    core::Result<void> write(std::string const& text) override;

  private:
    std::filesystem::path target;
};

} // namespace xpon::config_writer
