#pragma once

#include <any>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "core/failure.hpp"
#include "xpon/log_config/zlog/i_log_config_generator.hpp"
#include "xpon/log_config/zlog/i_log_module.hpp"
#include "xpon/log_config/zlog/module_categories.hpp"

namespace xpon::log_config {

/// A module whose descriptor M starts with one 16-bit level per subject of the enumeration S.
template <class M, class S>
class ZlogModuleBase : public ILogModule {
    static_assert(std::is_trivially_copyable_v<M>);

  public:
    /// Throws std::runtime_error if a name lookup fails. A constructed object has `count` categories and a
    /// current rule text. `count` is at most the number of 16-bit words in M.
    ZlogModuleBase(std::shared_ptr<ILogConfigGenerator> const& generator, M const& descriptor,
                   Modules_names module, unsigned long count, std::function<int(char*, S)> subject_lookup,
                   std::function<void(std::string&)> subject_formatter)
      : generator{generator} {
        auto const number = static_cast<std::underlying_type_t<Modules_names>>(module);
        if (!generate_submodules(module, count, std::move(subject_lookup), std::move(subject_formatter))
                 .has_value()) {
            throw std::runtime_error(fmt::format("Failed generate submodules on Base obj for {}", number));
        }
        if (!ZlogModuleBase::update_config(descriptor).has_value()) {
            throw std::runtime_error(fmt::format("Failed update config on Base obj for {}", number));
        }
    }

    /// Fills the categories, one per subject.
    // NOLINTBEGIN(performance-unnecessary-value-param): both taken by value, as in the constructor
    Result<void> generate_submodules(Modules_names module, unsigned long count,
                                     std::function<int(char*, S)> subject_lookup,
                                     std::function<void(std::string&)> subject_formatter) {
        return append_module_categories(
            submodules, module, count,
            [&](char* out, std::size_t index) { return subject_lookup(out, static_cast<S>(index)); },
            subject_formatter);
    }
    // NOLINTEND(performance-unnecessary-value-param)

    std::string const& get_config() const override { return config; }

    Result<void> update_config(std::any const& descriptor) override {
        auto const* const levels = std::any_cast<M>(&descriptor);
        if (levels == nullptr) {
            return core::fail(core::Error::CommonError, "Failed any_cast std::any to {}", typeid(M).name());
        }
        std::string text;
        append_subject_rules(text, *levels);
        config = std::move(text);
        return core::success();
    }

  protected:
    void append_subject_rules(std::string& text, M const& levels) const {
        for (std::size_t index = 0; index < submodules.size(); ++index) {
            text += generator->generate(submodules[index], level_of(levels, index));
        }
    }

    std::shared_ptr<ILogConfigGenerator> generator;
    std::vector<std::string> submodules; // index = subject
    std::string config;

  private:
    static std::uint16_t level_of(M const& levels, std::size_t index) {
        std::uint16_t level = 0;
        std::memcpy(&level, reinterpret_cast<std::byte const*>(&levels) + index * sizeof level, sizeof level);
        return level;
    }
};

} // namespace xpon::log_config
