#include "ont_map.hpp"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "table.hpp"

namespace xpon::logctl {

namespace {

constexpr std::size_t ports = 16;
constexpr std::size_t onts = 256;

struct Look {
    std::string_view level;
    char letter;
    std::string_view colour;
};

constexpr Look looks[] = {
    {"critical", 'c', colour::red},   {"error", 'e', colour::red},
    {"warning", 'w', colour::yellow}, {"notice", '.', {}},
    {"info", 'i', colour::green},     {"debug", 'd', colour::bold},
};

/// Of a value that is not allowed.
constexpr Look unknown{"not allowed", '?', colour::red};

Look const& look_of(std::string const& level) {
    auto const* const found = std::ranges::find(looks, level, &Look::level);
    return found == std::end(looks) ? unknown : *found;
}

std::string painted(Look const& look, bool coloured) {
    return coloured && !look.colour.empty() ? fmt::format("{}{}{}", look.colour, look.letter, colour::plain)
                                            : std::string(1, look.letter);
}

} // namespace

std::string ont_map(StoredValues const& stored, std::size_t width, bool coloured) {
    constexpr std::size_t label = 14; // "port 16  193  "
    std::size_t const columns = width >= label + 64 ? 64 : width >= label + 32 ? 32 : 16;
    std::string text;
    for (auto const& look : looks) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", painted(look, coloured), look.level);
    }
    text += "\n";
    for (std::size_t port = 1; port <= ports; ++port) {
        std::array<Look const*, onts> levels{};
        for (std::size_t ont = 1; ont <= onts; ++ont) {
            auto const* const setting =
                cfgdb::find_setting(fmt::format("module.fsm_pon.ont.{}.{}", port, ont));
            levels.at(ont - 1) = &look_of(value_of(*setting, stored));
        }
        auto const name = fmt::format("port {:2}", port);
        if (std::ranges::all_of(levels, [&](auto const* look) { return look == levels.front(); })) {
            text += fmt::format("{}       all {}\n", name, levels.front()->level);
            continue;
        }
        for (std::size_t ont = 0; ont < onts; ont += columns) {
            text += fmt::format("{:7}  {:3}  ", ont == 0 ? name : "", ont + 1);
            for (std::size_t i = ont; i < ont + columns; ++i) {
                text += painted(*levels.at(i), coloured);
            }
            text += "\n";
        }
    }
    return text;
}

} // namespace xpon::logctl
