#include "inc/private/QMMemoryReport.h"

#include "Utility/QMFormatWide.h"
#include "Utility/QMLogFile.h"

namespace {

// As many as a process name has, with its terminator.
constexpr unsigned kNameSize = 64;
constexpr int kMethods = 10;

/// Log files have wide names; a byte that is no ASCII character becomes a "_".
void widen(const char* name, wchar_t (&out)[kNameSize]) {
    unsigned length = 0;
    for (; name[length] != '\0' && length < kNameSize - 1; ++length) {
        const auto byte = static_cast<unsigned char>(name[length]);
        out[length] = byte < 0x80 ? static_cast<wchar_t>(byte) : L'_';
    }
    out[length] = L'\0';
}

bool open(QMLogFile& report, const char* processName) {
    wchar_t wideName[kNameSize];
    widen(processName, wideName);
    wchar_t baseName[kNameSize];
    qm_FormatWide(baseName, kNameSize, L"%s_%s", L"HeapList", wideName);
    constexpr bool kText = false;
    return report.Open(L"/Syslog/", baseName, L"txt", kText, QMLogFile::kNoLimit, QMLogFile::kNamedByTime);
}

}  // namespace

void qm_WriteMemoryReport(const char* processName) {
    QMLogFile report;
    if (!open(report, processName)) {
        return;
    }
    report.WriteFormat(
        "[Memory Info Summary]\nCurrent Total Count = %d, Max Total Count = %d, Current Total Size = %d, Max "
        "Total Size = "
        "%d\n",
        0, 0, 0, 0);
    report.WriteFormat(
        "\n[Memory Info about Each Thread]\n   TID   : Current Count : Max Count : Current Size : Max "
        "Size\n");
    report.WriteFormat("\n[Memory Leak Info]\n#\tTID\t\tAddress\t\tSize\tOverrun");
    for (int i = 0; i < kMethods; ++i) {
        report.WriteFormat("\tMethod(%d)", i);
    }
    report.WriteFormat("\n");
}
