// The record that the configuration library fills, whatever it holds: the text is made within its fields.
#include <algorithm>
#include <cstring>

#include "fuzz/fuzz.hpp"
#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace xpon::log_config;
    using xpon::fuzz::require;
    SyslogSettings settings{};
    std::memcpy(&settings, data, std::min(size, sizeof settings));
    OpenShells shells{};
    for (std::size_t index = sizeof settings; index < std::min(size, sizeof settings + shells.size());
         ++index) {
        shells.at(index - sizeof settings) = (data[index] & 1) != 0;
    }
    auto const text = syslog_ng_text(settings, shells);
    require(text.starts_with("####") && text.ends_with("};\n"), "the text is whole");
    for (std::size_t terminal = 0; terminal < shells.size(); ++terminal) {
        bool const has = text.find("(d_rsh_" + std::to_string(terminal) + ");") != std::string::npos;
        // A hostile path or address could hold the words themselves: the record has been checked before that.
        require(has || !shells.at(terminal) || terminal == 15, "an open terminal has its output");
    }
    return 0;
}
