// Sessions recorded through the host and replayed against the plugin: a
// recording replays clean and comes out the same on every run, a plugin
// that behaves differently is caught at the step where it does, and a file
// that is not a usable session is refused with the line that is wrong.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "host/Demo.h"
#include "host/Replay.h"
#include "host/SessionRecord.h"
#include "tests/support/HostProgram.h"

namespace Orvan::Host {
namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string Join(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

// This program's own folder, removed when it ends.
fs::path TempFolder() {
    struct Folder {
        fs::path path =
            fs::temp_directory_path() / ("qel-session-test-" + std::to_string(::getpid()));
        Folder() { fs::create_directories(path); }
        ~Folder() {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    };
    static const Folder folder;
    return folder.path;
}

// A scenario recorded once per test program, at full speed.
const std::string& Recorded(const std::string& scenario) {
    static std::map<std::string, std::string> sessions;
    auto found = sessions.find(scenario);
    if (found != sessions.end()) {
        return found->second;
    }
    const fs::path path = TempFolder() / (scenario + ".jsonl");
    SessionRecorder recorder;
    std::string error;
    SessionHeader header{"demo", scenario, 7, "{\"speed\":\"max\"}"};
    EXPECT_TRUE(recorder.Open(path.string(), header, error)) << error;
    DemoOptions options;
    options.scenario = scenario;
    options.speed = 0.0;
    options.seed = 7;
    options.detail = 0;
    options.plugin.path = DefaultPluginPath();
    std::FILE* sink = std::fopen("/dev/null", "w");
    options.out = sink;
    options.recorder = &recorder;
    EXPECT_EQ(RunDemo(options).exitCode, 0);
    std::fclose(sink);
    EXPECT_TRUE(recorder.Close(error)) << error;
    return sessions[scenario] = ReadFile(path);
}

ReplayResult Replay(const std::string& text, bool keepGoing = false,
                    const std::string& plugin = DefaultPluginPath()) {
    std::string error;
    SessionPointer session = ParseSession(text, error);
    EXPECT_NE(session, nullptr) << error;
    if (session == nullptr) {
        return {};
    }
    ReplayOptions options;
    options.plugin.path = plugin;
    options.keepGoing = keepGoing;
    return ReplaySession(*session, options);
}

// The index of the first line holding `needle`, or 0.
size_t LineWith(const std::vector<std::string>& lines, const std::string& needle) {
    for (size_t i = 1; i < lines.size(); ++i) {
        if (lines[i].find(needle) != std::string::npos) {
            return i;
        }
    }
    return 0;
}

TEST(SessionReplay, ARecordedScenarioReplaysCleanAndRecordsTheSameEveryTime) {
    const std::string& first = Recorded("decline");
    const ReplayResult result = Replay(first);
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_TRUE(result.divergences.empty()) << DescribeDivergence(result.divergences[0]);
    EXPECT_EQ(result.steps + 1, Lines(first).size());

    // The plugin read its clocks through the seam, and was given the
    // simulated ones: a second recording is the same byte for byte.
    EXPECT_NE(first.find("\"k\":\"clock\",\"clock\":\"system\",\"value\":176722"),
              std::string::npos);
    const fs::path again = TempFolder() / "again.jsonl";
    SessionRecorder recorder;
    std::string error;
    ASSERT_TRUE(
        recorder.Open(again.string(), {"demo", "decline", 7, "{\"speed\":\"max\"}"}, error));
    DemoOptions options;
    options.scenario = "decline";
    options.speed = 0.0;
    options.seed = 7;
    options.detail = 0;
    options.plugin.path = DefaultPluginPath();
    std::FILE* sink = std::fopen("/dev/null", "w");
    options.out = sink;
    options.recorder = &recorder;
    RunDemo(options);
    std::fclose(sink);
    ASSERT_TRUE(recorder.Close(error));
    EXPECT_EQ(ReadFile(again), first);
}

TEST(SessionReplay, RepeatedPayloadsAreWrittenOnceAndReadBack) {
    const std::string& text = Recorded("kicked");
    EXPECT_NE(text.find("\"same\":"), std::string::npos);
    // Naming the wrong earlier step changes a payload: a divergence, not a
    // refusal.
    std::vector<std::string> lines = Lines(text);
    const size_t line = LineWith(lines, "\"same\":");
    ASSERT_GT(line, 0u);
    const size_t at = lines[line].find("\"same\":") + 7;
    const size_t end = lines[line].find_first_of(",}", at);
    const size_t named = std::stoul(lines[line].substr(at, end - at));
    // Step n is line n; an earlier step with a payload of another value.
    size_t other = 0;
    for (size_t i = 1; i < named; ++i) {
        if (lines[i].find("\"data\":{") != std::string::npos) {
            other = i;
        }
    }
    ASSERT_GT(other, 0u);
    lines[line].replace(at, end - at, std::to_string(other));
    const ReplayResult result = Replay(Join(lines));
    EXPECT_EQ(result.exitCode, 1);
}

TEST(SessionReplay, AChangedOutputIsCaughtAtItsStepWithAFieldDiff) {
    std::vector<std::string> lines = Lines(Recorded("kicked"));
    const size_t line = LineWith(lines, "\"k\":\"emit\"");
    ASSERT_GT(line, 0u);
    // A value inside the event's data, changed in the recording.
    const size_t colon = lines[line].find("\"eventType\":\"");
    ASSERT_NE(colon, std::string::npos);
    lines[line].replace(colon, 13, "\"eventType\":\"X");
    const ReplayResult result = Replay(Join(lines));
    EXPECT_EQ(result.exitCode, 1);
    // The next event names the same payload: it differs as well.
    ASSERT_FALSE(result.divergences.empty());
    const Divergence& divergence = result.divergences[0];
    EXPECT_EQ(divergence.line, line + 1);
    EXPECT_EQ(divergence.step, line);
    ASSERT_FALSE(divergence.differences.empty());
    EXPECT_EQ(divergence.differences[0].rfind("data.eventType: expected \"X", 0), 0u)
        << divergence.differences[0];
    EXPECT_FALSE(divergence.before.empty());
}

using Testing::RunHostProgram;

// The command, run as a user runs it: the plugin is left waiting for what
// the recording cannot give, so the run ends the process.
TEST(SessionReplay, ARequestTheRecordingCannotAnswerIsADivergenceNotAHang) {
    std::vector<std::string> lines = Lines(Recorded("kicked"));
    // The local player asks for another first position than recorded, so
    // the plugin asks the service something the recording never heard.
    const size_t line = LineWith(lines, "/v2/position-preferences");
    ASSERT_GT(line, 0u);
    const size_t at = lines[line].find("MIDDLE");
    ASSERT_NE(at, std::string::npos);
    lines[line].replace(at, 6, "JUNGLE");
    const fs::path path = TempFolder() / "jungle.jsonl";
    WriteFile(path, Join(lines));
    for (const char* mode : {"", " --keep-going"}) {
        std::string output;
        EXPECT_EQ(RunHostProgram("replay " + path.string() + mode, output), 1) << output;
        EXPECT_NE(output.find("not in the recording: answered with a failure"), std::string::npos)
            << output;
        EXPECT_NE(output.find("JUNGLE"), std::string::npos) << output;
        EXPECT_NE(output.find("expected  request POST /qel-login/"), std::string::npos) << output;
    }
    // And the statuses of a clean run and of a file that is no session.
    const fs::path clean = TempFolder() / "clean.jsonl";
    WriteFile(clean, Recorded("kicked"));
    std::string output;
    EXPECT_EQ(RunHostProgram("replay " + clean.string(), output), 0) << output;
    EXPECT_NE(output.find("all " + std::to_string(lines.size() - 1) + " steps match"),
              std::string::npos)
        << output;
    WriteFile(clean, Join(std::vector<std::string>(lines.begin(), lines.begin() + 20)));
    output.clear();
    EXPECT_EQ(RunHostProgram("replay " + clean.string(), output), 2) << output;
    EXPECT_NE(output.find("line 20: the session is cut short"), std::string::npos) << output;
}

TEST(SessionReplay, AnAlteredPluginIsCaughtWhereItsLogTextDiffers) {
    // The plugin built here with one log text changed in its image.
    std::string image = ReadFile(DefaultPluginPath());
    const std::string text = "Concurrent requests: ";
    const size_t at = image.find(text);
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(image.find(text, at + 1), std::string::npos);
    image[at + 11] = 'R';
    const fs::path folder = TempFolder() / "altered";
    fs::create_directories(folder);
    const fs::path altered = folder / fs::path(DefaultPluginPath()).filename();
    WriteFile(altered, image);

    const std::string& session = Recorded("kicked");
    const size_t line = LineWith(Lines(session), "Concurrent requests: ");
    ASSERT_GT(line, 0u);
    const ReplayResult result = Replay(session, false, altered.string());
    EXPECT_EQ(result.exitCode, 1);
    ASSERT_FALSE(result.divergences.empty());
    EXPECT_EQ(result.divergences[0].line, line + 1);
    ASSERT_EQ(result.divergences[0].differences.size(), 1u);
    EXPECT_NE(result.divergences[0].differences[0].find("came \"qel-lobby-team-builder: "
                                                        "Concurrent Requests: "),
              std::string::npos)
        << result.divergences[0].differences[0];
}

TEST(SessionReplay, AForeignApiDescriptionIsAWarningNotARefusal) {
    std::vector<std::string> lines = Lines(Recorded("kicked"));
    const size_t at = lines[0].find("fnv1a64:");
    ASSERT_NE(at, std::string::npos);
    lines[0].replace(at + 8, 16, "0123456789abcdef");
    const ReplayResult result = Replay(Join(lines));
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_NE(result.warnings[0].find("another API description"), std::string::npos);
}

// Files that are not usable sessions: each is refused with its line.
TEST(SessionReplay, RefusesFilesThatAreNotUsableSessionsNamingTheLine) {
    const std::vector<std::string> good = Lines(Recorded("kicked"));
    const size_t last = good.size();  // the "end" line's number
    struct Case {
        const char* what;
        std::function<std::string()> text;
        std::string error;
    };
    auto edited = [&](size_t index, const std::string& line) {
        return [=] {
            std::vector<std::string> lines = good;
            lines[index] = line;
            return Join(lines);
        };
    };
    const Case cases[] = {
        {"empty", [] { return std::string(); }, "line 1: an empty file"},
        {"not JSON", [] { return std::string("hello\n"); }, "line 1: not a qel-host session"},
        {"another format", [] { return std::string("{\"format\":\"x\",\"version\":1}\n"); },
         "line 1: not a qel-host session"},
        {"unknown version",
         edited(0,
                std::string(good[0]).replace(good[0].find("\"version\":1"), 11, "\"version\":9")),
         "line 1: session format version 9 is not one this host reads"},
        {"cut inside a line", [&] { return Join(good).substr(0, Join(good).size() / 2); },
         "(the file is cut short in this line)"},
        {"cut between lines",
         [&] {
             std::vector<std::string> lines(good.begin(), good.begin() + 12);
             return Join(lines);
         },
         "line 12: the session is cut short after this line"},
        {"malformed line", edited(5, "{\"t\":1,\"k\":\"log\""), "line 6: not JSON"},
        {"unknown kind", edited(5, "{\"t\":1,\"k\":\"teleport\"}"),
         "line 6: an unknown kind of step \"teleport\""},
        {"missing field", edited(5, "{\"t\":1,\"k\":\"log\",\"level\":3}"),
         "line 6: a \"log\" step needs \"text\" (a text)"},
        {"field of another type",
         edited(5, "{\"t\":1,\"k\":\"log\",\"level\":\"3\",\"text\":\"\"}"),
         "line 6: a \"log\" step needs \"level\" (a whole number)"},
        {"no time", edited(5, "{\"k\":\"turn\"}"), "line 6: a \"turn\" step without its time"},
        {"closer out of place", edited(1, "{\"t\":0,\"k\":\"turned\"}"),
         "line 2: \"turned\" closes no \"turn\""},
        {"payload named from nowhere",
         edited(5, "{\"t\":0,\"k\":\"emit\",\"name\":\"e\",\"same\":999999}"),
         "line 6: \"same\" must name an earlier step"},
        {"a step after the end", [&] { return Join(good) + "{\"t\":0,\"k\":\"turn\"}\n"; },
         "line " + std::to_string(last + 1) + ": a step after \"end\""},
    };
    for (const Case& c : cases) {
        std::string error;
        EXPECT_EQ(ParseSession(c.text(), error), nullptr) << c.what;
        EXPECT_NE(error.find(c.error), std::string::npos) << c.what << ": " << error;
    }
}

}  // namespace
}  // namespace Orvan::Host
