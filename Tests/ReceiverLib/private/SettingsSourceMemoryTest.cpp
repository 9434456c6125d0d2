#include <gtest/gtest.h>

#include <new>
#include <string>

#include "Tests/ReceiverLib/Support/RecordingHeadUnit.h"
#include "Tests/Support/HeapWatch.h"
#include "phone/ArenaMessage.h"
#include "private/SettingsSource.h"

namespace wifi_projection_protocol {
namespace {

bool fillsIn(const SettingsSource& source, long grantedTakes) {
    phone_protocol::ArenaMessage<phone_protocol::HeadUnitMessage> message;
    try {
        const wpp_test::EmptyHeap heap(grantedTakes);
        source.fillIn(*message->mutable_settings());
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

TEST(SettingsSource, WhereverMemoryEndsAnExceptionIsAllThatComesOfIt) {
    const auto unit = wpp_test::RecordingHeadUnit::make();
    const SettingsSource source(unit->makeInfoProvider(), {}, {1, 2, 3}, std::string(5000, 'x'));
    long takes = 0;
    while (!fillsIn(source, takes)) {
        ++takes;
    }
    EXPECT_GT(takes, 0);
}

}  // namespace
}  // namespace wifi_projection_protocol
