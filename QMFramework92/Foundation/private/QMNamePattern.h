#pragma once

/// Whether the whole of `name` matches `pattern`: "*" stands for any run of characters, also none, "?" for any one
/// character, everything else for itself. Case counts, and an empty pattern matches an empty name only.
///
/// A character is a UTF-8 sequence; a byte that belongs to none is a character of its own. Both texts end with a
/// null byte. The time is at most proportional to the product of both lengths, whatever the pattern; no memory is
/// taken, and nothing is read behind either end.
bool qm_MatchesPattern(const char* name, const char* pattern) noexcept;

/// Whether the filter for hidden names leaves `name` out.
bool qm_IsHiddenName(const char* name) noexcept;
