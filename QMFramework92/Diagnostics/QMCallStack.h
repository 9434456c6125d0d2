#pragma once

/// Dump of the calling thread's stack into the log.
class QMCallStack {
public:
    /// Logs each of the first `depth` frames at level error as "%s\n", from the innermost outwards; all
    /// captured frames (at most 256) when depth is below 1 or larger than their number. Any thread may call.
    static void dumpDirectly(int depth);
};
