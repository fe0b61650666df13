#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/board.hpp"
#include "kit/ipc_ready.hpp"
#include "logctl.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::logctl {

/// A board whose operator looks at it.
class OperatedBoard : public test::Board {
  protected:
    void start_board() {
        start_tools();
        start_daemon();
        // READY=1 comes before the first pass; once that has ended, terminals are followed and changes
        // delivered.
        set({{"module.snmp.TRAP", "debug"}});
        ASSERT_TRUE(test::wait_until([&] { return logctl.run({"status"}).status == 0; })) << status();
    }

    /// What it prints, without times.
    std::string status_as_printed() const { return without_times(logctl.run({"status"}).out); }

    /// Without what else differs from run to run.
    std::string status() const {
        static std::regex const process{R"(process \d+)"};
        return std::regex_replace(status_as_printed(), process, "process PID");
    }

    static void shell(std::string const& command) {
        test::ChildProcess process{{.argv = {"sh", "-c", command}}};
        EXPECT_EQ(process.wait(), 0) << command;
    }

    /// The line about one output, or what begins so below the outputs.
    std::string line(std::string const& output) const { return line_in(status(), output); }

    static std::string line_in(std::string const& all, std::string const& output) {
        auto const begin = all.find("\n" + output + " ", all.find("\nOUTPUT ")) + 1;
        return begin == 0 ? "" : all.substr(begin, all.find('\n', begin) - begin);
    }

    bool wait_for_line(std::string const& output, std::string const& expected) const {
        return test::wait_until([&] { return line(output) == expected; });
    }

    void answer(std::uint32_t module, std::uint32_t status_of_module) {
        tell(ipc::file_changed_reply, ipc::payload_of(ipc::FileAnswer{module, status_of_module}));
    }

    void tell(std::uint16_t event, std::vector<std::byte> const& payload) {
        if (!bus) {
            bus = ipc::make_zmq_ipc(ipc::any_address, "TEST");
            ASSERT_TRUE(test::wait_connected(*bus));
        }
        EXPECT_THAT(bus->send({ipc::everybody, event, 0}, payload), test::IsOk());
    }

    /// Lets a member of the board's group run the program; false if there cannot be one.
    bool become_member() {
        if (chown("/run/xpon/ipc", static_cast<uid_t>(-1), 4242) != 0) {
            return false; // an ordinary user has no group to give files to
        }
        shell("chgrp -R 4242 /run/xpon /var/lib/xpon && chmod g+rwX -R /run/xpon /var/lib/xpon");
        logctl.prefix = {"setpriv", "--reuid", "1234", "--regid", "1234", "--groups", "4242"};
        return true;
    }

    /// A real module, SNMP's, that has read its file.
    void start_module() {
        module = start({XPON_MODULE_APP, "--interval", "0"});
        ASSERT_TRUE(module->wait_ready());
        ASSERT_TRUE(wait_for_line("SNMP.conf", "SNMP.conf              ok      ok       ok"));
    }

    Logctl logctl;
    std::shared_ptr<ipc::IIpc> bus;
    std::unique_ptr<test::Program> module;
};

} // namespace xpon::logctl
