// The log adds no newline, so each text that is logged brings its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// One call of the log: where it stands and the string literals among its arguments, escapes as written.
struct LogCall {
    std::string file;
    std::vector<std::string> literals;
};

/// Moves `position` from an opening quote behind the closing one. @return what lies between.
std::string takeLiteral(const std::string& source, std::size_t& position) {
    const std::size_t begin = ++position;
    while (position < source.size() && source[position] != '"') {
        position += source[position] == '\\' ? 2 : 1;
    }
    return source.substr(begin, position++ - begin);
}

/// The literals from an opening parenthesis to the one that closes it.
std::vector<std::string> literalsWithin(const std::string& source, std::size_t position) {
    std::vector<std::string> literals;
    int depth = 0;
    do {
        if (source[position] == '"') {
            literals.push_back(takeLiteral(source, position));
            continue;
        }
        depth += source[position] == '(' ? 1 : source[position] == ')' ? -1 : 0;
        ++position;
    } while (depth > 0 && position < source.size());
    return literals;
}

void findCalls(const fs::path& file, std::vector<LogCall>& calls) {
    std::ifstream in(file);
    const std::string source{std::istreambuf_iterator<char>(in), {}};
    for (const std::string prefix : {"QM_LOG_", "QM_STREAM_", "qm_Log"}) {
        for (std::size_t at = source.find(prefix); at != std::string::npos;
             at = source.find(prefix, at + 1)) {
            const auto end = std::find_if(
                source.begin() + static_cast<std::ptrdiff_t>(at), source.end(),
                [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_'; });
            if (end != source.end() && *end == '(') {
                const auto open = static_cast<std::size_t>(end - source.begin());
                calls.push_back({file.generic_string(), literalsWithin(source, open)});
            }
        }
    }
}

std::vector<LogCall> logCalls() {
    const fs::path root = std::getenv("WPP_SOURCE_ROOT");
    std::vector<LogCall> calls;
    for (const char* folder : {"QMFramework92", "LibWpp", "WppReceiver"}) {
        for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
            if (entry.path().extension() == ".h" || entry.path().extension() == ".cpp") {
                findCalls(entry.path(), calls);
            }
        }
    }
    return calls;
}

/// A text to be shown, and neither a function's name nor a format that passes a text on.
bool isText(const std::string& literal) {
    return literal != "%s" && literal.find_first_of(" %") != std::string::npos;
}

bool endsItsLine(const std::string& literal) {
    return literal.size() >= 2 && literal.compare(literal.size() - 2, 2, "\\n") == 0;
}

TEST(LogTexts, TheCallsAreSeen) {
    const std::vector<LogCall> calls = logCalls();
    EXPECT_GT(std::count_if(calls.begin(), calls.end(),
                            [](const LogCall& call) {
                                return std::any_of(call.literals.begin(), call.literals.end(), endsItsLine);
                            }),
              50);
}

TEST(LogTexts, EachTextEndsItsLine) {
    std::vector<std::string> breaches;
    for (const LogCall& call : logCalls()) {
        const auto& literals = call.literals;
        const auto text = std::find_if(literals.begin(), literals.end(), isText);
        if (text != literals.end() && std::none_of(literals.begin(), literals.end(), endsItsLine)) {
            breaches.push_back(call.file + ": " + *text);
        }
    }
    EXPECT_THAT(breaches, testing::IsEmpty());
}

}  // namespace
