#pragma once

#include <cstdint>

/// Brings the framework up for this process: records the process name that every log line shows, opens the
/// system log under it, creates the thread manager and starts the watchdog.
///
/// @param processName at most 63 characters; a longer one is reported with "name size is over. max[%d]\n" and
///        replaced by "Unknown".
/// @param reserved accepted and not used.
/// @return non-zero on success, also when the framework is already initialised (the first name stays);
///         0 on failure.
///
/// Call it from the main thread before any framework thread is started.
int qm_FwInitialize(const char* processName, int reserved);

/// Undoes qm_FwInitialize: ends the timer threads, stops the watchdog, destroys every framework singleton in
/// the order of their creation and closes the system log. Does nothing unless the framework is initialised;
/// afterwards qm_FwInitialize works again.
///
/// Call it from the main thread after every framework thread but those of the timers has been joined.
void qm_FwTerminate();

/// Switches memory accounting on (non-zero) or off. While it is on, qm_FwTerminate writes a memory report into
/// "/Syslog/": a file HeapList_ + process name + date and time (UTC), such as HeapList_WppReceiver261121_1455.txt.
/// The directory must exist; nothing is logged where it does not. Allocations are not counted, so the report shows
/// zeros. qm_FwInitialize switches it off. Any thread may call it.
void qm_SetMemoryAccounting(std::uint32_t flag);

/// The name given to qm_FwInitialize, empty before. Any thread may call it once initialisation is over; the
/// text lives as long as the process.
const char* qm_GetProcessName();
