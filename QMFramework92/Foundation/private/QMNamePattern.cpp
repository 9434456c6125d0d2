#include "Foundation/private/QMNamePattern.h"

#include <cstddef>
#include <cstring>

namespace {

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::size_t trailingBytesOf(char lead) {
    const auto byte = static_cast<unsigned char>(lead);
    if (byte < 0xC2 || byte > 0xF4) {
        return 0;
    }
    return byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : 1;
}

/// The bytes of the character at `text`, which is not at its end: a whole sequence, or else one byte.
std::size_t sizeOfCharacter(const char* text) {
    const std::size_t trailing = trailingBytesOf(*text);
    for (std::size_t i = 1; i <= trailing; ++i) {
        if (!isContinuation(text[i])) {
            return 1;
        }
    }
    return trailing + 1;
}

}  // namespace

bool qm_MatchesPattern(const char* name, const char* pattern) noexcept {
    // Of all runs that the stars could stand for, only the last star's needs to be tried again: a shorter run for
    // an earlier star leaves the rest of the name, and so every choice, to the later one.
    const char* behindStar = nullptr;
    const char* runEnd = nullptr;
    while (*name != '\0') {
        const std::size_t size = sizeOfCharacter(name);
        if (*pattern == '*') {
            behindStar = ++pattern;
            runEnd = name;
        } else if (*pattern == '?') {
            ++pattern;
            name += size;
        } else if (std::strncmp(pattern, name, size) == 0 && sizeOfCharacter(pattern) == size) {
            pattern += size;
            name += size;
        } else if (behindStar != nullptr) {
            pattern = behindStar;
            runEnd += sizeOfCharacter(runEnd);
            name = runEnd;
        } else {
            return false;
        }
    }
    while (*pattern == '*') {
        ++pattern;
    }
    return *pattern == '\0';
}

bool qm_IsHiddenName(const char* name) noexcept {
    if (*name == '.') {
        return true;
    }
    const char* extension = std::strrchr(name, '.');
    return extension != nullptr && std::strcmp(extension, ".CHK") == 0;
}
