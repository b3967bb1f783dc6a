// The team builder's folders depend one way: common/ on nothing of the team
// builder's but itself; lobby/ and champselect/ on common/ and not on each
// other's headers in both directions; plugin/ on all of them. A header that
// includes the wrong way fails here with its name and the include. Runs in
// the source tree (the tests' working directory).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr const char* kPrefix = "#include \"teambuilder/";

// Folder of each team-builder header, mapped to the folders its includes name.
std::map<std::string, std::set<std::string>> HeaderIncludes(std::vector<std::string>& wrong,
                                                            const std::set<std::string>& allowed,
                                                            const std::string& folder) {
    std::map<std::string, std::set<std::string>> includes;
    for (const fs::directory_entry& entry : fs::directory_iterator("teambuilder/" + folder)) {
        if (entry.path().extension() != ".h") {
            continue;
        }
        std::ifstream file(entry.path());
        std::string line;
        while (std::getline(file, line)) {
            if (line.rfind(kPrefix, 0) != 0) {
                continue;
            }
            const std::string rest = line.substr(std::string(kPrefix).size());
            const std::string target = rest.substr(0, rest.find('/'));
            includes[entry.path().string()].insert(target);
            if (allowed.count(target) == 0) {
                wrong.push_back(entry.path().string() + ": " + line);
            }
        }
    }
    return includes;
}

TEST(LayoutTest, HeadersIncludeOneWay) {
    ASSERT_TRUE(fs::is_directory("teambuilder/common")) << "run from the source tree";
    std::vector<std::string> wrong;
    HeaderIncludes(wrong, {"common"}, "common");
    const auto lobby = HeaderIncludes(wrong, {"common", "lobby", "champselect"}, "lobby");
    const auto champSelect =
        HeaderIncludes(wrong, {"common", "lobby", "champselect"}, "champselect");
    HeaderIncludes(wrong, {"common", "lobby", "champselect", "plugin"}, "plugin");
    EXPECT_EQ(wrong, std::vector<std::string>());

    auto reaches = [](const std::map<std::string, std::set<std::string>>& headers,
                      const std::string& folder) {
        for (const auto& [header, folders] : headers) {
            if (folders.count(folder) != 0) {
                return true;
            }
        }
        return false;
    };
    EXPECT_FALSE(reaches(lobby, "champselect") && reaches(champSelect, "lobby"))
        << "lobby/ and champselect/ headers include each other";
}

}  // namespace
