#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Simulator/private/Road/ChildProcess.h"
#include "Tests/Simulator/LoopFixture.h"
#include "Tests/Support/RunWith.h"

namespace simulator {

/// Runs the program with the real receiver, as its user does.
class WholeRoad : public LoopTest {
protected:
    WholeRoad() { ::setenv("TMPDIR", directory.path().c_str(), 1); }
    ~WholeRoad() override { ::unsetenv("TMPDIR"); }

    void start(const std::vector<std::string>& options, const char* subcommand = "road") {
        std::vector<std::string> command{SIMULATOR_PROGRAM, subcommand, "--receiver", RECEIVER_PROGRAM};
        if (const std::string runner = wpp_test::runWith(); !runner.empty()) {
            command.insert(command.begin(), runner);
            command.insert(command.end(), {"--run-with", runner});
        }
        command.insert(command.end(), options.begin(), options.end());
        const std::string program = command.front();
        command.erase(command.begin());
        child = std::make_unique<ChildProcess>(program, command, directory.path().string());
        output = child->takeOutput();
    }

    /// Reads what the program prints until `text` is there or its output ends.
    bool readUntil(const std::string& text) {
        char chunk[4096];
        while (printed.find(text) == std::string::npos) {
            const ssize_t size = ::read(output.get(), chunk, sizeof(chunk));
            if (size <= 0) {
                return false;
            }
            printed.append(chunk, static_cast<std::size_t>(size));
        }
        return true;
    }

    /// Reads to the end of the output. @return how the program ended.
    std::string end() {
        readUntil(std::string(1, '\0'));
        stepUntil([&] { return child->poll().has_value(); });
        return describeStatus(child->poll().value());
    }

    std::string walk(const std::vector<std::string>& options, const char* subcommand = "road") {
        start(options, subcommand);
        return end();
    }

    void expectStagesInOrder(const std::vector<std::string>& names) const {
        std::size_t at = 0;
        for (const std::string& name : names) {
            at = printed.find("] " + name, at);
            ASSERT_NE(at, std::string::npos) << name << "\n" << printed;
        }
    }

    std::size_t filesLeft() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(directory.path()), {}));
    }

    std::unique_ptr<ChildProcess> child;
    UniqueFd output;
    std::string printed;
};

}  // namespace simulator
