#include "candidates.hpp"

#include "xpon/cfgdb/history.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/cfgdb/settings.hpp"
#include "xpon/cfgdb/trial.hpp"
#include "xpon/log_config/outputs/outputs.hpp"

namespace xpon::logctl {

namespace {

/// A whole path ends in `end`.
Names paths_with(std::string const& begin, bool settable, std::string_view end) {
    Names found;
    for (auto const& setting : cfgdb::settings()) {
        if (setting.path.starts_with(begin) && !(settable && setting.built_in())) {
            auto const dot = setting.path.find('.', begin.size());
            found.insert(dot == std::string::npos ? setting.path + std::string{end}
                                                  : setting.path.substr(0, dot + 1));
        }
    }
    return found;
}

} // namespace

Names paths(std::string const& begin, Context const& /*context*/) {
    return paths_with(begin, false, "");
}

Names settable_paths(std::string const& begin, Context const& /*context*/) {
    return paths_with(begin, true, "");
}

Names assignments(std::string const& begin, Context const& /*context*/) {
    auto const sign = begin.find('=');
    if (sign == std::string::npos) {
        return paths_with(begin, true, "=");
    }
    auto const found = cfgdb::expand(begin.substr(0, sign));
    if (found.has_error()) {
        return {};
    }
    auto const& setting = *found.value().front();
    auto const with_path = [&](cfgdb::Value const& value) {
        return begin.substr(0, sign + 1) + cfgdb::to_text(setting.kind, value);
    };
    if (setting.kind == cfgdb::Kind::Folder) {
        return {folders_of_the_shell};
    }
    if (setting.kind != cfgdb::Kind::Level) {
        return {with_path(setting.default_value)};
    }
    Names levels;
    for (std::int64_t level = 0; cfgdb::is_allowed(cfgdb::Kind::Level, level); ++level) {
        levels.insert(with_path(level));
    }
    return levels;
}

Names module_names(std::string const& /*begin*/, Context const& /*context*/) {
    Names names;
    for (auto const& module : cfgdb::modules()) {
        names.emplace(module.name);
    }
    return names;
}

Names trial_numbers(std::string const& /*begin*/, Context const& context) {
    Names numbers;
    if (auto const trials = cfgdb::pending_trials(context.database); trials.has_value()) {
        for (auto const& trial : trials.value()) {
            numbers.insert(std::to_string(trial.number));
        }
    }
    return numbers;
}

Names transaction_numbers(std::string const& /*begin*/, Context const& context) {
    Names numbers;
    if (auto const past = cfgdb::history(context.database); past.has_value()) {
        for (auto const& transaction : past.value()) {
            numbers.insert(std::to_string(transaction.number));
        }
    }
    return numbers;
}

Names transactions_or_files(std::string const& begin, Context const& context) {
    auto names = transaction_numbers(begin, context);
    names.insert(files_of_the_shell);
    return names;
}

Names files(std::string const& /*begin*/, Context const& /*context*/) {
    return {files_of_the_shell};
}

Names output_names(std::string const& /*begin*/, Context const& /*context*/) {
    Names names;
    for (auto const& output : log_config::outputs()) {
        names.emplace(output.name);
    }
    return names;
}

} // namespace xpon::logctl
