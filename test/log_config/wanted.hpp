#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "xpon/log_config/outputs/outputs.hpp"

namespace xpon::test {

/// What the daemon's outputs hold when they are in step with a database.
class Wanted {
  public:
    explicit Wanted(std::filesystem::path const& folder)
      : cfgdb{std::make_shared<cfgdb::CfgDbWrapper>("TEST", folder)} {}

    /// Throws if a record cannot be read.
    std::string operator()(log_config::Output const& output,
                           log_config::OpenShells const& shells = {}) const {
        auto text = log_config::wanted_text(output, cfgdb, shells);
        return text.has_value()
                   ? std::move(text).value()
                   : throw std::runtime_error{std::string{output.name} + ": " + text.error().to_string()};
    }

    void const* db() const { return cfgdb->db(); }

  private:
    std::shared_ptr<cfgdb::CfgDbWrapper> cfgdb;
};

} // namespace xpon::test
