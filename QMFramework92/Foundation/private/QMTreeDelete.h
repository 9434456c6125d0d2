#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "Foundation/QMFindHandle.h"

/// The deletion of one directory tree, step by step from the top down and back, by names relative to directories
/// that it holds open: no link is followed, also not one that replaces a directory meanwhile, and the depth of the
/// tree is limited neither by the length of a path nor by the stack.
///
/// It logs under the name of its caller, QMFileSys::DeleteDirectory. May throw std::bad_alloc, with nothing leaked.
class QMTreeDelete {
public:
    /// The path, without slashes at its end.
    explicit QMTreeDelete(std::string topPath) : top(std::move(topPath)) {}

    /// Deletes the tree and stops at the first failure. What vanishes meanwhile counts as deleted.
    bool run();

private:
    /// A directory on the way down. Only the deepest few are open.
    struct Level {
        std::string name;
        dev_t device;
        ino_t inode;
        QMOpenDirectory directory;
    };

    bool removeTopLink();
    bool enter(int parent, const char* name);
    bool removeEntry(const char* name);
    bool leave();
    bool reopenParent();
    bool failed(const char* name, const char* call) const;

    std::string top;
    std::vector<Level> levels;
};
