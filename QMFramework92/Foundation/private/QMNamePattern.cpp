#include "Foundation/private/QMNamePattern.h"

#include <cstring>

namespace {

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

int trailingBytesOf(char lead) {
    const auto byte = static_cast<unsigned char>(lead);
    return byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
}

/// Behind the character at `text`, which is not at its end.
const char* behindCharacter(const char* text) {
    int trailing = trailingBytesOf(*text++);
    while (trailing-- > 0 && isContinuation(*text)) {
        ++text;
    }
    return text;
}

}  // namespace

bool qm_MatchesPattern(const char* name, const char* pattern) noexcept {
    // Of all runs that the stars could stand for, only the last star's needs to be tried again: a shorter run for
    // an earlier star leaves the rest of the name, and so every choice, to the later one.
    const char* behindStar = nullptr;
    const char* runEnd = nullptr;
    while (*name != '\0') {
        if (*pattern == '*') {
            behindStar = ++pattern;
            runEnd = name;
        } else if (*pattern == '?') {
            ++pattern;
            name = behindCharacter(name);
        } else if (*pattern == *name) {
            ++pattern;
            ++name;
        } else if (behindStar != nullptr) {
            pattern = behindStar;
            runEnd = behindCharacter(runEnd);
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
