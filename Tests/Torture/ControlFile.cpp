#include "Tests/Torture/ControlFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Foundation/QMDescriptor.h"

namespace wpp_torture {

ControlFile::ControlFile(std::string filePath) : file(std::move(filePath)) {
    const QMDescriptor descriptor(open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!descriptor.isValid() || ftruncate(descriptor.get(), sizeof(AllocationControl)) != 0) {
        throw std::system_error(errno, std::generic_category(), file);
    }
    void* const memory =
        mmap(nullptr, sizeof(AllocationControl), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor.get(), 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    // A fresh file is all zero, which is what a control begins with.
    control = static_cast<AllocationControl*>(memory);
}

ControlFile::~ControlFile() {
    munmap(control, sizeof(AllocationControl));
    unlink(file.c_str());
}

}  // namespace wpp_torture
