#include "integration/followed_board.hpp"

#include <algorithm>
#include <array>
#include <span>

#include <zmq.hpp>

#include "kit/ipc_ready.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A subscriber that knows nothing of this project's library: what it gets is what travels.
class RawSubscriber {
  public:
    RawSubscriber() {
        socket.set(zmq::sockopt::subscribe, "");
        socket.connect("ipc:///run/xpon/ipc/subscribe");
    }

    /// The next frame to everybody that is no probe; empty if none comes.
    std::vector<std::uint8_t> next() {
        static constexpr std::array<std::uint8_t, 4> to_everybody{0xFE, 0xFF, 0, 0};
        socket.set(zmq::sockopt::rcvtimeo, static_cast<int>(default_deadline / std::chrono::milliseconds{1}));
        zmq::message_t message;
        while (socket.recv(message)) {
            auto const* const bytes = static_cast<std::uint8_t const*>(message.data());
            std::vector<std::uint8_t> const frame{bytes, bytes + message.size()};
            if (frame.size() > probe_size && std::ranges::equal(to_everybody, std::span{frame}.first(4))) {
                return frame;
            }
        }
        return {};
    }

    /// Until it hears what others say: a subscription takes a while to arrive.
    bool wait_connected() {
        auto const bus = ipc::make_zmq_ipc(ipc::any_address, "PROBE");
        socket.set(zmq::sockopt::rcvtimeo, 20);
        return wait_until([&] {
            zmq::message_t message;
            return bus->send({ipc::everybody, 1, 0}, {}).has_value() && socket.recv(message).has_value();
        });
    }

  private:
    static constexpr std::size_t probe_size = sizeof(ipc::Header);

    zmq::context_t context{1};
    zmq::socket_t socket{context, zmq::socket_type::sub};
};

class Changes : public FollowedBoard {};

TEST_F(Changes, AModuleIsToldThatItsFileChangedByTheseBytes) {
    start_everything();
    RawSubscriber subscriber;
    ASSERT_TRUE(subscriber.wait_connected());
    set({{"module.snmp.TRAP", "debug"}});
    EXPECT_THAT(subscriber.next(), ElementsAre(0xFE, 0xFF, 0, 0, 0xD4, 0x30, 0xD5, 0x30, 9, 0, 0, 0));
    EXPECT_THAT(read_file(snmp.path), HasSubstr("SNMP_TRAP.=DEBUG "));
}

TEST_F(Changes, TheReaderOfASharedFileIsToldUnderItsOwnNumber) {
    start_everything();
    RawSubscriber subscriber;
    ASSERT_TRUE(subscriber.wait_connected());
    set({{"module.igmp.SELF", "debug"}}); // module 3; its levels stand in the file that module 1 reads
    EXPECT_THAT(subscriber.next(), ElementsAre(0xFE, 0xFF, 0, 0, 0xD4, 0x30, 0xD5, 0x30, 1, 0, 0, 0));
    EXPECT_THAT(read_file(log_config::find_output("DNA.conf")->path), HasSubstr("IGMP.=DEBUG "));
}

TEST_F(Changes, ASessionManagersChangeCostsNoOtherModuleItsOwn) {
    start_everything();
    auto const before = read_file(session_manager.path);
    auto const settings = a_change_of_every_module("debug");
    ASSERT_EQ(settings.size(), 18);
    set(settings);
    expect_in_step();
    EXPECT_EQ(read_file(session_manager.path), before) << "it is rewritten at the next start";
    signal_daemon(SIGHUP);
    ASSERT_TRUE(daemon->wait_ready());
    Wanted const wanted{database};
    EXPECT_EQ(read_file(session_manager.path), wanted(session_manager));
    EXPECT_NE(read_file(session_manager.path), before);
}

TEST_F(Changes, LeaveTheFilesOfOtherModulesAlone) {
    start_everything();
    std::map<std::string, std::filesystem::file_time_type> before;
    for (auto const& output : log_config::outputs()) {
        before[output.path] = std::filesystem::last_write_time(output.path);
    }
    set({{"syslog.kernel.level", "debug"}, {"module.snmp.TRAP", "debug"}});
    expect_in_step();
    for (auto const& [path, time] : before) {
        EXPECT_EQ(std::filesystem::last_write_time(path) == time, path != printk && path != snmp.path)
            << path;
    }
}

TEST_F(Changes, TakeEffectInARunningModuleAndAtTheReceiver) {
    UdpReceiver receiver;
    set({{"syslog.remote.1.address", "127.0.0.1"},
         {"syslog.remote.1.port", std::to_string(receiver.port())},
         {"syslog.remote.level", "debug"},
         {"syslog.file.level", "debug"}});
    start_everything();
    auto const module = start({XPON_MODULE_APP, "--interval", "50"});
    ASSERT_TRUE(module->wait_ready());
    ASSERT_TRUE(wait_for_text(log_file, ", notice."));
    ASSERT_TRUE(receiver.wait_for(", notice."));
    EXPECT_THAT(contents(log_file), Not(HasSubstr(", debug.")));

    set({{"module.snmp.TRAP", "debug"}});
    EXPECT_TRUE(wait_for_text(log_file, ", debug."));
    EXPECT_TRUE(receiver.wait_for(", debug."));

    set({{"syslog.remote.level", "error"}});
    // In force once an error passes that was sent after a warning that does not.
    EXPECT_TRUE(wait_until([&] {
        auto const warning = unique_token();
        auto const error = unique_token();
        log(LOG_WARNING, warning);
        log(LOG_ERR, error);
        return receiver.wait_for(error) && receiver.received().find(warning) == std::string::npos;
    }));
    auto const length = receiver.received().size();
    auto const last = unique_token();
    log(LOG_ERR, last);
    EXPECT_TRUE(receiver.wait_for(last));
    EXPECT_THAT(receiver.received().substr(length), Not(HasSubstr(", debug.")));
    EXPECT_TRUE(wait_for_text(log_file, last));
    EXPECT_EQ(module->process.terminate(), 0);
    EXPECT_THAT(notified(), testing::SizeIs(2)) << "the daemon was not restarted";
}

/// A module's answers on the bus.
class Answers : public Changes {
  protected:
    void start_module_alone() {
        std::filesystem::create_directories("/run/xpon");
        start_journald();
        start_broker();
        bus = ipc::make_zmq_ipc(ipc::any_address, "TEST");
        ASSERT_TRUE(wait_connected(*bus));
        module = start({XPON_MODULE_APP, "--interval", "0"});
        ASSERT_TRUE(module->wait_ready());
    }

    std::optional<ipc::FileAnswer> next_answer() {
        while (auto const message = next_message(*bus)) {
            if (message->header.event == ipc::file_changed_reply) {
                return ipc::record_in<ipc::FileAnswer>(message->payload);
            }
        }
        return std::nullopt;
    }

    void tell_module(std::uint32_t number) {
        EXPECT_THAT(bus->send(ipc::file_changed_header, ipc::payload_of(ipc::FileChange{number})), IsOk());
    }

    std::shared_ptr<ipc::IIpc> bus;
    std::unique_ptr<Program> module;
};

TEST_F(Answers, AModuleAnswersWhenItReachesTheBusAndAfterEachNotification) {
    write_file(snmp.path, golden("zlog_defaults/SNMP.conf"));
    start_module_alone();
    EXPECT_EQ(next_answer(), (ipc::FileAnswer{9, 0}));
    tell_module(8); // another's
    tell_module(9);
    EXPECT_EQ(next_answer(), (ipc::FileAnswer{9, 0}));
    write_file(snmp.path, "[rules]\nno rule\n");
    tell_module(9);
    EXPECT_EQ(next_answer(), (ipc::FileAnswer{9, EINVAL}));
    std::filesystem::remove(snmp.path);
    tell_module(9);
    EXPECT_EQ(next_answer(), (ipc::FileAnswer{9, ENOENT}));
}

TEST_F(Answers, AModuleThatMissedANotificationReadsItsFileWhenTheBrokerIsBack) {
    start_module_alone();
    EXPECT_EQ(next_answer(), (ipc::FileAnswer{9, ENOENT}));
    broker->kill();
    write_file(snmp.path, golden("zlog_defaults/SNMP.conf"));
    module->process.kill(SIGSTOP); // so that its answer comes when it is listened for
    start_broker();
    ASSERT_TRUE(wait_connected(*bus));
    module->process.kill(SIGCONT);
    auto answer = next_answer();
    if (answer == ipc::FileAnswer{9, ENOENT}) {
        answer = next_answer(); // the broker may have died before that one had passed it: it comes once more
    }
    EXPECT_EQ(answer, (ipc::FileAnswer{9, 0}));
}

TEST_F(Answers, TheExampleRefusesWhatItDoesNotKnow) {
    auto const run = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), XPON_MODULE_APP);
        return ChildProcess{{.argv = arguments, .environment = {}, .output = scratch / "out"}}.wait();
    };
    EXPECT_EQ(run({"--module", "snmp"}), 2);
    EXPECT_THAT(read_file(scratch / "out"), HasSubstr("--module"));
    EXPECT_EQ(run({"--interval", "-1"}), 2);
    EXPECT_EQ(run({"--category", ""}), 1);
    EXPECT_THAT(read_file(scratch / "out"), HasSubstr("module-app: a logger needs a category\n"));
}

} // namespace
} // namespace xpon::test
