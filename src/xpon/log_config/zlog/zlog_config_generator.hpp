#pragma once

#include "xpon/log_config/zlog/i_log_config_generator.hpp"

namespace xpon::log_config {

class ZlogConfigGenerator : public ILogConfigGenerator {
  public:
    std::string generate(std::string_view category, unsigned short level) override;
    std::string_view get_header() const override;
};

} // namespace xpon::log_config
