#include "Foundation/QMDescriptor.h"

#include <fcntl.h>
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

void qm_OccupyStandardDescriptors() {
    // The system hands out the lowest free number; the first one above the standard ones means that none is free.
    int descriptor;
    do {
        descriptor = ::open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    const QMDescriptor spare(descriptor);
}
