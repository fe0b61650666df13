#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/result.hpp"

struct sd_journal;

namespace xpon::logctl {

struct JournalEntry {
    unsigned severity; ///< 0 emergency to 7 debug
    std::string message;
};

/// The system's journal from its end on. One thread at a time.
class Journal {
  public:
    static core::Result<std::unique_ptr<Journal>> open();

    /// What was stored since the last call.
    std::vector<JournalEntry> new_entries();

    ~Journal();
    Journal(Journal const&) = delete;
    Journal& operator=(Journal const&) = delete;

  private:
    explicit Journal(sd_journal* opened)
      : handle{opened} {}

    std::string field(char const* name) const;

    sd_journal* handle;
};

} // namespace xpon::logctl
