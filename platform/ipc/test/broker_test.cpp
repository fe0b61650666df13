#include <algorithm>
#include <chrono>

#include <sys/stat.h>

#include "test/running_bus.hpp"
#include "test/value_of.hpp"

namespace xpon::ipc {
namespace {

using test::ChildProcess;
using test::IsOk;
using test::next_message;
using testing::ElementsAre;
using testing::HasSubstr;

class BrokerTest : public BusTest {
  protected:
    /// Its exit status.
    static std::optional<int> run(test::Command const& command) { return ChildProcess{command}.wait(); }

    mode_t mode_of(char const* name) const {
        struct stat state{};
        EXPECT_EQ(lstat((folder / name).c_str(), &state), 0) << name;
        return state.st_mode;
    }

    void expect_end_by(int signal) {
        start_broker();
        test::write_file(folder / "foreign", "foreign");
        broker->kill(signal);
        EXPECT_EQ(broker->wait(), 0);
        EXPECT_TRUE(notifications.wait_for("STOPPING=1"));
        EXPECT_THAT(notifications.texts(),
                    ElementsAre("READY=1", "STATUS=Serving " + folder.string(), "STOPPING=1"));
        EXPECT_FALSE(exists(folder / "publish"));
        EXPECT_FALSE(exists(folder / "subscribe"));
        EXPECT_TRUE(exists(folder / "foreign"));
        EXPECT_EQ(output(), "");
    }
};

TEST_F(BrokerTest, SigtermIsAnOrderlyEnd) {
    expect_end_by(SIGTERM);
}

TEST_F(BrokerTest, SigintIsAnOrderlyEnd) {
    expect_end_by(SIGINT);
}

TEST_F(BrokerTest, EndsEvenIfAReceiverDoesNotRead) {
    start_broker();
    auto const sender = new_connected_endpoint();
    auto const idle = new_connected_endpoint();
    for (int count = 0; count < 900; ++count) {
        EXPECT_THAT(sender->send(to(idle->address()), std::vector<std::byte>(1024)), IsOk());
    }
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(broker->terminate(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{5});
}

TEST_F(BrokerTest, SighupChangesNothing) {
    start_broker();
    broker->kill(SIGHUP);
    auto const sender = new_connected_endpoint();
    auto const receiver = new_connected_endpoint();
    expect_traffic(*sender, *receiver);
    EXPECT_EQ(broker->terminate(), 0);
}

TEST_F(BrokerTest, ASecondBrokerIsRefusedAndTheFirstGoesOn) {
    start_broker();
    auto const sender = new_connected_endpoint();
    EXPECT_EQ(run(broker_command()), 1);
    EXPECT_EQ(output(), "ipc-broker: another broker serves " + folder.string() + " (process " +
                            std::to_string(broker->pid()) + ")\n");
    expect_traffic(*sender, *new_connected_endpoint());
}

TEST_F(BrokerTest, LeftoversOfAKilledBrokerDoNotHinderTheNext) {
    start_broker();
    kill_broker();
    EXPECT_TRUE(S_ISSOCK(mode_of("publish")));
    EXPECT_TRUE(S_ISSOCK(mode_of("subscribe")));
    start_broker();
    expect_traffic(*new_connected_endpoint(), *new_connected_endpoint());
}

TEST_F(BrokerTest, StartsWhateverIsInThePlaceOfItsFiles) {
    std::filesystem::create_directories(folder / "publish/in");
    ASSERT_EQ(mkfifo((folder / "subscribe").c_str(), 0600), 0);
    std::filesystem::create_symlink("/etc/passwd", folder / "lock");
    start_broker();
    expect_traffic(*new_connected_endpoint(), *new_connected_endpoint());
}

TEST_F(BrokerTest, ASocketThatIsNoLongerItsOwnStays) {
    start_broker();
    std::filesystem::remove(folder / "publish");
    test::write_file(folder / "publish", "foreign");
    EXPECT_EQ(broker->terminate(), 0);
    EXPECT_EQ(test::read_file(folder / "publish"), "foreign");
    EXPECT_FALSE(exists(folder / "subscribe"));
}

TEST_F(BrokerTest, OnlyTheGroupMayUseTheBusWhateverTheMaskWas) {
    auto command = broker_command();
    command.argv = {"bash", "-c", "umask 0; exec \"$@\"", "bash", IPC_BROKER, "--folder", folder.string()};
    start_broker(command);
    EXPECT_EQ(mode_of(""), S_IFDIR | 02750U);
    EXPECT_EQ(mode_of("publish"), S_IFSOCK | 0660U);
    EXPECT_EQ(mode_of("subscribe"), S_IFSOCK | 0660U);
    EXPECT_EQ(mode_of("lock"), S_IFREG | 0600U);
}

TEST_F(BrokerTest, SaysWhatItCannotDoWithPathAndReason) {
    test::write_file(scratch / "file", "");
    auto const long_name = std::string(100, 'x');
    struct {
        std::string folder;
        std::string message;
    } const cases[]{
        {scratch / "file",
         "cannot open the lock file " + (scratch / "file/lock").string() + ": Not a directory"},
        {scratch / "file/bus",
         "cannot create the folder " + (scratch / "file").string() + ": Not a directory"},
        {scratch / "file/in/bus",
         "cannot create the folder " + (scratch / "file/in").string() + ": Not a directory"},
        {scratch / long_name,
         "cannot listen at " + (scratch / long_name / "publish").string() + ": File name too long"},
    };
    for (auto const& [path, message] : cases) {
        std::filesystem::remove(scratch / "output");
        EXPECT_EQ(run({.argv = {IPC_BROKER, "--folder", path}, .output = scratch / "output"}), 1);
        EXPECT_EQ(output(), "ipc-broker: " + message + "\n");
    }
}

TEST_F(BrokerTest, CommandLine) {
    struct {
        std::vector<std::string> arguments;
        int status;
        std::string output;
    } const cases[]{
        {{"--version"}, 0, "ipc-broker " PROJECT_VERSION "\n"},
        {{"--help"}, 0, "--folder TEXT=/run/xpon/ipc"},
        {{"--nonsense"}, 2, "--nonsense"},
        {{"folder"}, 2, "folder"},
        {{"--folder"}, 2, "--folder"},
    };
    for (auto const& [arguments, status, expected] : cases) {
        std::filesystem::remove(scratch / "output");
        test::Command command{.argv = {IPC_BROKER}, .output = scratch / "output"};
        std::ranges::copy(arguments, std::back_inserter(command.argv));
        EXPECT_EQ(run(command), status) << arguments.front();
        EXPECT_THAT(output(), HasSubstr(expected));
    }
}

std::uint64_t now() {
    using namespace std::chrono;
    return static_cast<std::uint64_t>(
        duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

TEST_F(BrokerTest, TellsEachModulesLastAnswerToWhoeverAsks) {
    start_broker();
    auto const module = new_connected_endpoint();
    auto const asker = new_connected_endpoint();
    auto const begin = now();
    for (auto const& answer : {FileAnswer{38, ENOENT}, FileAnswer{9, 0}, FileAnswer{38, 0}}) {
        EXPECT_THAT(module->send({everybody, file_changed_reply, 0}, payload_of(answer)), IsOk());
        EXPECT_TRUE(test::wait_event(*asker, file_changed_reply));
    }
    EXPECT_THAT(asker->send({asker->address(), last_answers_query, last_answers_reply},
                            payload_of(LastAnswersQuery{asker->address()})),
                IsOk());
    EXPECT_TRUE(test::wait_event(*asker, last_answers_query));
    auto const reply = value_of(next_message(*asker));
    EXPECT_EQ(reply.header, (Header{asker->address(), last_answers_reply, 0}));
    auto const answers = value_of(records_in<LastAnswer>(reply.payload));
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers.at(0), (LastAnswer{9, 0, answers.at(0).time}));
    EXPECT_EQ(answers.at(1), (LastAnswer{38, 0, answers.at(1).time}));
    EXPECT_GE(answers.at(0).time, begin);
    EXPECT_GE(answers.at(1).time, answers.at(0).time);
    EXPECT_LE(answers.at(1).time, now());
}

TEST_F(BrokerTest, AnAnswerIsRememberedEvenIfNobodyHearsIt) {
    start_broker();
    auto const module = new_connected_endpoint();
    EXPECT_THAT(module->send({{1}, file_changed_reply, 0}, payload_of(FileAnswer{38, 0})), IsOk());
    EXPECT_THAT(
        module->send({{1}, last_answers_query, last_event}, payload_of(LastAnswersQuery{module->address()})),
        IsOk());
    auto const reply = value_of(next_message(*module));
    EXPECT_EQ(reply.header, to(module->address(), last_event));
    EXPECT_EQ(reply.payload.size(), sizeof(LastAnswer));
}

} // namespace
} // namespace xpon::ipc
