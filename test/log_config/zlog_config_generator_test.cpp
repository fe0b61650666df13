#include "xpon/log_config/zlog/zlog_config_generator.hpp"

#include <gtest/gtest.h>

namespace xpon::log_config {
namespace {

TEST(ZlogConfigGenerator, TheHeaderIsThese201Characters) {
    EXPECT_EQ(ZlogConfigGenerator{}.get_header(),
              "[global]\n"
              "default format = \"%d(%d %b %T) %-6V %-14.14c - %m [%f:%U:%L]%n\"\n"
              "\n"
              "[formats]\n"
              "for_info = \"%d(%d %b %T) %-6V %-14.14c - %m%n\"\n"
              "for_fatal = \"%d(%d %b %T) CRIT   %-14.14c - %m [%f:%U:%L]%n\"\n"
              "\n"
              "[rules]\n");
    EXPECT_EQ(ZlogConfigGenerator{}.get_header().size(), 201U);
}

TEST(ZlogConfigGenerator, Level0IsTheFatalLineAlone) {
    EXPECT_EQ(ZlogConfigGenerator{}.generate("DNA", 0), "DNA.=FATAL >syslog, LOG_LOCAL0; for_fatal\n");
}

TEST(ZlogConfigGenerator, EveryLevelAddsOneLine) {
    constexpr char const* lines[] = {
        "DNA_IPC.=FATAL >syslog, LOG_LOCAL0; for_fatal\n", "DNA_IPC.=ERROR >syslog, LOG_LOCAL0;\n",
        "DNA_IPC.=WARN >syslog, LOG_LOCAL0; for_info\n",   "DNA_IPC.=NOTICE >syslog, LOG_LOCAL0; for_info\n",
        "DNA_IPC.=INFO >syslog, LOG_LOCAL0; for_info\n",   "DNA_IPC.=DEBUG >syslog, LOG_LOCAL0;\n",
    };
    std::string expected;
    for (unsigned short level = 0; level < 6; ++level) {
        expected += lines[level];
        EXPECT_EQ(ZlogConfigGenerator{}.generate("DNA_IPC", level), expected) << level;
    }
}

TEST(ZlogConfigGenerator, AnyLargerLevelMeansDebug) {
    ZlogConfigGenerator generator;
    auto const debug = generator.generate("DNA", 5);
    for (auto const level : std::initializer_list<unsigned short>{6, 255, 32768, 65535}) {
        EXPECT_EQ(generator.generate("DNA", level), debug) << level;
    }
}

TEST(ZlogConfigGenerator, AnEmptyCategoryYieldsLinesThatBeginWithTheRule) {
    // Of the second there is no text to point at, which the sanitizers watch.
    for (auto const empty : {std::string_view{""}, std::string_view{}}) {
        EXPECT_EQ(ZlogConfigGenerator{}.generate(empty, 1),
                  ".=FATAL >syslog, LOG_LOCAL0; for_fatal\n.=ERROR >syslog, LOG_LOCAL0;\n");
    }
}

} // namespace
} // namespace xpon::log_config
