// The floors of the house: a file includes only from its own floor and those below, and no include circle
// exists.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// A room: where it lies, the directories that its includes are written from, and the rooms it may include.
struct Room {
    std::string folder;
    std::set<std::string> mayInclude;
};

const std::vector<Room>& rooms() {
    static const std::vector<Room> all = {
        {"QMFramework92", {}},
        {"ReceiverLib/include", {}},
        {"ReceiverLib/phone", {}},
        {"ReceiverLib/private", {"ReceiverLib/include", "ReceiverLib/phone"}},
        {"LibWpp", {"QMFramework92", "ReceiverLib/include"}},
        {"WppReceiver/private/Core",
         {"WppReceiver/private/Proxy", "LibWpp", "ReceiverLib/include", "QMFramework92"}},
        {"WppReceiver/private/Proxy",
         {"WppReceiver/private/Core", "LibWpp", "ReceiverLib/include", "QMFramework92"}},
        {"Simulator", {"LibWpp", "ReceiverLib/include", "ReceiverLib/phone", "QMFramework92"}},
        {"Benchmarks",
         {"WppReceiver/private/Core", "WppReceiver/private/Proxy", "LibWpp", "ReceiverLib/include",
          "QMFramework92", "Simulator"}},
    };
    return all;
}

/// Directories of the tree that includes are written from.
const std::vector<std::string> kIncludeRoots = {"", "QMFramework92", "ReceiverLib/include", "ReceiverLib",
                                                "WppReceiver/private"};

struct Include {
    std::string from;
    std::string text;
    std::optional<std::string> to;  // the file of this tree that is meant, if it is one
};

class SourceTree {
public:
    SourceTree() : root(std::getenv("WPP_SOURCE_ROOT")) {
        for (const Room& room : rooms()) {
            for (const auto& entry : fs::recursive_directory_iterator(root / room.folder)) {
                if (entry.path().extension() == ".h" || entry.path().extension() == ".cpp") {
                    readIncludes(fs::relative(entry.path(), root).generic_string());
                }
            }
        }
    }

    const std::vector<Include>& all() const { return includes; }

private:
    void readIncludes(const std::string& file) {
        static const std::regex pattern("^\\s*#\\s*include\\s*\"([^\"]+)\"");
        std::ifstream in(root / file);
        std::smatch match;
        for (std::string line; std::getline(in, line);) {
            if (std::regex_search(line, match, pattern)) {
                includes.push_back({file, match[1], resolve(match[1])});
            }
        }
    }

    std::optional<std::string> resolve(const std::string& text) const {
        for (const std::string& base : kIncludeRoots) {
            const fs::path candidate = fs::path(base) / text;
            if (fs::is_regular_file(root / candidate)) {
                return candidate.generic_string();
            }
        }
        return std::nullopt;
    }

    fs::path root;
    std::vector<Include> includes;
};

const Room* roomOf(const std::string& file) {
    for (const Room& room : rooms()) {
        if (file.rfind(room.folder + "/", 0) == 0) {
            return &room;
        }
    }
    return nullptr;
}

/// Follows the includes of `file` depth first; names the way back to a file that is still open.
class CircleFinder {
public:
    explicit CircleFinder(const SourceTree& tree) {
        for (const Include& include : tree.all()) {
            if (include.to) {
                graph[include.from].push_back(*include.to);
            }
        }
    }

    std::vector<std::string> find() {
        for (const auto& [file, unused] : graph) {
            visit(file);
        }
        return circles;
    }

private:
    void visit(const std::string& file) {
        if (done.count(file) != 0) {
            return;
        }
        if (!open.insert(file).second) {
            circles.push_back(file + " reaches itself");
            return;
        }
        const auto found = graph.find(file);
        if (found != graph.end()) {
            for (const std::string& next : found->second) {
                visit(next);
            }
        }
        open.erase(file);
        done.insert(file);
    }

    std::map<std::string, std::vector<std::string>> graph;
    std::set<std::string> open;
    std::set<std::string> done;
    std::vector<std::string> circles;
};

TEST(IncludeLayers, TheTreeIsSeen) {
    const SourceTree tree;
    EXPECT_GT(tree.all().size(), 100U);
}

TEST(IncludeLayers, NoFileIncludesFromAFloorAbove) {
    const SourceTree tree;
    std::vector<std::string> breaches;
    for (const Include& include : tree.all()) {
        const Room* from = roomOf(include.from);
        const Room* to = include.to ? roomOf(*include.to) : nullptr;
        if (to != nullptr && to != from && from->mayInclude.count(to->folder) == 0) {
            breaches.push_back(include.from + " includes " + include.text);
        }
    }
    EXPECT_THAT(breaches, testing::IsEmpty());
}

TEST(IncludeLayers, CoreNeverSeesAMessageClass) {
    const SourceTree tree;
    std::vector<std::string> breaches;
    for (const Include& include : tree.all()) {
        if (include.from.rfind("WppReceiver/private/Core/", 0) == 0 &&
            (include.text == "LibWpp/ControlMessages.h" || include.text == "LibWpp/SppMessages.h")) {
            breaches.push_back(include.from + " includes " + include.text);
        }
    }
    EXPECT_THAT(breaches, testing::IsEmpty());
}

TEST(IncludeLayers, NoIncludePathClimbs) {
    const SourceTree tree;
    std::vector<std::string> breaches;
    for (const Include& include : tree.all()) {
        if (include.text.find("..") != std::string::npos) {
            breaches.push_back(include.from + " includes " + include.text);
        }
    }
    EXPECT_THAT(breaches, testing::IsEmpty());
}

TEST(IncludeLayers, NoFileReachesItself) {
    const SourceTree tree;
    EXPECT_THAT(CircleFinder(tree).find(), testing::IsEmpty());
}

}  // namespace
