#pragma once

#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "kit/child_process.hpp"
#include "kit/ipc_ready.hpp"
#include "kit/matchers.hpp"
#include "kit/notify_socket.hpp"
#include "kit/scratch_folder.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::ipc {

inline constexpr std::uint16_t some_event = 7;
inline constexpr std::uint16_t last_event = 8;

inline Header to(Address address, std::uint16_t event = some_event) {
    return {address, event, 0};
}

/// A folder for a bus, and a real broker for it once it is started.
class BusTest : public testing::Test {
  protected:
    test::Command broker_command() const {
        return {.argv = {IPC_BROKER, "--folder", folder.string()},
                .environment = {notifications.environment()},
                .output = scratch / "output"};
    }

    void start_broker() { start_broker(broker_command()); }

    void start_broker(test::Command const& command) {
        broker = std::make_unique<test::ChildProcess>(command);
        ASSERT_TRUE(notifications.wait_for("READY=1")) << output();
    }

    void kill_broker() {
        broker->kill(SIGKILL);
        ASSERT_EQ(broker->wait(), 128 + SIGKILL);
    }

    /// What the broker has written.
    std::string output() const { return test::read_file(scratch / "output"); }

    std::shared_ptr<IIpc> new_endpoint(Address address = any_address) const {
        return make_zmq_ipc(address, "TEST", folder);
    }

    std::shared_ptr<IIpc> new_connected_endpoint(Address address = any_address) const {
        auto endpoint = new_endpoint(address);
        EXPECT_TRUE(test::wait_connected(*endpoint));
        return endpoint;
    }

    /// That a message still travels from one endpoint to the other, and is the next to arrive there.
    static void expect_traffic(IIpc& from, IIpc& there) {
        EXPECT_THAT(from.send(to(there.address(), last_event), {}), test::IsOk());
        EXPECT_EQ(test::next_message(there), (Message{to(there.address(), last_event), {}}));
    }

    /// That the next thing an endpoint hears is that it is connected.
    static void expect_connected_next(IIpc& endpoint) {
        EXPECT_EQ(test::next_message(endpoint), (Message{to(endpoint.address(), connected_event), {}}));
    }

    test::ScratchFolder const scratch;
    std::filesystem::path const folder = scratch / "bus";
    test::NotifySocket notifications{scratch / "notify"};
    std::unique_ptr<test::ChildProcess> broker; // once it is started
};

/// A broker and two endpoints that are connected to it.
class ConnectedTest : public BusTest {
  protected:
    void SetUp() override {
        start_broker();
        sender = new_connected_endpoint();
        receiver = new_connected_endpoint();
    }

    std::shared_ptr<IIpc> sender;
    std::shared_ptr<IIpc> receiver;
};

} // namespace xpon::ipc
