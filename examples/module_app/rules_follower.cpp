#include "rules_follower.hpp"

#include <cerrno>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/log.hpp"
#include "xpon/ipc/file_events.hpp"

namespace xpon::module_app {

using core::LogLevel;
using core::Result;
using core::success;

namespace {

/// The error number that says best why the file could not be used.
std::uint32_t reason_to_refuse(std::filesystem::path const& file) {
    return static_cast<std::uint32_t>(access(file.c_str(), R_OK) == 0 ? EINVAL : errno);
}

/// When the file last changed, in milliseconds since the epoch; 0 if it is not there.
std::uint64_t last_change(std::filesystem::path const& file) {
    struct stat status{};
    if (stat(file.c_str(), &status) != 0) {
        return 0;
    }
    return static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1000U +
           static_cast<std::uint64_t>(status.st_mtim.tv_nsec) / 1'000'000U;
}

} // namespace

Result<std::unique_ptr<RulesFollower>> RulesFollower::create(std::uint32_t module,
                                                             std::filesystem::path const& file,
                                                             ipc::IIpc& bus, core::ILogger& logger) {
    OUTCOME_TRY(rules, logger::Logger::create_context(file, "MODULE-APP", 0));
    return std::unique_ptr<RulesFollower>{new RulesFollower{module, file, bus, logger, std::move(rules)}};
}

RulesFollower::RulesFollower(std::uint32_t module, std::filesystem::path file, ipc::IIpc& bus,
                             core::ILogger& logger, std::unique_ptr<logger::Logger::LoggerContext>&& rules)
  : module{module}
  , file{std::move(file)}
  , bus{bus}
  , logger{logger}
  , rules{std::move(rules)} {}

Result<void> RulesFollower::take_messages() {
    for (;;) {
        OUTCOME_TRY(message, bus.receive());
        if (!message) {
            return success();
        }
        if (concerns_us(*message)) {
            OUTCOME_TRY(reload_and_answer());
        }
    }
}

bool RulesFollower::concerns_us(ipc::Message const& message) const {
    if (message.header.event == ipc::connected_event) {
        return true;
    }
    return message.header.event == ipc::file_changed_event &&
           ipc::record_in<ipc::FileChange>(message.payload) == ipc::FileChange{module};
}

Result<void> RulesFollower::reload_and_answer() {
    auto const changed =
        last_change(file); // whoever replaces it while it is read sees that this is not theirs
    ipc::FileAnswer answer{.module = module, .status = 0};
    if (auto const reloaded = rules->reload(); reloaded.has_error()) {
        answer.status = reason_to_refuse(file);
        core::log(logger, LogLevel::Error, "{}", reloaded.error().to_string());
    } else {
        core::log(logger, LogLevel::Notice, "Log rules read from {}", file.string());
    }
    OUTCOME_TRY(bus.send({ipc::everybody, ipc::file_known_event, 0},
                         ipc::payload_of(ipc::FileKnown{answer.module, answer.status, changed})));
    return bus.send({ipc::everybody, ipc::file_changed_reply, 0}, ipc::payload_of(answer));
}

} // namespace xpon::module_app
