#include "private/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace wifi_projection_protocol {
namespace {

int openNull() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) >= 0;
}

TEST(FileDescriptor, ClosesWhatItOwns) {
    const int fd = openNull();
    { const FileDescriptor owner(fd); }
    EXPECT_FALSE(isOpen(fd));
}

TEST(FileDescriptor, OwnsNothingByDefault) {
    EXPECT_FALSE(FileDescriptor());
}

TEST(FileDescriptor, MovedFromOwnsNothing) {
    FileDescriptor first(openNull());
    const FileDescriptor second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_TRUE(isOpen(second.get()));
}

TEST(FileDescriptor, AssignmentOfNothingCloses) {
    const int fd = openNull();
    FileDescriptor owner(fd);
    owner = FileDescriptor();
    EXPECT_FALSE(isOpen(fd));
    EXPECT_FALSE(owner);
}

}  // namespace
}  // namespace wifi_projection_protocol
