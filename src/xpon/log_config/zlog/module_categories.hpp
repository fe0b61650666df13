#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/modules.hpp"

namespace xpon::log_config {

using core::Result;

/// Writes the name of subject `index` into a zeroed buffer of 15 bytes; 0 on success.
using SubjectLookup = std::function<int(char* out, std::size_t index)>;
/// Changes a subject's name before it becomes part of a category; may be empty.
using SubjectFormatter = std::function<void(std::string& subject)>;

/// Appends a module's zlog categories, one per subject: the stem for "SELF", otherwise the stem, an
/// underscore and the subject. Then the first "_1" becomes "-". Fails with `CommonError` if a lookup fails;
/// the categories appended before stay.
Result<void> append_module_categories(std::vector<std::string>& categories, Modules_names module,
                                      std::size_t count, SubjectLookup const& subject_lookup,
                                      SubjectFormatter const& subject_formatter);

/// Replaces the first "CUSTOM_1LAYER" with "C-L".
void custom_layer_formatter(std::string& subject);

} // namespace xpon::log_config
