#pragma once

#include <string>

#include "core/result.hpp"

namespace xpon::config_writer {

class IConfigWriter {
  public:
    /// Replaces the whole content of the writer's file. On failure the file is unchanged, and the error names
    /// the path and the reason. One thread at a time.
    virtual core::Result<void> write(std::string const& text) = 0;

    virtual ~IConfigWriter() = default;
};

} // namespace xpon::config_writer
