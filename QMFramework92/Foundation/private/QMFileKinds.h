#pragma once

#include <sys/types.h>

// Small questions about paths and file kinds that the file system's steps share. Nothing here logs.

/// QMFileSys::kFile, kDirectory or kNone.
int qm_KindOf(mode_t mode);

/// "." and "..", which stand in every directory and belong to it.
bool qm_IsDotOrDotDot(const char* name);

/// Whether anything lies at `path`: also a device, a FIFO or a link that leads nowhere.
bool qm_IsTaken(const char* path);

static_assert(sizeof(off_t) == 8, "files may be longer than 2 GiB");
