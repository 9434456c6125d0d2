#pragma once

/// What the making of a directory came to.
enum class QMMadeDirectory { kFailed, kExisted, kMade };

/// The work of QMFileSys::CreateDirectory, under whose name it logs. @return kMade only when this call made the
/// last component.
QMMadeDirectory qm_MakeDirectory(const char* path, bool doSync);
