#include "private/LibraryLog.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace wifi_projection_protocol {
namespace {

class Target : public WifiProjectionProtocolLoggingCallback {
public:
    explicit Target(std::string& collected) : lines(collected) {}
    void log(int level, const std::string& text) override { lines += std::to_string(level) + text; }

private:
    std::string& lines;
};

TEST(LibraryLog, PassesLevelAndTextOn) {
    std::string lines;
    LibraryLog log(std::make_unique<Target>(lines));
    log.write(LibraryLog::kInfo, "a");
    log.write(LibraryLog::kWarning, "b");
    log.write(LibraryLog::kError, "c");
    EXPECT_EQ(lines, "0a1b2c");
}

TEST(LibraryLog, DropsLinesWithoutATarget) {
    LibraryLog log(nullptr);
    EXPECT_NO_THROW(log.write(LibraryLog::kInfo, "a"));
}

}  // namespace
}  // namespace wifi_projection_protocol
