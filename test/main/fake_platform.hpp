#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/result.hpp"

namespace xpon::test {

/// What the daemon's entry did, and what the objects it builds are told to do. Every object it builds is
/// replaced at link time by one that writes into this record.
struct FakePlatform {
    /// "create X", "destroy X", "stop" and the texts sent to the service manager ("notify ..."), in order.
    std::vector<std::string> trace;
    /// Called when the object of that name is created, before "create" is recorded; may throw.
    std::map<std::string, std::function<void()>> on_create;
    /// Called when the object of that name is destroyed, and for "notify TEXT" when a text was sent.
    std::map<std::string, std::function<void()>> on;
    std::function<core::Result<void>()> context_result = [] { return core::Result<void>{core::success()}; };
    std::function<core::Result<void>()> zlog_files_result = [] {
        return core::Result<void>{core::success()};
    };
    /// One entry per cycle: what the launcher's `run` does. A missing one sends SIGTERM.
    std::vector<std::function<core::Result<void>()>> runs;
    std::size_t cycles = 0;

    void created(std::string const& name);
    void destroyed(std::string const& name);
    /// The lines of the trace that begin so, without that beginning.
    std::vector<std::string> traced(std::string const& beginning) const;

    static FakePlatform& instance();
};

} // namespace xpon::test
