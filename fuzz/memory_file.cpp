#include "memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

MemoryFile::MemoryFile() : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    require(descriptor_ >= 0, "a file in memory can be had");
}

MemoryFile::~MemoryFile() {
    close(descriptor_);
}

void MemoryFile::write(Input content) {
    require(ftruncate(descriptor_, 0) == 0, "a file in memory can be emptied");
    const ssize_t written = pwrite(descriptor_, content.data(), content.size(), 0);
    require(written == static_cast<ssize_t>(content.size()), "a file in memory can be written");
}

}  // namespace fuzz
