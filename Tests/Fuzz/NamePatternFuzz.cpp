// File-name patterns against the plainest way to match: a table of every prefix of the name and every prefix of the
// pattern. The input is the name, a zero byte and the pattern.

#include <algorithm>
#include <string>
#include <vector>

#include "Foundation/private/QMNamePattern.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"

namespace {

/// The table is quadratic.
constexpr std::size_t kLongest = 256;

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// UTF-8 sequences, and each byte that is part of none.
std::vector<std::string> charactersOf(const std::string& text) {
    std::vector<std::string> characters;
    for (std::size_t at = 0; at < text.size(); at += characters.back().size()) {
        const auto lead = static_cast<unsigned char>(text[at]);
        const bool leads = lead >= 0xC2 && lead <= 0xF4;
        const std::size_t length = !leads ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        const std::string sequence = text.substr(at, length);
        const bool isWhole =
            sequence.size() == length && std::all_of(sequence.begin() + 1, sequence.end(), isContinuation);
        characters.push_back(isWhole ? sequence : text.substr(at, 1));
    }
    return characters;
}

bool tableMatches(const std::vector<std::string>& name, const std::vector<std::string>& pattern) {
    std::vector<bool> row(pattern.size() + 1, false);
    row[0] = true;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        row[i + 1] = row[i] && pattern[i] == "*";
    }
    for (const std::string& character : name) {
        std::vector<bool> below(pattern.size() + 1, false);
        for (std::size_t i = 0; i < pattern.size(); ++i) {
            below[i + 1] = pattern[i] == "*" ? below[i] || row[i + 1]
                                             : row[i] && (pattern[i] == "?" || pattern[i] == character);
        }
        row = below;
    }
    return row.back();
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// A copy in memory of exactly its size.
std::vector<char> terminated(const std::string& text) {
    return std::vector<char>(text.c_str(), text.c_str() + text.size() + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string all = wpp_test::FuzzInput(data, size).takeText(2 * kLongest);
    const std::string name = all.substr(0, kLongest).c_str();
    const std::string pattern = name.size() < all.size() ? all.substr(name.size() + 1).c_str() : "";
    const std::vector<char> nameText = terminated(name);
    const std::vector<char> patternText = terminated(pattern);

    const bool matches = qm_MatchesPattern(nameText.data(), patternText.data());
    FUZZ_CHECK(matches == tableMatches(charactersOf(name), charactersOf(pattern)));
    FUZZ_CHECK(qm_MatchesPattern(nameText.data(), "*"));
    FUZZ_CHECK(qm_MatchesPattern(nameText.data(), nameText.data()));
    FUZZ_CHECK(qm_IsHiddenName(nameText.data()) == (name.rfind('.', 0) == 0 || endsWith(name, ".CHK")));
    return 0;
}
