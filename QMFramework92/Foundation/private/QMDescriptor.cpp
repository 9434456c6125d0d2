#include "Foundation/QMDescriptor.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

QMDescriptor& QMDescriptor::operator=(QMDescriptor&& other) noexcept {
    if (this != &other) {
        reset(other.release());
    }
    return *this;
}

int QMDescriptor::release() {
    return std::exchange(descriptor, kNone);
}

void QMDescriptor::reset(int descriptorToOwn) {
    if (isValid()) {
        const int savedErrno = errno;
        close(descriptor);
        errno = savedErrno;
    }
    descriptor = descriptorToOwn;
}
