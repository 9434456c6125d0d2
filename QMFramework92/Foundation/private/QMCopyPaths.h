#pragma once

/// Whether a copy from `src` to `dst` would write into its own source: both are the same file or directory, or `dst`
/// lies, or would come to lie, in the directory `src`. Links are followed. Also true when that cannot be told. A
/// missing `src` is false.
bool qm_LeadsIntoItself(const char* src, const char* dst);
