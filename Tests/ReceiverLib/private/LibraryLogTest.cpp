#include "private/LibraryLog.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
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
    log.report(LibraryLog::kInfo, "a", "b");
    log.report(LibraryLog::kWarning, "c", "d");
    log.report(LibraryLog::kError, "e", "f");
    EXPECT_EQ(lines, "0a: b1c: d2e: f");
}

TEST(LibraryLog, DropsLinesWithoutATarget) {
    LibraryLog log(nullptr);
    EXPECT_NO_THROW(log.report(LibraryLog::kInfo, "a", "b"));
}

TEST(LibraryLog, DropsALineThatItsTargetThrowsAt) {
    struct Throwing : WifiProjectionProtocolLoggingCallback {
        void log(int, const std::string&) override { throw std::bad_alloc(); }
    };
    LibraryLog log(std::make_unique<Throwing>());
    EXPECT_NO_THROW(log.report(LibraryLog::kInfo, "a", "b"));
}

}  // namespace
}  // namespace wifi_projection_protocol
