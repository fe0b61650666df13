#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "xpon/ipc/i_ipc.hpp"

namespace xpon::test {

/// Remembers every message that is sent; nothing ever arrives.
class FakeIpc : public ipc::IIpc {
  public:
    core::Result<void> send(ipc::Header const& header, std::span<std::byte const> payload) override {
        std::lock_guard const lock{mutex};
        messages.push_back({header, {payload.begin(), payload.end()}});
        return answer();
    }
    core::Result<std::optional<ipc::Message>> receive() override { return std::optional<ipc::Message>{}; }
    int receive_fd() const override { return -1; }
    ipc::Address address() const override { return ipc::Address{0x12345}; }

    std::vector<ipc::Message> sent() const {
        std::lock_guard const lock{mutex};
        return messages;
    }

    std::function<core::Result<void>()> answer = [] { return core::Result<void>{core::success()}; };

  private:
    mutable std::mutex mutex;
    std::vector<ipc::Message> messages; // guarded by mutex
};

} // namespace xpon::test
