#include "xpon/log_config/zlog/zlog_text.hpp"

#include <numeric>

namespace xpon::log_config {

std::string zlog_text(ILogConfigGenerator const& generator, LogModules const& modules) {
    std::string text;
    auto const header = generator.get_header();
    text.reserve(
        std::accumulate(modules.begin(), modules.end(), header.size(), [](auto size, auto const& module) {
            return size + module.second->get_config().size();
        }));
    text += header;
    for (auto const& [_, log_module] : modules) {
        text += log_module->get_config();
    }
    return text;
}

} // namespace xpon::log_config
