#include "Foundation/QMDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
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

struct Place {
    dev_t device;
    ino_t node;
    bool operator==(const Place& other) const { return device == other.device && node == other.node; }
};

Place placeOf(int descriptor) {
    struct stat status {};
    EXPECT_EQ(fstat(descriptor, &status), 0) << descriptor;
    return {status.st_dev, status.st_ino};
}

/// Closes this process's standard descriptors for the length of a scope.
class WithoutStandardDescriptors {
public:
    WithoutStandardDescriptors() {
        for (int i = 0; i < kCount; ++i) {
            kept[i] = fcntl(i, F_DUPFD_CLOEXEC, kCount);
            close(i);
        }
    }
    ~WithoutStandardDescriptors() {
        for (int i = 0; i < kCount; ++i) {
            dup2(kept[i], i);
            close(kept[i]);
        }
    }
    WithoutStandardDescriptors(const WithoutStandardDescriptors&) = delete;
    WithoutStandardDescriptors& operator=(const WithoutStandardDescriptors&) = delete;

    static constexpr int kCount = 3;

private:
    int kept[kCount];
};

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

TEST(QMStandardDescriptors, MissingOnesAreOccupiedByTheNullDevice) {
    const QMDescriptor null(openSomething());
    const WithoutStandardDescriptors without;
    qm_OccupyStandardDescriptors();
    for (int i = 0; i < WithoutStandardDescriptors::kCount; ++i) {
        EXPECT_EQ(placeOf(i), placeOf(null.get())) << i;
    }
}

TEST(QMStandardDescriptors, OnlyTheMissingOneIsOccupied) {
    const Place input = placeOf(STDIN_FILENO);
    const QMDescriptor kept(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    ASSERT_TRUE(kept.isValid());
    close(STDOUT_FILENO);
    qm_OccupyStandardDescriptors();
    const bool isOccupied = isOpen(STDOUT_FILENO);
    dup2(kept.get(), STDOUT_FILENO);
    EXPECT_TRUE(isOccupied);
    EXPECT_EQ(placeOf(STDIN_FILENO), input);
}

TEST(QMStandardDescriptors, NothingIsOpenedWhereAllAreThere) {
    const int next = openSomething();
    close(next);
    qm_OccupyStandardDescriptors();
    const QMDescriptor after(openSomething());
    EXPECT_EQ(after.get(), next);
}

}  // namespace
