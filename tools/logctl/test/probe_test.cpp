// probe, on a board with real programs. XPON_ROUNDS sets the number of random settings.

#include <set>

#include <sys/mount.h>

#include <nlohmann/json.hpp>

#include "integration/terminal.hpp"
#include "json_page.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"
#include "operated_board.hpp"

namespace xpon::logctl {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using Severities = std::set<std::string>;

class Probing : public OperatedBoard {
  protected:
    /// Opens a terminal that gets what passes syslog.rsh.level.
    void open_terminal() {
        terminal.emplace();
        auto const receives = " 1 receiving, 0 stalled\n";
        ASSERT_TRUE(test::wait_until([&] { return status().find(receives) != std::string::npos; }));
    }

    /// Returns when they are in force, and the daemon has nothing left to do.
    void set(std::vector<std::pair<std::string, std::string>> const& settings) const {
        std::vector<std::string> words{"set", "--wait"};
        for (auto const& [path, value] : settings) {
            words.push_back(fmt::format("{}={}", path, value));
        }
        EXPECT_EQ(logctl.run(words), (Outcome{0, "", ""}));
    }

    static std::pair<std::string, std::string> address(int number) {
        return {fmt::format("syslog.remote.{}.address", number), "127.0.0.1"};
    }
    static std::pair<std::string, std::string> port(int number, test::UdpReceiver const& receiver) {
        return {fmt::format("syslog.remote.{}.port", number), std::to_string(receiver.port())};
    }

    /// Lets syslog-ng load its file with the last such place in it replaced. What is edited stays.
    static void load_with(std::string const& from, std::string const& to) {
        auto edited = contents(syslog_ng_conf);
        ASSERT_NE(edited.rfind(from), std::string::npos) << edited;
        edited.replace(edited.rfind(from), from.size(), to);
        test::write_file(syslog_ng_conf, edited);
        shell("syslog-ng-ctl reload");
    }

    /// Without what differs from run to run.
    std::string probe() const {
        static std::regex const token{"[0-9a-f]{8}\""};
        static std::regex const number{R"(port \d+ +)"};
        return std::regex_replace(std::regex_replace(logctl.run({"probe"}).out, token, "TOKEN\""), number,
                                  "port N  ");
    }

    /// The line about a place.
    std::string probe_line(std::string const& place) const { return line_in("\nOUTPUT \n" + probe(), place); }

    std::optional<test::Terminal> terminal;
};

TEST_F(Probing, SaysWhereEachSeverityArrives) {
    start_board();
    test::UdpReceiver const receiver;
    set({address(1), port(1, receiver), {"syslog.rsh.level", "warning"}});
    open_terminal();
    EXPECT_EQ(probe(), text(R"(
PLACE       TO                     EMERG  ALERT  CRIT  ERR   WARNING  NOTICE  INFO  DEBUG  REASON
journal     -                      seen   seen   seen  seen  seen     seen    seen  seen
file        /var/log/system.log.1  -      seen   seen  seen  seen     seen    seen  -
console     /dev/console           -      seen   seen  seen  -        -       -     -
remote 1    127.0.0.1 port N  -      sent   sent  sent  sent     sent    -     -
terminal 0  /dev/pts/0             -      sent   sent  sent  sent     -       -     -

as the settings say; 9 messages "logctl probe TOKEN" were logged
)"));
    EXPECT_EQ(logctl.run({"probe"}).status, 0);
    EXPECT_EQ(logctl.run({"status"}).status, 0);
}

TEST_F(Probing, IsNotMisledByOtherMessages) {
    start_board();
    test::UdpReceiver const receiver;
    set({address(1), port(1, receiver)});
    start_module(); // and one that logs
    auto const chatter = start({XPON_MODULE_APP, "--interval", "150", "--module", "8"});
    ASSERT_TRUE(chatter->wait_ready());
    auto const seen = logctl.run({"probe"});
    EXPECT_EQ(seen.status, 0) << seen.out;
}

TEST_F(Probing, IsOneObjectOnRequest) {
    start_board();
    auto const seen = logctl.run({"probe", "--json"});
    EXPECT_EQ(seen.status, 0);
    expect_explained("probe", seen.out);
    auto object = json::parse(seen.out);
    EXPECT_THAT(object["token"].get<std::string>(), testing::MatchesRegex("[0-9a-f]{8}"));
    object.erase("token");
    EXPECT_EQ(object, json::parse(R"({"as_set": true, "messages": 8, "places": [
        {"place": "journal", "to": "-", "reason": "", "remedy": "", "arrivals":
            {"emerg": "seen", "alert": "seen", "crit": "seen", "err": "seen",
             "warning": "seen", "notice": "seen", "info": "seen", "debug": "seen"}},
        {"place": "file", "to": "/var/log/system.log.1", "reason": "", "remedy": "", "arrivals":
            {"emerg": "filtered", "alert": "seen", "crit": "seen", "err": "seen",
             "warning": "seen", "notice": "seen", "info": "seen", "debug": "filtered"}},
        {"place": "console", "to": "/dev/console", "reason": "", "remedy": "", "arrivals":
            {"emerg": "filtered", "alert": "seen", "crit": "seen", "err": "seen",
             "warning": "filtered", "notice": "filtered", "info": "filtered", "debug": "filtered"}}]})"));
}

TEST_F(Probing, TellsReceiversApartThatHadTheSameAddress) {
    start_board();
    test::UdpReceiver const receiver;
    for (int round = 0; round < 2; ++round) {
        for (int number = 1; number <= 3; ++number) {
            set({{"syslog.remote.1.address", "0.0.0.0"},
                 {"syslog.remote.2.address", "0.0.0.0"},
                 {"syslog.remote.3.address", "0.0.0.0"},
                 address(number),
                 port(number, receiver)});
            auto const seen = logctl.run({"probe"});
            EXPECT_EQ(seen.status, 0) << seen.out;
        }
    }
}

// --- faults

TEST_F(Probing, NamesAReceiverThatIsNotThere) {
    start_board();
    auto gone = std::make_optional<test::UdpReceiver>(); // its port is free again at the end
    set({address(2), port(2, *gone)});
    gone.reset();
    EXPECT_THAT(probe_line("remote 2"),
                testing::ContainsRegex(
                    " port N  -      queued  queued  queued  queued   queued  -     -      nobody takes "
                    "them there: [0-9]+ messages wait; run: logctl reset syslog.remote.2.address"));
    EXPECT_EQ(logctl.run({"probe"}).status, 1);
    set({{"syslog.remote.2.address", "0.0.0.0"}});
    EXPECT_EQ(logctl.run({"probe"}).status, 0);
    test::report(
        "probe: a receiver that is not there\tmade on a board\tnamed, each message refused or queued");
}

TEST_F(Probing, NamesAReceiverThatIsNotThereAlsoIfItGetsOneMessageOnly) {
    start_board();
    auto gone = std::make_optional<test::UdpReceiver>();
    ASSERT_EQ(logctl
                  .run({"set", "syslog.remote.2.address=127.0.0.1",
                        fmt::format("syslog.remote.2.port={}", gone->port()), "syslog.remote.level=critical",
                        "--wait"})
                  .status,
              0);
    gone.reset();
    EXPECT_THAT(probe_line("remote 2"),
                HasSubstr(" -      refused  -     -     -        -       -     -      "));
}

TEST_F(Probing, NamesAFilterThatLetsTooMuchPassOrTooLittle) {
    start_board();
    test::UdpReceiver const receiver;
    set({address(1), port(1, receiver)});
    open_terminal();
    auto const generated = contents(syslog_ng_conf);
    auto const with = [&](std::string const& from, std::string const& to) {
        load_with(from, to);
        test::write_file(syslog_ng_conf, generated);
    };
    auto const because =
        "syslog-ng runs another configuration than the file holds; run: logctl apply syslog-ng";
    with("filter (f_3);\n    destination(d_network1)", "filter (f_5);\n    destination(d_network1)");
    EXPECT_THAT(probe_line("remote 1"),
                HasSubstr(fmt::format(
                    " -      sent   sent  sent  sent     sent    unexpected  unexpected  {}", because)));
    with("filter (f_4);\n    destination(d_file)", "filter (f_1);\n    destination(d_file)");
    EXPECT_THAT(
        probe_line("file"),
        HasSubstr(fmt::format(" -      seen   seen  seen  missing  missing  missing  -      {}", because)));
    with("filter (f_3);\n    destination(d_rsh_0)", "filter (f_2);\n    destination(d_rsh_0)");
    EXPECT_THAT(
        probe_line("terminal 0"),
        HasSubstr(fmt::format(" -      sent   sent  sent  sent     missing  -     -      {}", because)));
    ASSERT_EQ(logctl.run({"apply", "syslog-ng", "--wait"}).status, 0);
    EXPECT_EQ(logctl.run({"probe"}).status, 0);
    test::report(
        "probe: a wrong filter of a receiver, the file, a terminal\tmade on a board\tnamed, each severity");
}

TEST_F(Probing, NamesAReceiverWhoseFilterLetsNothingPass) {
    start_board();
    test::UdpReceiver const receiver;
    set({address(1), port(1, receiver)});
    load_with("filter (f_3);\n    destination(d_network1)",
              "filter { program(\"nobody\") };\n    destination(d_network1)");
    EXPECT_THAT(
        probe_line("remote 1"),
        HasSubstr(
            " -      missing  missing  missing  missing  missing  -     -      /etc/syslog-ng/syslog-ng.conf "
            "is not what the settings ask for; run: logctl apply syslog-ng"));
    EXPECT_EQ(logctl.run({"status"}).status, 1);
}

TEST_F(Probing, WaitsForAFilterThatTakesItsTime) {
    start_board();
    test::UdpReceiver const receiver;
    set({address(1), port(1, receiver)});
    load_with("filter (f_3);\n    destination(d_network1)",
              "filter { not message(\"(.*)(.*)(.*)(.*)(.*)(.*)(.*)nowhere\") };\n"
              "    filter (f_5);\n    destination(d_network1)");
    for (int count = 0; count < 3; ++count) {
        EXPECT_THAT(probe_line("remote 1"),
                    HasSubstr(" -      sent   sent  sent  sent     sent    unexpected  unexpected  "));
    }
}

TEST_F(Probing, NamesAFileThatCannotBeWritten) {
    start_board();
    std::filesystem::create_directories("/run/own/log");
    ASSERT_EQ(logctl.run({"set", "syslog.file.path=/run/own/log/", "--wait"}).status, 0);
    ASSERT_EQ(mount("disk", "/run/own/log", "tmpfs", MS_RDONLY, nullptr), 0);
    shell("syslog-ng-ctl reload");
    EXPECT_THAT(probe_line("file"),
                HasSubstr(" -      missing  missing  missing  missing  missing  missing  -      "
                          "/run/own/log/system.log.1 is not there"));
    EXPECT_EQ(logctl.run({"probe"}).status, 1);
    test::report("probe: a log folder that cannot be written\tmade on a board\tnamed");
}

TEST_F(Probing, SaysThatATerminalHoldsUpEverything) {
    start_board();
    open_terminal();
    Outcome seen{};
    EXPECT_TRUE(test::wait_until([&] { // nobody reads the terminal, which some 4 KiB fill
        for (int count = 0; count < 20; ++count) {
            log(LOG_ERR, unique_token() + std::string(500, 'x'));
        }
        seen = logctl.run({"probe"});
        return !seen.err.empty();
    }));
    EXPECT_THAT(seen.err, HasSubstr("logctl: syslog-ng takes no messages; nobody reads /dev/pts/0"));
    test::report("probe: a terminal that nobody reads\tmade on a board\tnamed, with its holder");
}

TEST_F(Probing, NeedsASyslogNgThatWorksAndRoot) {
    start_board();
    syslog_ng->process.kill(SIGSTOP);
    EXPECT_EQ(logctl.run({"probe"}).err,
              fmt::format("logctl: syslog-ng frozen: syslog-ng is stopped; run: kill -CONT {}\n",
                          syslog_ng->process.pid()));
    syslog_ng->process.kill(SIGKILL);
    syslog_ng->process.wait();
    EXPECT_EQ(
        logctl.run({"probe"}),
        (Outcome{1, "", "logctl: syslog-ng down: syslog-ng does not run; run: systemctl start syslog-ng\n"}));
    if (!become_member()) {
        GTEST_SKIP() << "an ordinary user has no group to give files to";
    }
    EXPECT_EQ(logctl.run({"probe"}),
              (Outcome{1, "", "logctl: needs root, to ask syslog-ng what it did; run: sudo logctl probe\n"}));
}

// --- against what really arrives

Severities captured(std::string const& text, std::string const& token) {
    Severities found;
    std::regex const message{"logctl probe " + token + R"(: message \d+, ([a-z]+))"};
    for (std::sregex_iterator each{text.begin(), text.end(), message}, end; each != end; ++each) {
        found.insert((*each)[1]);
    }
    return found;
}

Severities said(json const& place) {
    Severities found;
    for (auto const& [severity, arrival] : place["arrivals"].items()) {
        if (arrival == "sent" || arrival == "seen") {
            found.insert(severity);
        } else {
            EXPECT_EQ(arrival, "filtered") << place;
        }
    }
    return found;
}

/// The parts run at the same time, each with numbers of its own.
class RandomProbing : public Probing, public testing::WithParamInterface<unsigned> {};
INSTANTIATE_TEST_SUITE_P(, RandomProbing, testing::Range(0U, 4U));

TEST_P(RandomProbing, AgreesWithWhatArrives) {
    start_board();
    open_terminal();
    auto random = test::seeded();
    random.discard(100'000ULL * GetParam());
    constexpr char const* levels[] = {"critical", "error", "warning", "notice", "info", "debug"};
    auto const rounds = test::rounds(50);
    std::size_t compared = 0;
    for (int round = 0; round < rounds; ++round) {
        test::UdpReceiver receivers[3];
        std::vector<std::string> words{"set", "--wait"};
        for (auto const* output : {"file", "console", "remote", "rsh"}) {
            words.push_back(fmt::format("syslog.{}.level={}", output, levels[test::below(random, 6)]));
        }
        for (int number = 1; number <= 3; ++number) {
            words.push_back(fmt::format("syslog.remote.{}.address={}", number,
                                        test::below(random, 2) == 0 ? "127.0.0.1" : "0.0.0.0"));
            words.push_back(fmt::format("syslog.remote.{}.port={}", number, receivers[number - 1].port()));
        }
        ASSERT_EQ(logctl.run(words), (Outcome{0, "", ""}));
        auto const seen = logctl.run({"probe", "--json"});
        ASSERT_EQ(seen.status, 0) << seen.out << seen.err;
        auto const object = json::parse(seen.out);
        std::string const token = object["token"];
        for (auto const& place : object["places"]) {
            std::string const name = place["place"];
            auto const expected = said(place);
            auto const arrived = [&] {
                if (name.starts_with("remote ")) {
                    auto& receiver = receivers[name.back() - '1'];
                    receiver.wait_for("nothing", std::chrono::milliseconds{1});
                    return captured(receiver.received(), token);
                }
                if (name.starts_with("terminal ")) {
                    terminal->wait_for("nothing", std::chrono::milliseconds{1});
                    return captured(terminal->received(), token);
                }
                return name == "journal" ? expected : captured(contents(std::string{place["to"]}), token);
            };
            EXPECT_TRUE(test::wait_until([&] { return arrived() == expected; })) << seen.out;
            compared += expected.size();
        }
        for (auto& receiver : receivers) { // those that are not used get nothing
            if (seen.out.find(fmt::format("port {}\"", receiver.port())) == std::string::npos) {
                receiver.wait_for("nothing", std::chrono::milliseconds{0});
                EXPECT_EQ(captured(receiver.received(), token), Severities{});
            }
        }
    }
    test::report(fmt::format("random settings and logctl probe\t{} settings, {} arrivals compared with what "
                             "was captured\tall agree",
                             rounds, compared));
}

} // namespace
} // namespace xpon::logctl
