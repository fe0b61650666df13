#include "probe/probe.hpp"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <span>
#include <thread>

#include <fmt/format.h>
#include <syslog.h>
#include <unistd.h>

#include "board/journal.hpp"
#include "board/syslog_ng.hpp"
#include "core/failure.hpp"
#include "file_text.hpp"
#include "output.hpp"
#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"

namespace xpon::logctl {

namespace {

using core::Error;
using core::fail;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char const* program = "logctl";

/// A file that can be read back from where it ended at the beginning.
class File {
  public:
    explicit File(std::string const& path_of_file)
      : path{path_of_file} {
        std::error_code failed;
        readable = is_regular_file(path, failed) ? std::ifstream{path}.is_open() : !exists(path, failed);
        begin = readable && exists(path, failed) ? file_size(path, failed) : 0;
    }

    bool can_be_read() const { return readable; }

    bool has(std::string const& text) const {
        std::error_code failed;
        auto const size = file_size(path, failed);
        auto const content =
            file_text(path, failed || size < begin ? 0 : begin).value_or(""); // else it was rotated
        return content.find(text) != std::string::npos;
    }

  private:
    std::filesystem::path path;
    bool readable = false;
    std::uintmax_t begin = 0;
};

struct Destination {
    std::string id;
    bool receiver;
    unsigned level;
    std::optional<File> file; ///< where it can be read back
    std::size_t place;        ///< in the result
    bool disappoints = false; ///< a message has not come in time; the next ones are not waited for as long
};

/// What the counters gained between two readings.
class Gain {
  public:
    Gain(Statistics const& from, Statistics const& to)
      : before{from}
      , after{to} {}

    std::uint64_t processed(std::string const& id) const { return gain(id, &Counters::processed); }
    std::uint64_t written(std::string const& id) const { return gain(id, &Counters::written); }
    std::uint64_t dropped(std::string const& id) const { return gain(id, &Counters::dropped); }

  private:
    std::uint64_t gain(std::string const& id, std::optional<std::uint64_t> Counters::* counter) const {
        auto const value = [&](Statistics const& statistics) {
            auto const found = statistics.find(id);
            return found == statistics.end() ? 0 : (found->second.*counter).value_or(0);
        };
        auto const now = value(after);
        return now >= value(before) ? now - value(before) : now; // syslog-ng was started anew
    }

    Statistics const& before;
    Statistics const& after;
};

class Probe {
  public:
    Probe(Report const& report, SyslogSettings const& settings, std::unique_ptr<Journal>&& opened)
      : journal{std::move(opened)} {
        openlog(program, 0, LOG_LOCAL0);
        result.token = fmt::format("{:08x}", std::random_device{}());
        result.places.push_back({"journal", "-", {}, {}});
        for (auto const& status : report.destinations) {
            add(status, settings);
        }
    }

    /// Together takes one wait for the journal, which tells its readers of new messages every 0.25 s. What came
    /// is then known by its number alone, which says enough if syslog-ng runs the filters of the settings.
    core::Result<ProbeResult> run(bool together) {
        std::array<unsigned, severities.size()> all{};
        std::iota(all.begin(), all.end(), 0U);
        OUTCOME_TRY(right, together ? try_together(all) : false);
        if (!right) {
            for (unsigned const severity : all) {
                OUTCOME_TRY(try_severity(severity));
            }
        }
        OUTCOME_TRY(see_who_refused());
        return std::move(result);
    }

  private:
    void add(DestinationStatus const& status, SyslogSettings const& settings) {
        bool const receiver = status.name.starts_with("remote ");
        bool const terminal = status.name.starts_with("terminal ");
        auto const level = receiver                   ? settings.remote.level
                           : terminal                 ? settings.rsh.level
                           : status.id == "d_console" ? settings.console.level
                                                      : settings.file.level;
        auto file = receiver || terminal ? std::nullopt : std::optional{File{status.target}};
        if (file && !file->can_be_read()) {
            file.reset(); // a device
        }
        destinations.push_back({status.id, receiver, level, std::move(file), result.places.size()});
        result.places.push_back({status.name, status.target, {}, {}});
    }

    using Arrivals = std::vector<decltype(ProbedPlace::arrivals)>; // by place

    struct Attempt {
        Arrivals arrivals;
        bool taken; ///< syslog-ng has taken all messages
    };

    /// Whether all of these severities came as they should.
    core::Result<bool> try_together(std::span<unsigned const> window) {
        OUTCOME_TRY(seen, try_once(window));
        for (std::size_t place = 0; place < result.places.size(); ++place) {
            result.places[place].arrivals = seen.arrivals[place];
        }
        return seen.taken && result.is_right();
    }

    /// Logs it twice: syslog-ng takes one message after the other, so that what the first of them has come to is
    /// counted once the second is taken. Something wrong may be the work of another message until it is seen again.
    core::Result<void> try_severity(unsigned severity) {
        constexpr int attempts = 5;
        std::array const twice{severity, severity};
        Arrivals before{};
        for (int attempt = 1;; ++attempt) {
            OUTCOME_TRY(seen, try_once(twice));
            auto const right = [severity](auto const& arrivals) { return is_right(arrivals[severity]); };
            bool const sure =
                seen.taken && (std::ranges::all_of(seen.arrivals, right) || seen.arrivals == before);
            if (sure || attempt == attempts) {
                for (std::size_t place = 0; place < result.places.size(); ++place) {
                    auto const now = seen.arrivals[place].at(severity);
                    result.places[place].arrivals.at(severity) =
                        sure || is_right(now) ? now : Arrival::Unknown;
                }
                return core::success();
            }
            before = std::move(seen.arrivals);
        }
    }

    core::Result<Attempt> try_once(std::span<unsigned const> window) {
        OUTCOME_TRY(wait_for_rest());
        auto const before = counters;
        std::map<unsigned, std::string> texts; // the last of each severity
        for (unsigned const severity : window) {
            texts[severity] = log(severity);
        }
        auto entries = wait_for_journal(texts.at(window.back()));
        auto const begin = Clock::now();
        bool const stored = !entries.empty();
        for (;;) {
            OUTCOME_TRY(read_counters());
            std::ranges::move(journal->new_entries(), std::back_inserter(entries));
            Gain const gain{before, counters};
            auto const waited = Clock::now() - begin;
            bool const taken = stored && gain.processed(source) >= entries.size();
            bool const all = std::ranges::all_of(texts, [&](auto const& message) {
                return std::ranges::all_of(destinations, [&](Destination const& one) {
                    auto const& [severity, text] = message;
                    return !log_config::passes(one.level, severity) || waited > patience(one) ||
                           is_right(arrival(one, severity, text, entries, gain));
                });
            });
            if (stored && (!taken || !all) && waited < longest) {
                std::this_thread::sleep_for(poll_interval);
                continue;
            }
            if (stored && gain.processed(source) == 0) {
                return fail(Error::CommonError, "syslog-ng takes no messages");
            }
            OUTCOME_TRY(read_counters()); // once more, for what should not come
            return Attempt{arrivals(texts, entries, Gain{before, counters}), taken};
        }
    }

    Arrivals arrivals(std::map<unsigned, std::string> const& texts, std::vector<JournalEntry> const& entries,
                      Gain const& gain) {
        Arrivals seen(result.places.size());
        for (auto const& [severity, text] : texts) {
            bool const stored = std::ranges::count(entries, text, &JournalEntry::message) > 0;
            seen.front().at(severity) = stored ? Arrival::Seen : Arrival::Missing;
            for (auto& one : destinations) {
                auto const now = arrival(one, severity, text, entries, gain);
                seen[one.place].at(severity) = now;
                one.disappoints |= log_config::passes(one.level, severity) && !is_right(now);
            }
        }
        return seen;
    }

    /// Waits, as far as there is such a time, until syslog-ng has taken what is in the journal.
    core::Result<void> wait_for_rest() {
        auto const end = Clock::now() + longest;
        bool rest = !counters.empty() && journal->new_entries().empty();
        while (!rest && Clock::now() < end) {
            auto const before = counters;
            OUTCOME_TRY(read_counters());
            rest = journal->new_entries().empty() && !before.empty() &&
                   Gain{before, counters}.processed(source) == 0;
        }
        return core::success();
    }

    /// What the journal has stored up to this message; nothing if it does not come.
    std::vector<JournalEntry> wait_for_journal(std::string const& text) {
        std::vector<JournalEntry> entries;
        for (auto const end = Clock::now() + longest; Clock::now() < end;) {
            std::ranges::move(journal->new_entries(), std::back_inserter(entries));
            if (std::ranges::count(entries, text, &JournalEntry::message) > 0) {
                return entries;
            }
            std::this_thread::sleep_for(poll_interval);
        }
        return {};
    }

    core::Result<void> read_counters() {
        OUTCOME_TRY(answer, ask_syslog_ng("stats", Clock::now() + longest));
        counters = statistics_in(answer);
        return core::success();
    }

    std::string log(unsigned severity) {
        auto text = fmt::format("logctl probe {}: message {}, {}", result.token, ++result.messages,
                                severities.at(severity));
        syslog(static_cast<int>(severity), "%s", text.c_str());
        return text;
    }

    static milliseconds patience(Destination const& destination) {
        return destination.disappoints ? milliseconds{300} : milliseconds{2000};
    }

    /// What has become of a message, of these that came at the same time.
    static Arrival arrival(Destination const& at, unsigned severity, std::string const& text,
                           std::vector<JournalEntry> const& entries, Gain const& gain) {
        auto const passing = static_cast<std::uint64_t>(std::ranges::count_if(
            entries, [&](auto const& one) { return log_config::passes(at.level, one.severity); }));
        auto const processed = gain.processed(at.id);
        bool const in_file = at.file && at.file->has(text + "\n");
        if (!log_config::passes(at.level, severity)) {
            return in_file || processed > passing ? Arrival::Unexpected : Arrival::Filtered;
        }
        if (at.file) {
            return in_file ? Arrival::Seen : Arrival::Missing;
        }
        if (processed < passing) {
            return Arrival::Missing;
        }
        return !at.receiver || gain.written(at.id) >= passing ? Arrival::Sent
               : gain.dropped(at.id) > 0                      ? Arrival::Dropped
                                                              : Arrival::Queued;
    }

    /// That nobody takes a datagram is known when the next one is sent: logs one more if a receiver got any.
    core::Result<void> see_who_refused() {
        auto const was_sent = [&](Destination const& one) {
            return one.receiver && std::ranges::count(result.places[one.place].arrivals, Arrival::Sent) > 0;
        };
        if (std::ranges::none_of(destinations, was_sent)) {
            return core::success();
        }
        constexpr unsigned alert = 1; // passes every level
        OUTCOME_TRY(seen, try_once({&alert, 1}));
        for (auto const& one : destinations) {
            if (was_sent(one) && seen.arrivals[one.place].at(alert) != Arrival::Sent) {
                std::ranges::replace(result.places[one.place].arrivals, Arrival::Sent, Arrival::Refused);
            }
        }
        return core::success();
    }

    static constexpr milliseconds longest{4000};
    static constexpr milliseconds poll_interval{20}; // syslog-ng takes messages every 0.25 s
    static constexpr char const* source = "s_local"; // in syslog-ng.conf

    std::unique_ptr<Journal> journal;
    Statistics counters; ///< as they were read last
    std::vector<Destination> destinations;
    ProbeResult result{};
};

/// Why a destination is not as the settings say, as `status` tells.
std::vector<Note> reasons(ProbedPlace const& place, Report const& report) {
    auto const destination = std::ranges::find(report.destinations, place.name, &DestinationStatus::name);
    if (destination != report.destinations.end() && !destination->notes.empty()) {
        return destination->notes;
    }
    auto const& syslog_ng = report.outputs.front();
    if (!syslog_ng.in_step()) {
        return syslog_ng.notes;
    }
    return std::ranges::count(place.arrivals, Arrival::Unknown) > 0
               ? std::vector<Note>{{"other messages came at the same time", "logctl probe"}}
               : std::vector<Note>{};
}

} // namespace

std::string_view name_of(Arrival arrival) {
    constexpr std::string_view names[] = {"filtered", "seen",    "sent",       "queued", "refused",
                                          "dropped",  "missing", "unexpected", "unknown"};
    return names[static_cast<std::size_t>(arrival)];
}

core::Result<ProbeResult> probe(Context const& context) {
    if (geteuid() != 0) {
        return fail(Error::NoAccess, "needs root, to ask syslog-ng what it did; run: sudo logctl probe");
    }
    auto const before = look(context);
    auto const& syslog_ng = before.parts.back();
    if (!syslog_ng.works()) {
        return fail(Error::CommonError, "syslog-ng {}: {}", syslog_ng.state, text_of(syslog_ng.notes));
    }
    OUTCOME_TRY(wanted, Wanted::open(context));
    OUTCOME_TRY(settings, wanted.syslog_settings());
    OUTCOME_TRY(journal, Journal::open());
    auto probed = Probe{before, settings, std::move(journal)}.run(before.outputs.front().in_step());
    if (probed.has_error()) {
        auto const after = look(context);
        auto const lost = std::ranges::find(after.destinations, not_arriving, &DestinationStatus::state);
        return lost == after.destinations.end()
                   ? probed.error()
                   : fail(Error::CommonError, "{}; {}", text_of(probed.error()), text_of(lost->notes));
    }
    auto& result = probed.value();
    if (!result.is_right()) {
        auto const after = look(context);
        for (auto& place : result.places) {
            if (!place.is_right() && place.notes.empty()) {
                place.notes = reasons(place, after);
            }
        }
    }
    return std::move(result);
}

} // namespace xpon::logctl
