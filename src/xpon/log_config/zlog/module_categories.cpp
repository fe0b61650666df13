#include "xpon/log_config/zlog/module_categories.hpp"

#include <array>
#include <cstring>
#include <string_view>

#include "core/failure.hpp"
#include "xpon/log_config/zlog/module_number.hpp"

namespace xpon::log_config {

using core::Error;
using core::fail;
using core::success;

namespace {

/// The buffer that the name lookups of the configuration library write to.
using NameBuffer = std::array<char, 15>;

std::string text_of(NameBuffer const& buffer) {
    return {buffer.data(), strnlen(buffer.data(), buffer.size())};
}

void replace_first(std::string& text, std::string_view what, std::string_view with) {
    if (auto const place = text.find(what); place != std::string::npos) {
        text.replace(place, what.size(), with);
    }
}

std::string category_of(std::string const& stem, std::string const& subject) {
    auto category = stem;
    if (subject != "SELF") {
        category += "_" + subject;
    }
    // This also applies if the underscore belongs to the stem or to the subject.
    replace_first(category, "_1", "-");
    return category;
}

} // namespace

Result<void> append_module_categories(std::vector<std::string>& categories, Modules_names module,
                                      std::size_t count, SubjectLookup const& subject_lookup,
                                      SubjectFormatter const& subject_formatter) {
    NameBuffer stem{};
    if (int const ret = get_modules_names_from_index(stem.data(), module); ret != 0) {
        return fail(Error::CommonError, "Failed get_modules_names_from_index({}) - {}", number_of(module),
                    ret);
    }
    for (std::size_t index = 0; index < count; ++index) {
        NameBuffer name{};
        if (int const ret = subject_lookup(name.data(), index); ret != 0) {
            return fail(Error::CommonError, "Failed get_subject_from_index({}) for module {} - {}", index,
                        number_of(module), ret);
        }
        auto subject = text_of(name);
        if (subject_formatter) {
            subject_formatter(subject);
        }
        categories.push_back(category_of(text_of(stem), subject));
    }
    return success();
}

void custom_layer_formatter(std::string& subject) {
    replace_first(subject, "CUSTOM_1LAYER", "C-L");
}

} // namespace xpon::log_config
