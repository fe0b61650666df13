#pragma once

#include <string>
#include <string_view>

namespace xpon::log_config {

/// Generates the text of zlog configuration files. Stateless; safe from any thread.
class ILogConfigGenerator {
  public:
    /// The rule lines of one category: one per level, from the most severe to `level` (0 critical to 5
    /// debug). A larger number means 5.
    virtual std::string generate(std::string_view category, unsigned short level) = 0;

    /// The text before the rules.
    virtual std::string_view get_header() const = 0;

    virtual ~ILogConfigGenerator() = default;
};

} // namespace xpon::log_config
