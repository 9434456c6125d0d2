#pragma once

/// Writes the memory report of the process into the directory "/Syslog/", which must exist: a text file named
/// "HeapList_", the process name (cut so that 24 characters remain in all) and the date and time. Allocations are
/// not counted, so the report shows zeros and no rows. Where the file cannot be opened nothing is written or
/// logged. Called by qm_FwTerminate alone.
void qm_WriteMemoryReport(const char* processName);
