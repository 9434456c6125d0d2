#include "phone/ArenaMessage.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

#include "Tests/Support/HeapWatch.h"
#include "phone/PhoneProtocol.pb.h"

namespace phone_protocol {
namespace {

void takeMember(PhoneMessage& message) {
    message.mutable_start_result();
}

void takeMember(HeadUnitMessage& message) {
    message.mutable_settings();
}

// The first member is to be had. An arena keeps what a message gives up, so that a later one soon needs another block.
template <class Message>
void takeMembersUntilThereIsNoMemory(Message& message) {
    takeMember(message);
    const wpp_test::EmptyHeap heap;
    for (;;) {
        message.Clear();
        takeMember(message);
    }
}

TEST(ArenaMessage, AMemberOfAPhonesMessageThatGotNoMemoryIsNotFreed) {
    ArenaMessage<PhoneMessage> message;
    EXPECT_THROW(takeMembersUntilThereIsNoMemory(*message), std::bad_alloc);
}

TEST(ArenaMessage, AMemberOfAHeadUnitsMessageThatGotNoMemoryIsNotFreed) {
    ArenaMessage<HeadUnitMessage> message;
    EXPECT_THROW(takeMembersUntilThereIsNoMemory(*message), std::bad_alloc);
}

TEST(ArenaMessage, ATextThatGetsNoMemoryEndsTheParsingAlone) {
    PhoneMessage sent;
    sent.mutable_hello()->set_client_id(std::string(1000, 'x'));
    const std::string bytes = sent.SerializeAsString();

    ArenaMessage<PhoneMessage> message;
    {
        const wpp_test::EmptyHeap heap;
        EXPECT_THROW(message->ParseFromString(bytes), std::bad_alloc);
    }
    ASSERT_TRUE(message->ParseFromString(bytes));
    EXPECT_EQ(message->hello().client_id(), sent.hello().client_id());
}

}  // namespace
}  // namespace phone_protocol
