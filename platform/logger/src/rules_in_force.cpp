#include "rules_in_force.hpp"

#include <algorithm>
#include <utility>

#include "line_writer.hpp"

namespace xpon::logger {

namespace {

constexpr auto least_severe = static_cast<std::size_t>(core::LogLevel::Debug);
constexpr auto most_severe = static_cast<std::size_t>(core::LogLevel::Fatal);

constexpr unsigned bit(std::size_t level) {
    return 1U << level;
}

constexpr unsigned every_level = bit(most_severe + 1) - bit(least_severe);
constexpr unsigned notice_and_above =
    bit(most_severe + 1) - bit(static_cast<std::size_t>(core::LogLevel::Notice));

/// The levels of a category without a file. The daemon writes the file of its own categories itself, so its
/// lines must not depend on that file.
unsigned built_in_levels(std::string_view category) {
    static constexpr std::string_view own[] = {"LOG-CFG", "LOG-CFG_IPC", "LOG-CFG_CFGDB"};
    return std::ranges::find(own, category) != std::end(own) ? every_level : notice_and_above;
}

/// A number outside the enumeration counts as the most severe level.
std::size_t index_of(core::LogLevel level) {
    return std::min(static_cast<std::size_t>(level), most_severe);
}

} // namespace

ObedientCategory::ObedientCategory(std::string const& category_name)
  : name{category_name} {
    RulesInForce::instance().join(*this);
}

ObedientCategory::~ObedientCategory() {
    RulesInForce::instance().leave(*this);
}

bool ObedientCategory::is_enabled(core::LogLevel level) const {
    return (enabled.load(std::memory_order_acquire) & bit(index_of(level))) != 0;
}

void ObedientCategory::log(core::LogLevel level, std::string_view text,
                           std::source_location const& where) const {
    auto const index = index_of(level);
    std::unique_lock lock{mutex};
    auto const writer = writers.at(index);
    lock.unlock();
    writer->log({where.file_name(), static_cast<int>(where.line()), where.function_name()},
                static_cast<spdlog::level::level_enum>(index),
                spdlog::string_view_t{text.data(), text.size()});
}

void ObedientCategory::obey(ZlogFile const& file) {
    auto const rules = file.categories.find(name);
    unsigned levels = file.problems.empty() || rules != file.categories.end() ? 0 : built_in_levels(name);
    Writers made;
    for (auto level = least_severe; level <= most_severe; ++level) {
        auto format = rules != file.categories.end() ? rules->second.at(level) : nullptr;
        levels |= format ? bit(level) : 0;
        made.at(level) = make_line_writer(name, format ? *format : *file.default_format);
    }
    {
        std::lock_guard const lock{mutex};
        writers.swap(made);
    }
    enabled.store(levels, std::memory_order_release);
}

RulesInForce& RulesInForce::instance() {
    static auto& only = *new RulesInForce; // never destroyed: a logger may be the last object of the process
    return only;
}

RulesInForce::Key RulesInForce::add(ZlogFile file) {
    std::lock_guard const lock{mutex};
    files.emplace(++last_key, std::move(file));
    apply();
    return last_key;
}

void RulesInForce::replace(Key key, ZlogFile file) {
    std::lock_guard const lock{mutex};
    files.at(key) = std::move(file);
    apply();
}

void RulesInForce::remove(Key key) {
    std::lock_guard const lock{mutex};
    files.erase(key);
    apply();
}

void RulesInForce::join(ObedientCategory& category) {
    std::lock_guard const lock{mutex};
    category.obey(in_force());
    categories.insert(&category);
}

void RulesInForce::leave(ObedientCategory& category) {
    std::lock_guard const lock{mutex};
    categories.erase(&category);
}

ZlogFile const& RulesInForce::in_force() const {
    return files.empty() ? without_context : files.rbegin()->second;
}

void RulesInForce::apply() {
    for (auto* const category : categories) {
        category->obey(in_force());
    }
}

} // namespace xpon::logger
