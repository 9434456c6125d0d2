#include "Foundation/QMDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace {

int openSomething() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

TEST(QMDescriptor, OwnsNothingAtFirst) {
    const QMDescriptor descriptor;
    EXPECT_FALSE(descriptor.isValid());
    EXPECT_EQ(descriptor.get(), -1);
}

TEST(QMDescriptor, ClosesAtTheEndOfItsScope) {
    const int raw = openSomething();
    {
        const QMDescriptor descriptor(raw);
        EXPECT_TRUE(descriptor.isValid());
        EXPECT_TRUE(isOpen(raw));
    }
    EXPECT_FALSE(isOpen(raw));
}

TEST(QMDescriptor, ReleaseHandsTheDescriptorOver) {
    const int raw = openSomething();
    {
        QMDescriptor descriptor(raw);
        EXPECT_EQ(descriptor.release(), raw);
        EXPECT_FALSE(descriptor.isValid());
    }
    EXPECT_TRUE(isOpen(raw));
    close(raw);
}

TEST(QMDescriptor, ResetClosesTheFormerOne) {
    const int former = openSomething();
    const int next = openSomething();
    QMDescriptor descriptor(former);
    descriptor.reset(next);
    EXPECT_FALSE(isOpen(former));
    EXPECT_EQ(descriptor.get(), next);
}

TEST(QMDescriptor, MovingLeavesTheSourceEmpty) {
    const int raw = openSomething();
    QMDescriptor source(raw);
    QMDescriptor target(std::move(source));
    EXPECT_FALSE(
        source.isValid());  // NOLINT(bugprone-use-after-move): the state after the move is the subject
    EXPECT_EQ(target.get(), raw);
}

TEST(QMDescriptor, MoveAssignmentClosesTheFormerOne) {
    const int former = openSomething();
    const int next = openSomething();
    QMDescriptor target(former);
    target = QMDescriptor(next);
    EXPECT_FALSE(isOpen(former));
    EXPECT_TRUE(isOpen(next));
    EXPECT_EQ(target.get(), next);
}

TEST(QMDescriptor, ClosingLeavesErrnoAsItWas) {
    QMDescriptor descriptor(openSomething());
    close(descriptor.get());  // so that closing it again fails with EBADF
    errno = ENOENT;
    descriptor.reset();
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
