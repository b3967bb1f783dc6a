#include "framework/log/LogLine.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "framework/log/LogGroups.h"

namespace Orvan::Framework {
namespace {

LogRecord MakeRecord(uint32_t level, uint64_t groups, const char* message) {
    LogRecord record;
    record.time = Platform::LocalTime{2024, 5, 1, 13, 7, 9, 42};
    record.level = level;
    record.groups = groups;
    record.message = message;
    return record;
}

TEST(LogLineTest, Tokens) {
    const struct {
        const char* format;
        uint32_t level;
        uint64_t groups;
        std::string expected;
    } cases[] = {
        {"#D| #L| #G| #M", 1, 1, "2024-05-01T13:07:09.042|   WARN| DBG| hello\n"},
        {"#G", 0, 5, "DBG;XTR\n"},
        {"[#G]", 0, 0, "[]\n"},
        {"<#L>", 0, 0, "<  OKAY>\n"},
        {"<#L>", 2, 0, "< ERROR>\n"},
        {"<#L>", 3, 0, "<ALWAYS>\n"},
        {"#L", 9, 0, "     9\n"},
        {"#E: #M", 2, 0, "prog: hello\n"},
        {"##", 0, 0, "#\n"},
        {"#x#%", 0, 0, "x%\n"},
        {"#M\n", 0, 0, "hello\n"},  // already ends in a line feed: not doubled
        {"", 0, 0, "\n"},
        {"end#", 0, 0, "end#\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FormatLogLine(c.format, MakeRecord(c.level, c.groups, "hello"), "prog"),
                  c.expected)
            << c.format;
    }
}

TEST(LogLineTest, ClockAndThreadTokensHaveTheirShape) {
    std::string line = FormatLogLine("#H|#T", MakeRecord(0, 0, ""), "prog");
    // The thread id as the C runtime prints "%p": 0x and lower case on glibc,
    // zero-padded upper case on Windows.
    EXPECT_TRUE(std::regex_match(line, std::regex("[0-9]{6}\\.[0-9]{3}\\|(0x)?[0-9a-fA-F]+\n")))
        << line;
}

TEST(LogLineTest, LongLineIsCutButKeepsItsLineFeed) {
    std::string message(5000, 'm');
    std::string line = FormatLogLine("#M", MakeRecord(0, 0, message.c_str()), "prog");
    EXPECT_EQ(line.size(), 4095u);
    EXPECT_EQ(line.back(), '\n');
    EXPECT_EQ(line[4093], 'm');
}

TEST(LogLineTest, FileNameTime) {
    EXPECT_EQ(FormatFileNameTime(Platform::LocalTime{2024, 5, 1, 13, 7, 9, 42}),
              "2024-05-01T13-07-09");
}

TEST(LogGroupsTest, PresetsLookupAndNewNames) {
    EXPECT_EQ(LookUpLogGroup("DBG"), 1u);
    EXPECT_EQ(LookUpLogGroup("GEN"), 2u);
    EXPECT_EQ(LookUpLogGroup("TSTX"), 1u << 7);  // first three characters decide
    EXPECT_EQ(LookUpLogGroup(""), 0u);
    EXPECT_EQ(LogGroupName(8), "???");

    uint64_t first = LookUpLogGroup("AAA");
    EXPECT_EQ(first, uint64_t{1} << 8);  // the next index after the presets
    EXPECT_EQ(LookUpLogGroup("AAAzzz"), first);
    EXPECT_EQ(LogGroupName(8), "AAA");
    EXPECT_EQ(LookUpLogGroup("BB"), uint64_t{1} << 9);
    EXPECT_EQ(LogGroupNames((uint64_t{1} << 9) | 4), "XTR;BB");

    // Fill the table; a name beyond entry 63 gets no group.
    for (int i = 10; i < 64; ++i) {
        std::string name = "n" + std::to_string(i);
        EXPECT_EQ(LookUpLogGroup(name), uint64_t{1} << i) << name;
    }
    EXPECT_EQ(LookUpLogGroup("ovf"), 0u);
    EXPECT_EQ(LookUpLogGroup("n63"), uint64_t{1} << 63);
}

}  // namespace
}  // namespace Orvan::Framework
