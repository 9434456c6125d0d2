#pragma once

#include <dirent.h>

#include <functional>

namespace wpp_test {

/// How often the program has asked for the system's buffers to be written; nothing is written.
int syncCount();

/// How often it has asked so for one file.
int fsyncCount();

/// The calls of this program that can be told to fail. kClose is the closing of a descriptor open for writing only.
enum class FileCall { kNone, kFsync, kClose, kFclose };

/// Makes one call fail for the length of a scope; what it should do is done all the same.
class FailingFileCall {
public:
    FailingFileCall(FileCall call, int error);
    ~FailingFileCall();
    FailingFileCall(const FailingFileCall&) = delete;
    FailingFileCall& operator=(const FailingFileCall&) = delete;
};

/// For the length of a scope, what readdir returns is what `hook` makes of it.
class ReaddirHook {
public:
    using Hook = std::function<dirent*(DIR* directory, dirent* entry)>;

    explicit ReaddirHook(Hook hook);
    ~ReaddirHook();
    ReaddirHook(const ReaddirHook&) = delete;
    ReaddirHook& operator=(const ReaddirHook&) = delete;
};

}  // namespace wpp_test
