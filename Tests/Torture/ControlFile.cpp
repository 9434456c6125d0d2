#include "Tests/Torture/ControlFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Foundation/QMDescriptor.h"

namespace wpp_torture {

SharedFile::SharedFile(std::string filePath, std::size_t fileSize)
    : file(std::move(filePath)), size(fileSize) {
    const QMDescriptor descriptor(open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!descriptor.isValid() || ftruncate(descriptor.get(), static_cast<off_t>(size)) != 0) {
        throw std::system_error(errno, std::generic_category(), file);
    }
    mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor.get(), 0);
    if (mapped == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
}

SharedFile::~SharedFile() {
    munmap(mapped, size);
    unlink(file.c_str());
}

}  // namespace wpp_torture
