#include "Pattern/QMFunctor.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

namespace {

struct Receiver {
    virtual ~Receiver() = default;
    void onConnection(const int descriptor, bool connected) {
        text = std::to_string(descriptor) + (connected ? " on" : " off");
    }
    virtual int onData(const void* const data, unsigned int length) {
        return static_cast<const char*>(data)[length - 1];
    }
    int onNothing() { return 3; }

    std::string text;
};

struct DerivedReceiver : Receiver {
    int onData(const void* const, unsigned int length) override { return -static_cast<int>(length); }
};

using ConnectionFunctor = QMFunctor<void, Typelist<const int, Typelist<bool, NullType>>>;
using ConnectionHandler = MemFunHandler<ConnectionFunctor, Receiver*, void (Receiver::*)(const int, bool)>;
using DataFunctor = QMFunctor<int, Typelist<const void* const, Typelist<unsigned int, NullType>>>;
using DataHandler = MemFunHandler<DataFunctor, Receiver*, int (Receiver::*)(const void* const, unsigned int)>;
using PlainFunctor = QMFunctor<int, NullType>;
using PlainHandler = MemFunHandler<PlainFunctor, Receiver*, int (Receiver::*)()>;

static_assert(std::is_base_of_v<QMFunctorImplBase<void>, ConnectionFunctor::Impl>);
static_assert(std::is_same_v<ConnectionFunctor::Impl,
                             FunctorImpl<void, Typelist<const int, Typelist<bool, NullType>>>>);
static_assert(std::has_virtual_destructor_v<QMFunctorImplBase<int>>);

TEST(QMFunctor, CallReachesTheMemberFunctionWithItsArguments) {
    Receiver receiver;
    ConnectionHandler handler(&receiver, &Receiver::onConnection);
    ConnectionFunctor::Impl& functor = handler;
    functor(7, true);
    EXPECT_EQ(receiver.text, "7 on");
}

TEST(QMFunctor, CallReturnsTheResultOfTheMemberFunction) {
    Receiver receiver;
    DataHandler handler(&receiver, &Receiver::onData);
    DataFunctor::Impl& functor = handler;
    EXPECT_EQ(functor("abc", 3), 'c');
}

TEST(QMFunctor, VirtualMemberFunctionIsCalledOnTheRealObject) {
    DerivedReceiver receiver;
    DataHandler handler(&receiver, &Receiver::onData);
    DataFunctor::Impl& functor = handler;
    EXPECT_EQ(functor("abc", 3), -3);
}

TEST(QMFunctor, EmptyParameterListIsCallable) {
    Receiver receiver;
    PlainHandler handler(&receiver, &Receiver::onNothing);
    PlainFunctor::Impl& functor = handler;
    EXPECT_EQ(functor(), 3);
}

TEST(QMFunctor, CloneOutlivesItsOriginalAndCallsTheSameObject) {
    Receiver receiver;
    std::unique_ptr<ConnectionFunctor::Impl> clone;
    {
        const ConnectionHandler original(&receiver, &Receiver::onConnection);
        const ConnectionFunctor::Impl& functor = original;
        clone.reset(functor.Clone());
    }
    (*clone)(8, false);
    EXPECT_EQ(receiver.text, "8 off");
}

TEST(QMFunctor, CloneOfACloneIsAnObjectOfItsOwn) {
    Receiver receiver;
    const ConnectionHandler original(&receiver, &Receiver::onConnection);
    const std::unique_ptr<ConnectionFunctor::Impl> first(original.Clone());
    const std::unique_ptr<ConnectionFunctor::Impl> second(first->Clone());
    EXPECT_NE(first.get(), second.get());
    (*second)(9, true);
    EXPECT_EQ(receiver.text, "9 on");
}

}  // namespace
