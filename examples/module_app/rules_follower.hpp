#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "xpon/ipc/i_ipc.hpp"
#include "xpon/logger/logger.hpp"

namespace xpon::module_app {

/// Keeps a module's log rules at what its file says: reads the file at the beginning, again whenever the bus
/// says that it was rewritten, and whenever the bus is reached again, since what was said meanwhile is lost.
/// Each time but the first the module answers on the bus whether it could use the file. One thread at a time.
class RulesFollower {
  public:
    /// `module` is the module's value on the bus. `bus` and `logger` must outlive this; the logger hears of
    /// each reload. Fails as `Logger::create_context` does; a file that is missing or broken is not a
    /// failure.
    static core::Result<std::unique_ptr<RulesFollower>>
    create(std::uint32_t module, std::filesystem::path const& file, ipc::IIpc& bus, core::ILogger& logger);

    /// Takes everything that waits on the bus. To be called once before waiting for `IIpc::receive_fd`, and
    /// whenever that is readable. Fails if the bus cannot be read, or does not take an answer.
    core::Result<void> take_messages();

  private:
    RulesFollower(std::uint32_t module, std::filesystem::path file, ipc::IIpc& bus, core::ILogger& logger,
                  std::unique_ptr<logger::Logger::LoggerContext>&& rules);

    bool concerns_us(ipc::Message const& message) const;
    core::Result<void> reload_and_answer();

    std::uint32_t module;
    std::filesystem::path file;
    ipc::IIpc& bus;
    core::ILogger& logger;
    std::unique_ptr<logger::Logger::LoggerContext> rules;
};

} // namespace xpon::module_app
