#pragma once

#include <cerrno>

#include "Diagnostics/QMLog.h"

// Log lines of the local socket streams. They show one source name, whichever file they come from; the _OF
// form names an operation in whose course a shared step failed.
#define QM_STREAM_SOURCE "Communication/private/QMLocalSocketStream"

#define QM_STREAM_ERROR_OF(function, ...) \
    static_cast<void>(qm_Log(QM_STREAM_SOURCE, (function), __LINE__, QM_LOG_LEVEL_ERROR, __VA_ARGS__))
#define QM_STREAM_ERROR(...) QM_STREAM_ERROR_OF(__func__, __VA_ARGS__)
#define QM_STREAM_SYS(...) \
    static_cast<void>(qm_Log(QM_STREAM_SOURCE, __func__, __LINE__, QM_LOG_LEVEL_SYS, __VA_ARGS__))
#define QM_STREAM_STD_ERROR(...) \
    static_cast<void>(qm_LogStdError(QM_STREAM_SOURCE, __func__, __LINE__, __VA_ARGS__))
#define QM_STREAM_STD_ERROR_SHORT_OF(function) \
    static_cast<void>(qm_LogStdErrorShort(QM_STREAM_SOURCE, (function), __LINE__))
#define QM_STREAM_STD_ERROR_SHORT() QM_STREAM_STD_ERROR_SHORT_OF(__func__)
#define QM_STREAM_NO_MEMORY_OF(function) (errno = ENOMEM, QM_STREAM_STD_ERROR_SHORT_OF(function))
