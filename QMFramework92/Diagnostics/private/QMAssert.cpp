#include "Diagnostics/QMAssert.h"

#include "Diagnostics/QMCallStack.h"

void qm_ReportAssertion(const char* file, int line) {
    constexpr int kWholeStack = -1;
    qm_PrintConsole("#########\n#########\nASSERT Failed! - %s(%d)\n#########\n#########\n", file, line);
    QMCallStack::dumpDirectly(kWholeStack);
}
