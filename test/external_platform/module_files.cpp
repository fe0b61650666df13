// Prints the rules of all zlog files, made from what the configuration library that is linked hands out.
#include <cstdio>

#include "xpon/log_config/zlog/zlog_config_generator.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

int main() {
    using namespace xpon;
    auto const cfgdb = std::make_shared<cfgdb::CfgDbWrapper>("MODULE-FILES");
    auto const generator = std::make_shared<log_config::ZlogConfigGenerator>();
    for (auto const& file : log_config::zlog_files) {
        log_config::LogModules modules;
        if (file.add_modules(modules, cfgdb, generator).has_error()) {
            return 1;
        }
        for (auto const& [_, log_module] : modules) {
            std::fputs(log_module->get_config().c_str(), stdout);
        }
    }
}
