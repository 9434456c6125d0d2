#include "Foundation/private/QMFileKinds.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "Foundation/QMFileSys.h"

int qm_KindOf(mode_t mode) {
    return S_ISREG(mode) ? QMFileSys::kFile : S_ISDIR(mode) ? QMFileSys::kDirectory : QMFileSys::kNone;
}

bool qm_IsDotOrDotDot(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool qm_IsTaken(const char* path) {
    struct stat status {};
    // What is dated after January 2038 has no status where a time_t has 32 bits, but lies there.
    return lstat(path, &status) == 0 || errno == EOVERFLOW;
}
