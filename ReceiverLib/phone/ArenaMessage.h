#pragma once

#include <google/protobuf/arena.h>

namespace phone_protocol {

/// A PhoneMessage or a HeadUnitMessage, in an arena of its own. The generated code notes down which member of a oneof
/// a message has before it has the memory for it; where that memory is not to be had, only an arena keeps the message
/// from freeing at its end what it never got. Throws std::bad_alloc. One thread at a time.
template <class Message>
class ArenaMessage {
public:
    ArenaMessage() : message(google::protobuf::Arena::CreateMessage<Message>(&arena)) {}
    ArenaMessage(const ArenaMessage&) = delete;
    ArenaMessage& operator=(const ArenaMessage&) = delete;

    Message& operator*() { return *message; }
    Message* operator->() { return message; }

private:
    google::protobuf::Arena arena;
    Message* const message;  // the arena's
};

}  // namespace phone_protocol
