#include "misuse.hpp"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "wrapped.hpp"
#include "xpon/cfgdb/nearest.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

using cfgdb::did_you_mean;
using cfgdb::nearest;
using cfgdb::printable;
using Names = std::vector<std::string>;
using Words = std::span<std::string const>;

bool is_option(std::string_view word) {
    return word.size() > 1 && word.starts_with('-') && word != "--";
}

/// "--limit" of "--limit=3".
std::string name_in(std::string const& word) {
    return word.substr(0, word.find('='));
}

/// The options of a command, or of the whole program, without those that are hidden.
std::vector<CLI::Option const*> options_of(CLI::App const& command) {
    auto const all = command.get_options();
    std::vector<CLI::Option const*> options{all.begin(), all.end()};
    std::erase_if(options, [](auto const* option) { return option->get_group().empty(); });
    return options;
}

/// The option with this name; null if there is none.
CLI::Option const* find_option(CLI::App const& command, std::string const& name) {
    auto const options = options_of(command);
    auto const found = std::ranges::find_if(
        options, [&](auto const* option) { return option->nonpositional() && option->check_name(name); });
    return found == options.end() ? nullptr : *found;
}

Names option_names(CLI::App const& command) {
    Names names;
    for (auto const* option : options_of(command)) {
        for (auto const& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

Names command_names(CLI::App const& program) {
    Names names;
    for (auto const* command : program.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

std::string list_of_commands(CLI::App const& program) {
    constexpr std::string_view heading = "Commands: ";
    constexpr std::size_t width = 80;
    return fmt::format(
        "\n{}{}", heading,
        wrapped(fmt::format("{}", fmt::join(command_names(program), " ")), heading.size(), width));
}

/// The first command on the line that has this option; null if there is none.
CLI::App const* command_with(CLI::App const& program, Words words, std::string const& option) {
    auto const commands = program.get_subcommands({});
    for (auto const& word : words) {
        auto const found =
            std::ranges::find_if(commands, [&](auto const* command) { return command->get_name() == word; });
        if (found != commands.end() && find_option(**found, option) != nullptr) {
            return *found;
        }
    }
    return nullptr;
}

std::string unknown_option(CLI::App const& program, CLI::App const* command, std::string const& word) {
    auto names = command == nullptr ? Names{} : option_names(*command);
    std::ranges::copy_if(option_names(program), std::back_inserter(names),
                         [&](auto const& name) { return std::ranges::find(names, name) == names.end(); });
    auto const name = name_in(word);
    auto const near = nearest(name, names);
    return fmt::format("unknown option {}; {}", printable(name),
                       near.empty() ? fmt::format("allowed: {}", fmt::join(names, ", "))
                                    : did_you_mean(near));
}

/// What is wrong up to the command; nothing if that comes after options of the program only.
std::optional<std::string> wrong_before_command(CLI::App const& program, Words words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        auto const& word = words[i];
        if (!is_option(word)) {
            auto const names = command_names(program);
            return word == "--" || std::ranges::find(names, word) != names.end()
                       ? std::nullopt
                       : std::optional{unknown_command(program, word)};
        }
        auto const name = name_in(word);
        if (find_option(program, name) == nullptr) {
            auto const* const command = command_with(program, words.subspan(i + 1), name);
            if (command == nullptr) {
                return unknown_option(program, nullptr, word);
            }
            auto const& option = *find_option(*command, name);
            std::string value; // as far as it is there
            if (option.get_items_expected_max() > 0) {
                value = name != word                          ? word.substr(name.size())
                        : words[i + 1] == command->get_name() ? " " + option.get_type_name()
                                                              : " " + words[i + 1];
            }
            return fmt::format("{0} belongs behind its command; write: logctl {1} {0}{2}", name,
                               command->get_name(), value);
        }
        i += word == "--database" ? 1 : 0; // its value
    }
    return std::nullopt;
}

std::string unexpected(CLI::App const& command, std::string const& word) {
    Names taken;
    for (auto const* option : options_of(command)) {
        if (option->get_positional()) {
            taken.push_back(
                fmt::format(fmt::runtime(option->get_required() ? "{}" : "[{}]"), option->get_name()));
        }
    }
    return fmt::format("unexpected argument {}; {} takes {}", printable(word), command.get_name(),
                       taken.empty() ? "none" : fmt::format("only {}", fmt::join(taken, " ")));
}

/// The option of the command or the program with this name, as the parser's errors name it.
CLI::Option const* option_named(CLI::App const& program, CLI::App const* command, std::string_view name) {
    for (auto const* app : {command, &program}) {
        for (auto const* option : app == nullptr ? std::vector<CLI::Option const*>{} : options_of(*app)) {
            if (option->get_name() == name) {
                return option;
            }
        }
    }
    return nullptr;
}

/// What the option is for, as the rest of a sentence.
std::string purpose(CLI::Option const& option) {
    auto text = option.get_description();
    std::transform(text.begin(), text.begin() + (text.empty() ? 0 : 1), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

std::string complaint(CLI::App const& program, CLI::App const* command, Words words,
                      CLI::ParseError const& error) {
    if (auto const wrong = wrong_before_command(program, words)) {
        return *wrong;
    }
    std::string_view const what = error.what();
    if (error.get_name() == "ArgumentMismatch") {
        auto const with_value = std::ranges::find_if(words, [&](auto const& word) {
            auto const* const flag = option_named(program, command, name_in(word));
            return name_in(word) != word && flag != nullptr && flag->get_disable_flag_override();
        });
        if (with_value != words.end()) {
            return name_in(*with_value) + " takes no value";
        }
        if (auto const* const option = option_named(program, command, what.substr(0, what.find(':')))) {
            return fmt::format("{} needs {}: {}", option->get_name(), option->get_type_name(),
                               purpose(*option));
        }
    }
    if (command == nullptr) {
        return "a command is missing" + list_of_commands(program);
    }
    if (auto const extra = program.remaining(true); !extra.empty()) {
        return is_option(extra.front()) ? unknown_option(program, command, extra.front())
                                        : unexpected(*command, extra.front());
    }
    if (error.get_name() == "RequiredError") {
        constexpr std::string_view ending = " is required";
        if (auto const* const option =
                option_named(program, command, what.substr(0, what.size() - ending.size()))) {
            return fmt::format("{}: {}", what, purpose(*option));
        }
    }
    return std::string{what};
}

} // namespace

std::string unknown_command(CLI::App const& program, std::string const& name) {
    auto const near = nearest(name, command_names(program));
    return fmt::format("unknown command {}{}", printable(name),
                       near.empty() ? list_of_commands(program) : "; " + did_you_mean(near));
}

std::string misuse(CLI::App const& program, Words words, CLI::ParseError const& error) {
    auto const parsed = program.get_subcommands();
    auto const* const command = parsed.empty() ? nullptr : parsed.front();
    bool const on_command = command != nullptr && command->get_name() != "help";
    return fmt::format("{}\nFor help, run: logctl help{}", complaint(program, command, words, error),
                       on_command ? " " + command->get_name() : "");
}

} // namespace xpon::logctl
