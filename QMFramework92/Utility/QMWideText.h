#pragma once

#include <cstddef>

/// Writes `text` as UTF-8 into `out`, which has room for `capacity` bytes, the terminator included. Text that does
/// not fit is cut at a whole character. A unit that is no character (a surrogate, or one above U+10FFFF) becomes
/// the replacement character U+FFFD. Nothing is written when `capacity` is 0.
///
/// @return true when all of it fits; false when it was cut, or `text` is null (`out` is then empty).
///
/// Any thread may call it. It allocates nothing, logs nothing and never throws; the locale has no effect.
bool qm_EncodeUtf8(const wchar_t* text, char* out, std::size_t capacity);
