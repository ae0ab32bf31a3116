#pragma once
// Reads many datagrams with one system call, and what the kernel says beside each.

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

namespace capture {

/// Buffers and arguments of recvmmsg, about 140 KiB. One thread.
class BatchReader {
public:
    static constexpr std::size_t kBatch = 64;
    /// Longer datagrams are cut; Art-Net has none.
    static constexpr std::size_t kLongest = 2048;

    struct Message {
        std::span<const unsigned char> bytes;
        /// Where it came from: sockaddr_in or sockaddr_ll, as the socket has it.
        const sockaddr_storage& sender;
        /// The kernel's stamp on the wall clock; nothing when it gave none.
        std::optional<std::chrono::nanoseconds> stamp;
        /// The socket's drop counter as of this message; nothing as long as it is 0.
        std::optional<std::uint32_t> drops;
        /// Address of this machine at which it came in, host byte order; nothing unless asked for.
        std::optional<std::uint32_t> own_address;
    };

    BatchReader();
    BatchReader(const BatchReader&) = delete;
    BatchReader& operator=(const BatchReader&) = delete;

    /// Reads what is there; the number of messages, or -1 with errno set.
    [[nodiscard]] int read(int socket) noexcept;
    /// @param index  0 to the number read - 1
    [[nodiscard]] Message message(std::size_t index) noexcept;

private:
    /// Room for a time stamp, a drop counter and an address.
    struct alignas(cmsghdr) Control {
        std::array<unsigned char, CMSG_SPACE(sizeof(timespec)) + CMSG_SPACE(sizeof(std::uint32_t)) +
                                      CMSG_SPACE(sizeof(in_pktinfo))>
            bytes;
    };

    std::array<mmsghdr, kBatch> messages_{};
    std::array<iovec, kBatch> parts_{};
    std::array<Control, kBatch> controls_{};
    std::array<sockaddr_storage, kBatch> senders_{};
    std::array<std::array<unsigned char, kLongest>, kBatch> buffers_;
};

}  // namespace capture
