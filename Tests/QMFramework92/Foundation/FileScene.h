#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Tests/Support/TemporaryDirectory.h"

namespace wpp_test {

/// What is done to real files in a directory of one's own. Paths are relative to it.
class FileScene {
public:
    /// The full path.
    std::string at(const std::string& path) const { return (directory.path() / path).string(); }
    std::string top() const { return directory.path().string(); }

    /// Each makes the directories above `path` and returns the full path.
    std::string file(const std::string& path, const std::string& content = "content");
    std::string folder(const std::string& path);
    std::string link(const std::string& path, const std::string& target);
    std::string fifo(const std::string& path);

    std::string content(const std::string& path) const;
    /// Whether anything lies there, also a link that leads nowhere.
    bool has(const std::string& path) const;
    /// All paths below `path`, sorted.
    std::vector<std::string> below(const std::string& path = ".") const;

    TemporaryDirectory directory;
};

/// Whether `action` returned true in a child process that ended by itself.
bool inChild(const std::function<bool()>& action);

/// The same in a child without root's rights. Everybody may then use the scene.
bool inChildWithoutRights(const FileScene& scene, const std::function<bool()>& action);

/// The same in a child that cannot write more than `bytes` into any file of `folder`: by a small file system of
/// its own, or where that is not allowed, by its limit for the size of a file.
bool inChildWithFullDisk(const std::string& folder, unsigned bytes, const std::function<bool()>& action);
bool inChildWithFileSizeLimit(unsigned bytes, const std::function<bool()>& action);

}  // namespace wpp_test
