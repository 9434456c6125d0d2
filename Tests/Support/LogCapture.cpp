#include "Tests/Support/LogCapture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace wpp_test {

namespace {

std::string withoutColours(std::string text) {
    for (const std::string_view colour : {"\033[49m", "\033[31m", "\033[0m"}) {
        for (std::size_t at = text.find(colour); at != std::string::npos; at = text.find(colour, at)) {
            text.erase(at, colour.size());
        }
    }
    return text;
}

int require(int descriptor, const char* what) {
    if (descriptor < 0) {
        throw std::runtime_error(what);
    }
    return descriptor;
}

}  // namespace

LogCapture::LogCapture()
    : realOutput(require(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "cannot keep standard output")),
      collected(require(memfd_create("log-capture", MFD_CLOEXEC), "cannot collect standard output")) {
    std::fflush(stdout);
    // Appending keeps the end right after clear() and for child processes.
    fcntl(collected, F_SETFL, O_APPEND);
    dup2(collected, STDOUT_FILENO);
}

LogCapture::~LogCapture() {
    std::fflush(stdout);
    dup2(realOutput, STDOUT_FILENO);
    if (testing::Test::HasFailure()) {
        const std::string all = text();
        std::fwrite(all.data(), 1, all.size(), stdout);
        std::fflush(stdout);
    }
    close(collected);
    close(realOutput);
}

std::string LogCapture::text() const {
    std::string all;
    std::array<char, 65536> chunk;
    for (;;) {
        const ssize_t count = pread(collected, chunk.data(), chunk.size(), static_cast<off_t>(all.size()));
        if (count <= 0) {
            return all;
        }
        all.append(chunk.data(), static_cast<std::size_t>(count));
    }
}

std::vector<std::string> LogCapture::lines() const {
    std::vector<std::string> found;
    std::istringstream stream(withoutColours(text()));
    for (std::string line; std::getline(stream, line);) {
        line.erase(0, line.find_first_not_of(' '));
        if (!line.empty()) {
            found.push_back(line);
        }
    }
    return found;
}

bool LogCapture::contains(const std::string& part) const {
    return count(part) > 0;
}

std::size_t LogCapture::count(const std::string& part) const {
    const std::vector<std::string> all = lines();
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&part](const std::string& line) {
        return line.find(part) != std::string::npos;
    }));
}

bool LogCapture::waitFor(const std::string& part, std::chrono::milliseconds limit) const {
    return waitUntil([this, &part] { return contains(part); }, limit);
}

void LogCapture::clear() {
    std::fflush(stdout);
    if (ftruncate(collected, 0) != 0) {
        throw std::runtime_error("cannot clear the collected output");
    }
}

}  // namespace wpp_test
