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

void MemoryFile::write(std::string_view content) {
    // Written before it is cut: the pages of an emptied file would have to be found anew for every input.
    const ssize_t written = pwrite(descriptor_, content.data(), content.size(), 0);
    require(written == static_cast<ssize_t>(content.size()), "a file in memory can be written");
    require(ftruncate(descriptor_, written) == 0, "a file in memory can be cut");
}

}  // namespace fuzz
