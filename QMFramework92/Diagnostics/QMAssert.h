#pragma once

#include "Diagnostics/QMLog.h"

/// Prints the assertion banner with `file` and `line` on the console and dumps the whole call stack. Returns.
void qm_ReportAssertion(const char* file, int line);

/// Reports a false condition; execution continues after it, an assertion never aborts.
#define QM_ASSERT(condition)                              \
    do {                                                  \
        if (!(condition)) {                               \
            qm_ReportAssertion(QM_SOURCE_PATH, __LINE__); \
        }                                                 \
    } while (false)

/// The report of an assertion that is known to have failed.
#define QM_ASSERT_FAILED() qm_ReportAssertion(QM_SOURCE_PATH, __LINE__)
