// Every file of the public JSON parsing suite, read as a request body is read
// (the bytes up to the first NUL), must be accepted or rejected exactly as
// RapidJSON's reader with default flags does, with the same message and
// offset. The only differences are recorded below.
#include <gtest/gtest.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "framework/codec/Json.h"

namespace Orvan::Framework {
namespace {

const char kSuite[] = "../shared/testdata/json-test-suite";

// Where the reader deliberately differs from a plain RapidJSON reader.
const std::map<std::string, std::string> kExpectedDifferences = {
    // An empty or all-blank body reads as "empty".
    {"n_structure_no_data.json", ""},
    {"n_single_space.json", ""},
    {"i_string_utf16BE_no_BOM.json", ""},  // begins with a NUL byte
    // Nesting deeper than 512 stops the parse at the 513th opening bracket.
    {"n_structure_100000_opening_arrays.json",
     "Error: Terminate parsing due to Handler error. at offset 513."},
    // "[{\"\":" repeated: the 513th container opens at byte 1280.
    {"n_structure_open_array_object.json",
     "Error: Terminate parsing due to Handler error. at offset 1281."},
};

std::string ReadFileUpToNul(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    std::string text = bytes.str();
    return text.substr(0, text.find('\0'));
}

// The reference outcome: "" when accepted, else the message in our format.
std::string Reference(const std::string& text) {
    rapidjson::Reader reader;
    rapidjson::BaseReaderHandler<> ignore;
    rapidjson::StringStream stream(text.c_str());
    rapidjson::ParseResult result = reader.Parse<rapidjson::kParseDefaultFlags>(stream, ignore);
    if (!result.IsError()) {
        return "";
    }
    return std::string("Error: ") + rapidjson::GetParseError_En(result.Code()) + " at offset " +
           std::to_string(result.Offset()) + ".";
}

TEST(JsonSuite, AcceptsAndRejectsAsTheReferenceReader) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(kSuite)) {
        if (entry.path().extension() == ".json") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    ASSERT_GT(files.size(), 300u) << "suite not found from " << std::filesystem::current_path();

    size_t checked = 0;
    for (const auto& path : files) {
        const std::string name = path.filename().string();
        const std::string text = ReadFileUpToNul(path);
        Maybe<BindingProperty> read = ReadJson(text);
        const std::string ours = read ? "" : read.GetFailure().message;

        auto difference = kExpectedDifferences.find(name);
        if (difference != kExpectedDifferences.end()) {
            EXPECT_EQ(ours, difference->second) << name;
            if (difference->second.empty()) {
                EXPECT_TRUE(read && read->IsEmpty()) << name;
            }
            continue;
        }
        EXPECT_EQ(ours, Reference(text)) << name;
        ++checked;
    }
    EXPECT_EQ(checked + kExpectedDifferences.size(), files.size());
}

}  // namespace
}  // namespace Orvan::Framework
