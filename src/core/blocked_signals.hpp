#pragma once

#include <initializer_list>

#include <csignal>

namespace xpon::core {

/// Blocks signals for the calling thread during its lifetime. Signals that arrive meanwhile are delivered
/// afterwards. A thread created meanwhile inherits the blocked mask and keeps it. All threads but the main
/// one are created this way, so that signals always reach the main thread.
class BlockedSignals {
  public:
    /// Blocks every signal.
    BlockedSignals();
    /// Blocks these signals.
    BlockedSignals(std::initializer_list<int> signals);
    ~BlockedSignals();

    BlockedSignals(BlockedSignals const&) = delete;
    BlockedSignals& operator=(BlockedSignals const&) = delete;

  private:
    sigset_t before{};
};

} // namespace xpon::core
