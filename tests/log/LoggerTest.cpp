#include "framework/log/Logger.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "framework/host/PluginLogTarget.h"
#include "framework/log/FatalReport.h"
#include "framework/log/Log.h"
#include "framework/log/MemoryLogTarget.h"

namespace Orvan::Framework {
namespace {

// A logger of the test's own, with its console targets out of the way and a
// capturing target in their place.
class LoggerTest : public ::testing::Test {
protected:
    LoggerTest() {
        logger_.StdErrTarget().Unregister();
        logger_.DebuggerTarget().Unregister();
        logger_.RegisterTarget(capture_);
    }

    std::vector<std::string> Messages() {
        std::vector<std::string> messages;
        for (auto& entry : capture_.Entries()) {
            messages.push_back(entry.message);
        }
        return messages;
    }

    Logger logger_;
    MemoryLogTarget capture_;
};

TEST_F(LoggerTest, DefaultsAndDropRules) {
    EXPECT_EQ(logger_.MinimumLevel(), 1u);
    EXPECT_EQ(logger_.ExcludedGroups(), 4u);

    logger_.Log(kOkay, kGroupGen, "below minimum");
    logger_.Log(kAlways, kGroupXtr, "xtr");
    logger_.Log(kError, kGroupDbg | kGroupXtr, "shares a bit with XTR");
    logger_.Log(kWarn, kGroupDbg, "kept %d", 1);
    logger_.Log(kWarn, 0, "kept without groups");
    logger_.Disable();
    logger_.Log(kAlways, kGroupDbg, "disabled");
    logger_.Enable();
    logger_.SetMinimumLevel(0);
    logger_.Log(kOkay, kGroupGen, "kept at level %u", 0u);
    logger_.SetExcludedGroups(0);
    logger_.Log(kOkay, kGroupXtr, "kept when XTR is not excluded");

    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"kept 1", "kept without groups", "kept at level 0",
                                        "kept when XTR is not excluded"}));
}

TEST_F(LoggerTest, CountsWarningsAndErrorsThatPass) {
    logger_.Log(kWarn, kGroupDbg, "w");
    logger_.Log(kError, kGroupDbg, "e");
    logger_.Log(kError, kGroupDbg, "e");
    logger_.Log(kError, kGroupXtr, "dropped, not counted");
    logger_.Log(kAlways, kGroupDbg, "a");
    EXPECT_EQ(logger_.WarningCount(), 1u);
    EXPECT_EQ(logger_.ErrorCount(), 2u);
}

TEST_F(LoggerTest, MessageCutAt4095Characters) {
    std::string big(6000, 'b');
    logger_.Log(kWarn, kGroupDbg, "%s", big.c_str());
    ASSERT_EQ(capture_.Entries().size(), 1u);
    EXPECT_EQ(capture_.Entries()[0].message.size(), 4095u);
}

TEST(LogTargetTest, Acceptance) {
    const struct {
        uint32_t targetLevel;
        uint64_t included;
        uint64_t excluded;
        uint32_t level;
        uint64_t groups;
        bool accepted;
    } cases[] = {
        {1, 0, 0, 0, 1, false},                          // below the target's level
        {1, 0, 0, 1, 1, true},  {1, 1, 2, 1, 1, true},   // the stderr target: DBG in, GEN out
        {1, 1, 2, 1, 2, false}, {1, 1, 2, 1, 3, false},  // any excluded bit rejects
        {1, 1, 0, 1, 4, false},                          // no included bit
        {1, 1, 2, 1, 0, true},                           // no groups: only the level counts
        {0, 0, 0, 0, 8, true},
    };
    for (const auto& c : cases) {
        LogTarget target(c.targetLevel, c.included, c.excluded);
        EXPECT_EQ(target.Accepts(c.level, c.groups), c.accepted)
            << "target level " << c.targetLevel << " in " << c.included << " out " << c.excluded
            << " record " << c.level << "/" << c.groups;
    }
}

TEST_F(LoggerTest, OffersRecordsToTargetsInOrderByTheirRules) {
    MemoryLogTarget genOnly(kWarn, kGroupGen, 0, "#L #G #M");
    logger_.RegisterTarget(genOnly);
    logger_.Log(kWarn, kGroupDbg, "dbg");
    logger_.Log(kWarn, kGroupGen, "gen");
    EXPECT_EQ(Messages(), (std::vector<std::string>{"dbg", "gen"}));
    ASSERT_EQ(genOnly.Entries().size(), 1u);
    EXPECT_EQ(genOnly.Entries()[0].line, "  WARN GEN gen\n");
}

TEST_F(LoggerTest, RegistrationAndLookup) {
    MemoryLogTarget other;
    EXPECT_FALSE(logger_.RegisterTarget(capture_));  // already registered
    EXPECT_EQ(logger_.FindTarget("MemoryLogTarget"), &capture_);
    EXPECT_EQ(logger_.FindTarget("StdErrLogTarget"), nullptr);
    EXPECT_TRUE(logger_.RegisterTarget(logger_.StdErrTarget()));
    EXPECT_EQ(logger_.FindTarget("StdErrLogTarget"), &logger_.StdErrTarget());
    logger_.StdErrTarget().Unregister();
    EXPECT_FALSE(logger_.StdErrTarget().IsRegistered());
    EXPECT_FALSE(logger_.UnregisterTarget(other));

    {
        Logger second;
        EXPECT_FALSE(second.RegisterTarget(capture_));  // one logger at a time
        EXPECT_TRUE(second.RegisterTarget(other));
    }
    // The logger's end unregisters its targets; their own end is then harmless.
    EXPECT_FALSE(other.IsRegistered());
}

TEST(LoggerDefaultsTest, DefaultTargets) {
    Logger logger;
    EXPECT_EQ(logger.FindTarget("StdErrLogTarget"), &logger.StdErrTarget());
    EXPECT_EQ(logger.FindTarget("DebuggerConsoleLogTarget"), &logger.DebuggerTarget());
    EXPECT_EQ(logger.FindTarget("StdOutLogTarget"), nullptr);
    EXPECT_EQ(logger.StdErrTarget().LineFormat(), "#E(#T): #L| #M");
    EXPECT_EQ(logger.StdErrTarget().IncludedGroups(), 1u);
    EXPECT_EQ(logger.StdErrTarget().ExcludedGroups(), 2u);
    EXPECT_EQ(logger.StdOutTarget().LineFormat(), "#M");
    EXPECT_EQ(logger.StdOutTarget().IncludedGroups(), 2u);
    EXPECT_EQ(logger.StdOutTarget().ExcludedGroups(), 1u);
    EXPECT_EQ(logger.DebuggerTarget().ExcludedGroups(), 0u);
    EXPECT_NE(logger.ExecutableName().find("LoggerTest"), std::string::npos);
}

// A host table whose log entry records what it is given.
std::vector<std::pair<uint32_t, std::string>> gHostLines;
void QEL_HOST_CALL RecordHostLine(HostApi*, uint32_t level, const char* text) {
    gHostLines.emplace_back(level, text);
}

TEST(PluginLogTargetTest, ModuleSetupSendsLinesToTheHost) {
    HostApi api{};
    api.WriteLog = &RecordHostLine;
    gHostLines.clear();
    Logger logger;

    logger.Log(kOkay, kGroupGen, "before setup");  // minimum level 1: dropped
    auto target = SetUpModuleLogging(logger, &api);
    ASSERT_NE(target, nullptr);
    EXPECT_EQ(logger.MinimumLevel(), 0u);
    EXPECT_EQ(logger.ExcludedGroups(), 4u);
    EXPECT_EQ(logger.FindTarget("StdErrLogTarget"), nullptr);
    EXPECT_EQ(logger.FindTarget("DebuggerConsoleLogTarget"), nullptr);
    EXPECT_EQ(logger.FindTarget("PluginLogTarget"), target.get());
    EXPECT_EQ(target->Level(), 0u);
    EXPECT_EQ(target->LineFormat(), "#D| #L| #G| #M");

    // A second module finds the target in place and makes none.
    EXPECT_EQ(SetUpModuleLogging(logger, &api), nullptr);

    logger.Log(kOkay, kGroupGen, "state %s", "ready");
    logger.Log(kError, kGroupXtr, "excluded");
    EXPECT_EQ(gHostLines, (std::vector<std::pair<uint32_t, std::string>>{{0, "state ready"}}));

    target.reset();  // the module destroys its target
    EXPECT_EQ(logger.FindTarget("PluginLogTarget"), nullptr);
}

TEST(ProcessLoggerTest, LastReleaseUnregistersAndFreesTheLogger) {
    MemoryLogTarget capture(kOkay);
    Logger& logger = Logger::Acquire();
    Logger::Acquire();
    logger.StdErrTarget().Unregister();
    logger.DebuggerTarget().Unregister();
    logger.RegisterTarget(capture);

    Log(kWarn, kGroupDbg, "through the process logger %d", 7);
    Logger::Release();
    EXPECT_TRUE(capture.IsRegistered());
    Logger::Release();
    EXPECT_FALSE(capture.IsRegistered());
    ASSERT_EQ(capture.Entries().size(), 1u);
    EXPECT_EQ(capture.Entries()[0].message, "through the process logger 7");

    // The next use creates a fresh logger with its defaults.
    EXPECT_NE(Logger::Instance().FindTarget("StdErrLogTarget"), nullptr);
}

TEST(FatalReportTest, Text) {
    const struct {
        const char* expression;
        const char* description;
        const char* file;
        uint32_t line;
        const char* function;
        std::string expected;
    } cases[] = {
        {"ALE-6D828C10", "", "", 0, "", "Assertion failed!\n\nExpression: ALE-6D828C10"},
        {"", "", "", 0, "", "Assertion failed!\n\n"},
        {"ALE-1", "broken", "a.cpp", 12, "Run",
         "Assertion failed!\n\nFile: a.cpp\nLine: 12\n\nFunction: Run\n\nExpression: ALE-1"
         "\n\nDescription: broken"},
        {"", "only this", "", 0, "", "Assertion failed!\n\n\n\nDescription: only this"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FatalReportText(c.expression, c.description, c.file, c.line, c.function),
                  c.expected);
    }
}

TEST(FatalReportDeathTest, LogsAndEndsTheProcess) {
    // Line feeds spelled out: GoogleTest's Windows build has only simple
    // expressions, without groups, and its "." never matches a line feed.
    EXPECT_DEATH(QEL_FATAL("ALE-12345678", "cannot go on"),
                 "ERROR\\| Assertion failed!\n\nFile: \\S*LoggerTest\\.cpp\nLine: \\w+\n\n"
                 "Function: \\w+\n\nExpression: ALE-12345678\n\nDescription: cannot go on");
}

}  // namespace
}  // namespace Orvan::Framework
