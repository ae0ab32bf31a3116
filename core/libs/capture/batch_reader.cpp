#include "capture/batch_reader.h"

#include <cerrno>
#include <cstring>
#include <ctime>

namespace capture {

BatchReader::BatchReader() {
    for (std::size_t i = 0; i < kBatch; ++i) {
        parts_[i] = {buffers_[i].data(), buffers_[i].size()};
    }
}

int BatchReader::read(int socket) noexcept {
    // The kernel has overwritten the lengths with what it filled in the last time.
    for (std::size_t i = 0; i < kBatch; ++i) {
        msghdr& header = messages_[i].msg_hdr;
        header = {};
        header.msg_name = &senders_[i];
        header.msg_namelen = sizeof senders_[i];
        header.msg_iov = &parts_[i];
        header.msg_iovlen = 1;
        header.msg_control = controls_[i].bytes.data();
        header.msg_controllen = controls_[i].bytes.size();
    }
    int count = -1;
    do {
        count = recvmmsg(socket, messages_.data(), kBatch, MSG_DONTWAIT, nullptr);
    } while (count < 0 && errno == EINTR);
    return count;
}

BatchReader::Message BatchReader::message(std::size_t index) noexcept {
    msghdr& header = messages_[index].msg_hdr;
    Message message{std::span<const unsigned char>(buffers_[index]).first(messages_[index].msg_len),
                    senders_[index],
                    {},
                    {},
                    {}};
    for (cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
        if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_PKTINFO) {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(part), sizeof info);
            message.own_address = ntohl(info.ipi_spec_dst.s_addr);
        } else if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_TIMESTAMPNS) {
            timespec time{};
            std::memcpy(&time, CMSG_DATA(part), sizeof time);
            message.stamp = std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
        } else if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_RXQ_OVFL) {
            std::uint32_t counter = 0;
            std::memcpy(&counter, CMSG_DATA(part), sizeof counter);
            message.drops = counter;
        }
    }
    return message;
}

}  // namespace capture
