#include "board/journal.hpp"

#include <system_error>

#include <syslog.h>
#include <systemd/sd-journal.h>

#include "core/failure.hpp"
#include "number_in.hpp"

namespace xpon::logctl {

core::Result<std::unique_ptr<Journal>> Journal::open() {
    sd_journal* opened = nullptr;
    int error = sd_journal_open(&opened, SD_JOURNAL_LOCAL_ONLY);
    std::unique_ptr<Journal> journal{new Journal{opened}};
    if (error >= 0) {
        error = sd_journal_get_fd(opened); // from now on files that come and go are noticed
    }
    if (error >= 0) {
        error = sd_journal_seek_tail(opened);
    }
    if (error >= 0) {
        error = sd_journal_previous(opened);
    }
    if (error < 0) {
        return core::fail(core::Error::CommonError, "the journal cannot be read ({})",
                          std::generic_category().message(-error));
    }
    return journal;
}

Journal::~Journal() {
    sd_journal_close(handle);
}

std::vector<JournalEntry> Journal::new_entries() {
    std::vector<JournalEntry> entries;
    sd_journal_process(handle);
    while (sd_journal_next(handle) > 0) {
        entries.push_back({number_in<unsigned>(field("PRIORITY")).value_or(LOG_NOTICE), field("MESSAGE")});
    }
    return entries;
}

std::string Journal::field(char const* name) const {
    void const* data = nullptr;
    std::size_t size = 0;
    if (sd_journal_get_data(handle, name, &data, &size) < 0) {
        return {};
    }
    std::string const text{static_cast<char const*>(data), size};
    return text.substr(text.find('=') + 1);
}

} // namespace xpon::logctl
