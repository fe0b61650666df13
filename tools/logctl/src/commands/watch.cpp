#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "output.hpp"
#include "waiting.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/cfgdb/history.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/zmq_ipc.hpp"
#include "xpon/log_config/outputs/outputs.hpp"

namespace xpon::logctl {

namespace {

using nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

struct Options {
    bool json = false;
    std::optional<std::size_t> count;
    std::optional<double> timeout;
};

/// One thing that happened, for people and for programs.
struct Event {
    std::int64_t time;
    std::string text;
    ordered_json object;
};

Event database_change(cfgdb::PastTransaction const& transaction, cfgdb::PastChange const& change) {
    auto const& [path, old_value, new_value] = change;
    return {transaction.time,
            fmt::format("{} changed {}: {} -> {}", transaction.author, path, old_value, new_value),
            {{"event", "change"},
             {"number", transaction.number},
             {"author", transaction.author},
             {"path", path},
             {"old", old_value},
             {"new", new_value}}};
}

/// The module's name in the paths of its settings.
std::string module_name(std::uint32_t value) {
    auto const* const module = cfgdb::find_module(Modules_names{value});
    return module != nullptr ? std::string{module->name} : fmt::format("number {}", value);
}

/// The zlog file that a module reads; null if it reads none of its own.
log_config::Output const* file_read_by(std::uint32_t module) {
    auto const all = log_config::outputs();
    auto const found = std::ranges::find(all, Modules_names{module}, &log_config::Output::reader);
    return found == all.end() ? nullptr : &*found;
}

ordered_json file_object(std::uint32_t module) {
    auto const* const file = file_read_by(module);
    return file != nullptr ? ordered_json(file->name) : ordered_json(nullptr);
}

Event notification(ipc::FileChange const& change) {
    auto const name = module_name(change.module);
    auto const* const file = file_read_by(change.module);
    return {std::time(nullptr),
            fmt::format("file of module {} changed: {}", name, file != nullptr ? file->path : "it has none"),
            {{"event", "notification"},
             {"module", name},
             {"value", change.module},
             {"file", file_object(change.module)}}};
}

Event answer(ipc::FileAnswer const& answer) {
    auto const name = module_name(answer.module);
    std::string const reason = answer.status == 0 ? "" : std::strerror(static_cast<int>(answer.status));
    return {std::time(nullptr),
            answer.status == 0 ? fmt::format("module {} reloaded", name)
                               : fmt::format("module {} did not reload: {}", name, reason),
            {{"event", "answer"},
             {"module", name},
             {"value", answer.module},
             {"file", file_object(answer.module)},
             {"status", answer.status},
             {"error", answer.status == 0 ? ordered_json(nullptr) : ordered_json(reason)}}};
}

/// What a message on the bus tells; nothing for those that are no business of an operator.
std::optional<Event> event_of(ipc::Message const& message) {
    if (message.header.event == ipc::file_changed_event) {
        if (auto const change = ipc::record_in<ipc::FileChange>(message.payload)) {
            return notification(*change);
        }
    } else if (message.header.event == ipc::file_changed_reply) {
        if (auto const given = ipc::record_in<ipc::FileAnswer>(message.payload)) {
            return answer(*given);
        }
    }
    return std::nullopt;
}

class Watch {
  public:
    Watch(Context const& from, Options const& wanted)
      : context{from}
      , options{wanted} {
        if (auto const timeout = options.timeout) {
            end = Clock::now() + std::chrono::ceil<Clock::duration>(std::chrono::duration<double>{*timeout});
        }
    }

    core::Result<void> run() {
        auto const stop = stop_signals();
        OUTCOME_TRY(opened, cfgdb::ChangeFeed::open(context.database));
        feed = std::move(opened);
        OUTCOME_TRY(before, cfgdb::history(context.database));
        last = before.empty() ? 0 : before.back().number;
        OUTCOME_TRY(connect());
        tell(fmt::format("watching {}", context.database.string()));
        OUTCOME_TRY(take_messages());
        while (!done()) {
            auto const ready = first_readable({stop.get(), feed->fd(), bus->receive_fd()}, end);
            if (ready == 0U) {
                return core::success();
            }
            if (!ready || (end && Clock::now() >= *end)) { // also if there is always something to show
                return at_timeout();
            }
            if (ready == 1U) {
                OUTCOME_TRY(take_changes());
            } else {
                OUTCOME_TRY(take_messages());
            }
        }
        return core::success();
    }

  private:
    bool done() const { return options.count && shown >= *options.count; }

    core::Result<void> at_timeout() const {
        if (options.count) {
            return core::fail(core::Error::CommonError, "{} of {} events within {} s", shown, *options.count,
                              options.timeout.value_or(0));
        }
        return core::success();
    }

    core::Result<void> connect() {
        try {
            bus = ipc::make_zmq_ipc(ipc::any_address, "logctl");
            return core::success();
        } catch (std::exception const& exception) {
            return core::fail(core::Error::CommonError, "no endpoint on the message bus: {}",
                              exception.what());
        }
    }

    core::Result<void> take_changes() {
        auto const changed = feed->next();
        if (changed.has_error()) {
            // It may only be away for a moment; its return is announced like a change.
            if (auto const text = text_of(changed.error()); text != trouble) {
                tell(text);
                trouble = text;
            }
            return core::success();
        }
        trouble.clear();
        if (changed.value().empty()) {
            return core::success();
        }
        OUTCOME_TRY(all, cfgdb::history(context.database));
        auto const newest = all.empty() ? 0 : all.back().number;
        if (newest < last) { // an older copy was restored
            tell(
                fmt::format("the database was replaced: its newest transaction is {}, not {}", newest, last));
        }
        for (auto const& transaction : all) {
            for (auto const& change : transaction.changes) {
                if (transaction.number > last) {
                    OUTCOME_TRY(show(database_change(transaction, change)));
                }
            }
        }
        last = newest;
        return core::success();
    }

    core::Result<void> take_messages() {
        for (;;) {
            OUTCOME_TRY(message, bus->receive());
            if (!message) {
                return core::success();
            }
            if (message->header.event == ipc::connected_event) {
                tell("connected to the message bus");
            } else if (auto const event = event_of(*message)) {
                OUTCOME_TRY(show(*event));
            }
        }
    }

    core::Result<void> show(Event const& event) {
        if (done()) {
            return core::success();
        }
        ++shown;
        if (options.json) {
            ordered_json line{{"time", utc(event.time)}};
            line.update(event.object);
            print(line.dump() + "\n");
        } else {
            print(fmt::format("{} {}\n", utc(event.time), event.text));
        }
        return flush_output();
    }

    Context const& context;
    Options const& options;
    Until end; // of the watch
    std::unique_ptr<cfgdb::ChangeFeed> feed;
    std::shared_ptr<ipc::IIpc> bus;
    std::int64_t last = 0; // the newest transaction that was shown
    std::size_t shown = 0;
    std::string trouble; // that was told last, with the database
};

} // namespace

Action watch_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"--json", "Print one JSON object per line"}, options->json);
    arguments.add({.name = "--count", .help = "End after N lines", .type = "N", .range = {{1, 1e9}}},
                  options->count);
    arguments.add({.name = "--timeout",
                   .help = "End after this time; with --count, fail if there were fewer lines",
                   .type = "SECONDS",
                   .range = {{0, 1e6}},
                   .whole = false},
                  options->timeout);
    return [options](Context const& context) -> core::Result<int> {
        OUTCOME_TRY((Watch{context, *options}.run()));
        return 0;
    };
}

} // namespace xpon::logctl
