#include "support/fifo.h"

#include <csignal>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/eventually.h"

Fifo::Fifo(std::string path) : path_(std::move(path)) {
    std::signal(SIGPIPE, SIG_IGN);
    if (mkfifo(path_.c_str(), 0600) != 0) {
        throw std::runtime_error("cannot make the pipe " + path_);
    }
}

void Fifo::open() {
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
}

bool Fifo::write(const std::vector<std::uint8_t>& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(descriptor_, bytes.data() + done, bytes.size() - done);
        if (written <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(written);
    }
    return true;
}

bool Fifo::wait_until_taken() const {
    return eventually([this] {
        int waiting = -1;
        return ioctl(descriptor_, FIONREAD, &waiting) == 0 && waiting == 0;
    });
}

void Fifo::close() {
    if (descriptor_ != -1) {
        ::close(descriptor_);
        descriptor_ = -1;
    }
}

void Fifo::unlink() {
    ::unlink(path_.c_str());
}
