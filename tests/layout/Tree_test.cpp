// The project's own tree held against its rules.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include "layout/IncludeRules.h"

namespace kavaro::layout {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

const fs::path root = KAVARO_SOURCE_DIR;

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The paths of all C++ files below root/`folder`, relative to that folder, sorted.
std::vector<std::string> sourcesBelow(const std::string& folder) {
    std::vector<std::string> paths;
    for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
        const std::string extension = entry.path().extension();
        if (extension == ".h" || extension == ".cpp") paths.push_back(entry.path().lexically_relative(root / folder));
    }
    std::ranges::sort(paths);
    return paths;
}

// Lines "path: N lines, at most M" for the files below `folder` with that extension that are longer than M lines.
std::vector<std::string> tooLong(const std::string& folder, std::string_view extension, long most) {
    std::vector<std::string> faults;
    for (const std::string& path : sourcesBelow(folder)) {
        if (!path.ends_with(extension)) continue;
        const std::string text = contents(root / folder / path);
        const long lines = std::ranges::count(text, '\n');
        if (lines > most) {
            faults.push_back(folder + "/" + path + ": " + std::to_string(lines) + " lines, at most " +
                             std::to_string(most));
        }
    }
    return faults;
}

TEST(Tree, everyIncludeIsAllowed) {
    const std::vector<std::string> paths = sourcesBelow("src");
    ASSERT_GT(paths.size(), 20u);
    std::vector<std::string> faults;
    size_t includes = 0;
    for (const std::string& path : paths) {
        const std::string text = contents(root / "src" / path);
        includes += includesIn(text).size();
        std::ranges::move(includeFaults(root / "src", path, text), std::back_inserter(faults));
    }
    EXPECT_GT(includes, 100u);
    EXPECT_THAT(faults, IsEmpty());
}

// The build makes one library of the sources that lie directly in a declared room; a deeper folder would be left out.
TEST(Tree, everySourceIsBuilt) {
    const std::string lists = contents(root / "CMakeLists.txt");
    std::set<std::string> folders = {"model/serialization"};
    const std::regex room("kavaro_room\\((\\w+)\\s+(?:FOLDER (\\S+))?");
    for (std::sregex_iterator found(lists.begin(), lists.end(), room), end; found != end; ++found) {
        folders.insert((*found)[2].matched ? (*found)[2] : (*found)[1]);
    }
    EXPECT_GT(folders.size(), 5u);
    std::vector<std::string> faults;
    for (const std::string& path : sourcesBelow("src")) {
        if (path.ends_with(".cpp") && !folders.contains(fs::path(path).parent_path())) faults.push_back(path);
    }
    EXPECT_THAT(faults, IsEmpty());
}

// The build makes one program of every folder of tests/ with all that is below it: only a test beside those folders
// would never run.
TEST(Tree, everyTestIsInAFolderThatIsBuilt) {
    std::vector<std::string> faults;
    for (const std::string& path : sourcesBelow("tests")) {
        if (path.ends_with(".cpp") && path.find('/') == std::string::npos) faults.push_back(path);
        const bool test = contents(root / "tests" / path).find("\nTEST") != std::string::npos;
        if (test && !path.ends_with("_test.cpp")) faults.push_back(path + ": its name does not end in _test.cpp");
    }
    EXPECT_THAT(faults, IsEmpty());
}

// Paths in backticks of the page that says what proves what, and those of the test files in the tree.
TEST(Tree, everyTestStandsInTheDocs) {
    const std::string page = contents(root / "docs/testing.md");
    const std::regex name("`([\\w/]+_test\\.(?:cpp|sh|py))`");
    std::set<std::string> named;
    for (std::sregex_iterator found(page.begin(), page.end(), name), end; found != end; ++found) {
        named.insert((*found)[1]);
    }
    std::set<std::string> present;
    for (const auto& entry : fs::recursive_directory_iterator(root / "tests")) {
        const std::string path = entry.path().lexically_relative(root / "tests");
        if (std::regex_match("`" + path + "`", name)) present.insert(path);
    }
    EXPECT_GT(present.size(), 50u);
    std::vector<std::string> gone, unnamed;
    std::ranges::set_difference(named, present, std::back_inserter(gone));
    std::ranges::set_difference(present, named, std::back_inserter(unnamed));
    EXPECT_THAT(gone, IsEmpty()) << "named in docs/testing.md, but not there";
    EXPECT_THAT(unnamed, IsEmpty()) << "needs a row in docs/testing.md";
}

TEST(Tree, headersStayShort) {
    EXPECT_THAT(tooLong("src", ".h", 200), IsEmpty());
}

TEST(Tree, sourcesStayShort) {
    EXPECT_THAT(tooLong("src", ".cpp", 550), IsEmpty());
}

TEST(Tree, testsStayShort) {
    EXPECT_THAT(tooLong("tests", ".cpp", 900), IsEmpty());
}

TEST(Tree, theLengthCheckCounts) {
    EXPECT_FALSE(tooLong("src", ".h", 3).empty());
}

}  // namespace
}  // namespace kavaro::layout
