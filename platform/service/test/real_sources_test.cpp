// The launcher with what it meets on a board: a ZeroMQ endpoint, the message broker, the database.

#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes.hpp"
#include "kit/fake_logger.hpp"
#include "test/running_bus.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/service/service_launcher.hpp"

namespace xpon::service {
namespace {

using test::IsOk;
using testing::ElementsAre;

/// A real endpoint that tells the test what the launcher has received.
class OverheardIpc : public ipc::IIpc {
  public:
    OverheardIpc(std::shared_ptr<ipc::IIpc> endpoint, Journal& heard)
      : real{std::move(endpoint)}
      , journal{heard} {}

    core::Result<void> send(ipc::Header const& header, std::span<std::byte const> payload) override {
        return real->send(header, payload);
    }
    core::Result<std::optional<ipc::Message>> receive() override {
        auto received = real->receive();
        if (auto const message = received.has_value() ? received.value() : std::nullopt) {
            journal.add(std::to_string(message->header.event));
        }
        return received;
    }
    int receive_fd() const override { return real->receive_fd(); }
    ipc::Address address() const override { return real->address(); }

  private:
    std::shared_ptr<ipc::IIpc> real;
    Journal& journal;
};

struct RealSourcesTest : ipc::BusTest {
    std::filesystem::path const database = scratch / "db";

    Journal heard;
    Journal journal;
    std::shared_ptr<test::FakeLogger> logger = std::make_shared<test::FakeLogger>();
    std::shared_ptr<ipc::IIpc> peer;
    std::shared_ptr<ipc::IIpc> endpoint;
    std::optional<cfgdb::CfgDbWrapper> wrapper;
    std::unique_ptr<FakeService> made = std::make_unique<FakeService>(journal);
    FakeService& service = *made;
    std::unique_ptr<ServiceLauncher> launcher;
    std::future<core::Result<void>> running;

    void SetUp() override {
        start_broker();
        peer = new_connected_endpoint();
        endpoint = std::make_shared<OverheardIpc>(new_endpoint(), heard);
        wrapper.emplace("SERVICE_CFGDB", database);
        launcher = std::make_unique<ServiceLauncher>(std::move(made), logger, endpoint, true);
    }

    void TearDown() override {
        if (running.valid()) {
            EXPECT_THAT(launcher->stop(), IsOk());
            EXPECT_THAT(running.get(), IsOk());
        }
        EXPECT_THAT(logger->texts(), testing::IsEmpty());
    }

    void run() {
        running = std::async(std::launch::async, [this] { return launcher->run(); });
    }

    void commit(std::string_view pattern, std::string_view value) const {
        cfgdb::Transaction wanted;
        ASSERT_THAT(wanted.set(pattern, value), IsOk());
        ASSERT_THAT(wanted.commit(database, "test"), IsOk());
    }

    void announce(std::uint16_t event) const {
        ASSERT_THAT(peer->send({ipc::everybody, event, 0}, {}), IsOk());
    }

    /// Waits until the launcher's endpoint has come up for the nth time.
    bool connected(std::size_t times) {
        auto const text = std::to_string(ipc::connected_event);
        return test::wait_until([&] {
            auto const all = heard.entries();
            return static_cast<std::size_t>(std::count(all.begin(), all.end(), text)) >= times;
        });
    }
};

TEST_F(RealSourcesTest, EventsOfTheBusAndChangesOfTheDatabaseArrive) {
    run();
    ASSERT_TRUE(connected(1));
    announce(ipc::master_change_event);
    ASSERT_TRUE(journal.wait_for(1));
    commit("syslog.remote.level", "debug");
    ASSERT_TRUE(journal.wait_for(2));
    announce(ipc::sync_event);
    ASSERT_TRUE(journal.wait_for(3));
    EXPECT_THAT(journal.entries(), ElementsAre("master_change", "config_change 54", "sync"));
}

TEST_F(RealSourcesTest, WhatHappensDuringTheStartUpIsDeliveredOnceTheServiceServes) {
    std::promise<void> start_up_is_over;
    service.run_as = [&](ServiceCtx const& ctx) {
        start_up_is_over.get_future().wait();
        journal.add("begin to serve");
        return service.serve(ctx);
    };
    commit("syslog.file.level", "debug");
    run();
    ASSERT_TRUE(connected(1));
    announce(ipc::master_change_event);
    ASSERT_TRUE(heard.wait_for(2)); // the connection and the event
    commit("module.dna.*", "debug");
    start_up_is_over.set_value();
    ASSERT_TRUE(journal.wait_for(3));
    EXPECT_THAT(journal.entries(), ElementsAre("begin to serve", "master_change", "config_change 52 59"));
}

TEST_F(RealSourcesTest, WhatIsCommittedDuringADeliveryGoesOutAsOneListEachFieldOnce) {
    service.answer = [&](std::string const& event) {
        if (event == "config_change 52") {
            commit("module.alarmmgr.*", "debug");
            commit("syslog.console.level", "info");
            commit("module.alarmmgr.*", "warning");
        }
        return core::success();
    };
    run();
    commit("syslog.file.level", "debug");
    ASSERT_TRUE(journal.wait_for(2));
    EXPECT_THAT(journal.entries(), ElementsAre("config_change 52", "config_change 58 53"));
}

TEST_F(RealSourcesTest, AServiceThatDoesNotFollowTheDatabaseLeavesItsFeedToOthers) {
    launcher.reset();
    wrapper.emplace("SERVICE_CFGDB", database);
    launcher =
        std::make_unique<ServiceLauncher>(std::make_unique<FakeService>(journal), logger, endpoint, false);
    EXPECT_NE(cfgdb::ChangeFeed::take(), nullptr);
}

TEST_F(RealSourcesTest, ABrokerThatIsRestartedIsHeardAgain) {
    run();
    ASSERT_TRUE(connected(1));
    kill_broker();
    start_broker();
    ASSERT_TRUE(test::wait_connected(*peer));
    ASSERT_TRUE(connected(2));
    announce(ipc::master_change_event);
    ASSERT_TRUE(journal.wait_for(1));
    EXPECT_THAT(journal.entries(), ElementsAre("master_change"));
}

TEST_F(RealSourcesTest, ANewCycleOfTheSameProcessFollowsTheDatabaseAgain) {
    run();
    commit("syslog.file.level", "debug");
    ASSERT_TRUE(journal.wait_for(1));
    ASSERT_THAT(launcher->stop(), IsOk());
    ASSERT_THAT(running.get(), IsOk());
    launcher.reset();
    wrapper.reset();
    commit("syslog.kernel.level", "debug"); // read by the new cycle itself

    wrapper.emplace("SERVICE_CFGDB", database);
    launcher =
        std::make_unique<ServiceLauncher>(std::make_unique<FakeService>(journal), logger, endpoint, true);
    run();
    commit("syslog.rsh.level", "debug");
    ASSERT_TRUE(journal.wait_for(3));
    EXPECT_THAT(journal.entries(), ElementsAre("config_change 52", "stop", "config_change 56"));
}

} // namespace
} // namespace xpon::service
