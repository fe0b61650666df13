#pragma once

#include <initializer_list>

#include <csignal>

namespace xpon::core {

/// Keeps signals from the calling thread while it lives; what arrives meanwhile is delivered afterwards.
/// A thread created meanwhile starts with them blocked and keeps them so: that is how every thread but the
/// main one is made, so that signals always find the main thread.
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
