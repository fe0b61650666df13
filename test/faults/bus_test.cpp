// The message bus when its broker is replaced, when a peer is hostile to it, and when its files are
// obstructed.
#include <sys/stat.h>
#include <zmq.hpp>

#include "integration/followed_board.hpp"
#include "kit/ipc_ready.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::test {
namespace {

class Bus : public FollowedBoard {};

/// A module of the board, as far as its file goes: reads it at every connection and whenever it is told.
class Module {
  public:
    explicit Module(std::filesystem::path own_file)
      : file{std::move(own_file)} {}

    /// True once what it has read is this text; false at the deadline.
    bool reads(std::string const& wanted) {
        auto const end = std::chrono::steady_clock::now() + default_deadline;
        while (text != wanted) {
            auto const message = next_message(*bus, time_left(end));
            if (!message) {
                return false;
            }
            if (message->header.event == ipc::connected_event ||
                message->header == ipc::file_changed_header) {
                text = read_file(file);
            }
        }
        return true;
    }

  private:
    std::filesystem::path file;
    std::shared_ptr<ipc::IIpc> bus = ipc::make_zmq_ipc(ipc::any_address, "MODULE");
    std::string text;
};

TEST_F(Bus, AModuleThatReachesANewBrokerBeforeTheDaemonDoesIsToldOfEveryChange) {
    start_serving();
    Wanted const wanted{database};
    char const* levels[]{"debug", "info"};
    for (int round = 0; round < rounds(6) && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        auto const change = [&] { set({{"module.snmp.TRAP", levels[round % 2]}}); };
        auto const when = round % 3;
        if (when == 0) {
            change(); // its message may go to the broker that dies
        }
        broker->kill();
        if (when == 1) {
            change();
        }
        start_broker();
        Module module{snmp.path};
        if (when == 2) {
            ASSERT_TRUE(module.reads(wanted(snmp)));
            change(); // the daemon looks for the new broker after a second at the earliest
        }
        EXPECT_TRUE(module.reads(wanted(snmp)));
    }
    EXPECT_EQ(stop_daemon(), 0);
    report("message broker replaced, the module reaches the new one first\tSIGKILL; a change just before, "
           "while there is none, and while only the module is connected\tnothing; the module has read the "
           "newest file after each");
}

TEST_F(Bus, APeerThatSubscribesEndlesslyCostsNoMemoryAndDelaysNobody) {
    start_serving();
    Module module{snmp.path};
    Wanted const wanted{database};
    ASSERT_TRUE(module.reads(wanted(snmp)));
    auto const own_kilobytes_of_broker = [&] { return test::kilobytes(broker->process.pid(), "RssAnon:"); };
    auto const before = own_kilobytes_of_broker();

    zmq::context_t context;
    zmq::socket_t hostile{context, zmq::socket_type::sub};
    hostile.set(zmq::sockopt::linger, 0);
    hostile.set(zmq::sockopt::sndhwm, 0);
    for (int number = 0; number < 80'000; ++number) {
        hostile.set(zmq::sockopt::subscribe, fmt::format("{:0200}", number));
    }
    zmq::socket_t events{context, zmq::socket_type::pair};
    events.set(zmq::sockopt::rcvtimeo, static_cast<int>(default_deadline / std::chrono::milliseconds{1}));
    ASSERT_EQ(zmq_socket_monitor(hostile.handle(), "inproc://events", ZMQ_EVENT_DISCONNECTED), 0);
    events.connect("inproc://events");
    hostile.connect("ipc:///run/xpon/ipc/subscribe");
    zmq::message_t event;
    EXPECT_TRUE(events.recv(event)) << "it is not cut off";

    // It comes back all the time.
    for (char const* level : {"critical", "debug", "info"}) {
        set({{"module.snmp.TRAP", level}});
        EXPECT_TRUE(module.reads(wanted(snmp))) << level;
    }
    auto const grown = own_kilobytes_of_broker() - before;
    fmt::print("the broker has grown by {} kB\n", grown);
    if (!sanitized) {
        EXPECT_LT(grown, 8192);
    }
    EXPECT_EQ(stop_daemon(), 0);
    report("peer subscribes without end\t80 000 subscriptions of 200 bytes\tnothing; no module misses a "
           "change, and the broker grows by less than 8 MB");
}

TEST_F(Bus, TheBrokerStartsWhateverIsInThePlaceOfItsFiles) {
    start_serving();
    std::filesystem::path const folder{"/run/xpon/ipc"};
    broker->kill();
    for (char const* name : {"publish", "subscribe", "lock"}) {
        std::filesystem::remove(folder / name);
    }
    std::filesystem::create_directories(folder / "publish/in");
    ASSERT_EQ(mkfifo((folder / "subscribe").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((folder / "lock").c_str(), 0600), 0);
    start_broker();
    Module module{snmp.path};
    Wanted const wanted{database};
    ASSERT_TRUE(module.reads(wanted(snmp)));
    set({{"module.snmp.TRAP", "critical"}});
    EXPECT_TRUE(module.reads(wanted(snmp)));
    EXPECT_EQ(stop_daemon(), 0);
    report("a FIFO or a folder in the place of the bus's files\tmade while there is no broker\tnothing; "
           "the broker starts");
}

} // namespace
} // namespace xpon::test
