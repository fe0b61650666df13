// watch on the board's message bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/board.hpp"
#include "json_page.hpp"
#include "kit/ipc_ready.hpp"
#include "logctl.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::logctl {
namespace {

class BusWatch : public test::Board {
  protected:
    void SetUp() override { EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence); }

    void notify(std::uint32_t module) const {
        EXPECT_THAT(bus->send(ipc::file_changed_header, ipc::payload_of(ipc::FileChange{module})),
                    test::IsOk());
    }
    void answer(std::uint32_t module, std::uint32_t status) const {
        EXPECT_THAT(bus->send({ipc::everybody, ipc::file_changed_reply, 0},
                              ipc::payload_of(ipc::FileAnswer{module, status})),
                    test::IsOk());
    }

    Logctl logctl;
    std::shared_ptr<ipc::IIpc> bus = ipc::make_zmq_ipc(ipc::any_address, "TEST");
};

TEST_F(BusWatch, ShowsNotificationsAndAnswers) {
    start_broker();
    auto watch = logctl.start({"watch", "--count", "6"});
    ASSERT_TRUE(watch.wait_for_error("connected to the message bus"));
    ASSERT_TRUE(test::wait_connected(*bus));
    notify(9);
    answer(9, 0);
    answer(13, ENOENT);
    EXPECT_THAT(bus->send({ipc::everybody, 7, 0}, {}), test::IsOk()); // nothing of interest
    EXPECT_THAT(bus->send(ipc::file_changed_header, {}), test::IsOk());
    notify(22);
    notify(4711);
    answer(4711, 0);
    auto const outcome = watch.finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(without_times(outcome.out), text(R"(
TIME file of module snmp changed: /etc/zlog_modules_config/SNMP.conf
TIME module snmp reloaded
TIME module cli did not reload: No such file or directory
TIME file of module watchdog changed: it has none
TIME file of module number 4711 changed: it has none
TIME module number 4711 reloaded
)"));
}

TEST_F(BusWatch, PrintsOneObjectPerLineOnRequest) {
    start_broker();
    auto watch = logctl.start({"watch", "--json", "--count", "3"});
    ASSERT_TRUE(watch.wait_for_error("connected to the message bus"));
    ASSERT_TRUE(test::wait_connected(*bus));
    notify(9);
    answer(9, 0);
    answer(22, EACCES);
    auto const out = watch.finish().out;
    std::istringstream objects{out};
    for (std::string object; std::getline(objects, object);) {
        expect_explained("watch", object);
    }
    EXPECT_EQ(without_times(out), text(R"(
{"time":"TIME","event":"notification","module":"snmp","value":9,"file":"SNMP.conf"}
{"time":"TIME","event":"answer","module":"snmp","value":9,"file":"SNMP.conf","status":0,"error":null}
{"time":"TIME","event":"answer","module":"watchdog","value":22,"file":null,"status":13,"error":"Permission denied"}
)"));
}

TEST_F(BusWatch, GoesOnWhileTheBrokerComesAndGoes) {
    auto watch = logctl.start({"watch", "--count", "3"});
    ASSERT_TRUE(watch.wait_for_error("watching"));
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=info"}), silence);
    ASSERT_TRUE(watch.wait_for_output("debug -> info"));
    start_broker();
    ASSERT_TRUE(watch.wait_for_error("connected to the message bus\n"));
    ASSERT_TRUE(test::wait_connected(*bus));
    notify(9);
    ASSERT_TRUE(watch.wait_for_output("SNMP.conf"));
    EXPECT_EQ(broker->process.terminate(), 0);
    start_broker();
    ASSERT_TRUE(watch.wait_for_error("bus\nlogctl: connected to the message bus\n"));
    ASSERT_TRUE(test::wait_connected(*bus));
    notify(13);
    auto const outcome = watch.finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(without_times(outcome.out), text(R"(
TIME admin changed syslog.rsh.level: debug -> info
TIME file of module snmp changed: /etc/zlog_modules_config/SNMP.conf
TIME file of module cli changed: /etc/zlog_modules_config/CLI.conf
)"));
}

} // namespace
} // namespace xpon::logctl
