#include "zero_frames.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>

#include "artnet/forwarding_datagram.h"
#include "artnet/recording_writer.h"
#include "artnet/records.h"
#include "posix/file_descriptor.h"

namespace ctl {

namespace {

constexpr int kArtNetPort = 6454;
constexpr int kHighestPort = 65535;
/// So many datagrams go out back to back: a socket with a small buffer keeps some 170.
constexpr std::size_t kBurst = 64;
constexpr std::chrono::milliseconds kBurstPause{1};

std::string playlists_text(const std::set<int>& playlists) {
    std::string text = "playlist ";
    for (const int id : playlists) {
        text += (id == *playlists.begin() ? "" : ", ") + std::to_string(id);
    }
    return text;
}

std::string error_text(int error) {
    if (error == ECONNREFUSED) {
        return "nobody listens there: is cuewright-forwarder running for this port?";
    }
    return std::generic_category().message(error);
}

using Datagram = std::array<unsigned char, artnet::kForwardingDatagramSize>;

Datagram datagram_of(const ZeroFrame& frame, std::uint16_t manufacturer) {
    Datagram datagram{};
    artnet::write_forwarding_header(std::span(datagram).first<artnet::kForwardingHeaderSize>(), manufacturer,
                                    frame.to.address, frame.to.port);
    const std::array<std::uint8_t, kMaxDmxChannels> dark{};
    std::vector<std::uint8_t> packet;
    append_artdmx(packet, static_cast<std::uint16_t>(frame.universe), dark);
    std::copy(packet.begin(), packet.end(), datagram.begin() + artnet::kForwardingHeaderSize);
    return datagram;
}

}  // namespace

std::vector<ZeroFrame> plan_zero_frames(const ShowOutput& show, const ondra::ArtnetNodeMap& nodes,
                                        const std::string& broadcast) {
    std::vector<ZeroFrame> frames;
    for (const auto& [universe, destinations] : show.universes) {
        std::map<Endpoint, std::string> reasons;
        const auto add = [&reasons](const Endpoint& to, const std::string& reason) {
            std::string& text = reasons[to];
            text += (text.empty() ? "" : ", ") + reason;
        };
        for (const auto& [to, playlists] : destinations) {
            add(to, playlists_text(playlists));
        }
        if (const auto found = nodes.find(universe); found != nodes.end()) {
            // A node announced twice stands twice.
            std::set<ondra::ArtnetNode> each(found->second.begin(), found->second.end());
            for (const ondra::ArtnetNode& node : each) {
                add({node.ip, node.port}, "node");
            }
        }
        if (!broadcast.empty()) {
            add({broadcast, kArtNetPort}, "broadcast");
        }
        for (auto& [to, reason] : reasons) {
            frames.push_back({universe, to, std::move(reason)});
        }
    }
    return frames;
}

/// A socket of one port of the forwarder's. Connected, so that the system tells when nobody is there.
class ZeroSender::ForwarderPort {
public:
    explicit ForwarderPort(int port) : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (!socket_ ||
            connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            error_ = errno;
        }
    }

    /// False once something has gone wrong; then error() says what.
    bool send(const Datagram& datagram) {
        if (error_ == 0 && ::send(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) < 0) {
            error_ = errno;
        }
        return error_ == 0;
    }

    /// Takes in what came back late, such as the notice that nobody listens.
    [[nodiscard]] int error() {
        int late = 0;
        socklen_t size = sizeof late;
        if (error_ == 0 && getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &late, &size) == 0) {
            error_ = late;
        }
        return error_;
    }

private:
    posix::FileDescriptor socket_;
    int error_ = 0;
};

ZeroSender::ZeroSender(std::uint16_t manufacturer) : manufacturer_(manufacturer) {}

ZeroSender::~ZeroSender() = default;

void ZeroSender::send(std::span<const ZeroFrame> frames) {
    for (const ZeroFrame& frame : frames) {
        sent_.insert({frame.universe, frame.to});
        send(frame);
    }
}

void ZeroSender::send_new(std::span<const ZeroFrame> frames) {
    for (const ZeroFrame& frame : frames) {
        if (sent_.insert({frame.universe, frame.to}).second) {
            send(frame);
        }
    }
}

void ZeroSender::send(const ZeroFrame& frame) {
    const int port = frame.to.port;
    if (port < 1 || port > kHighestPort) {
        delivery_.failures.emplace(port, "not a port");
        return;
    }
    std::unique_ptr<ForwarderPort>& socket = ports_[port];
    if (!socket) {
        socket = std::make_unique<ForwarderPort>(port);
    }
    if (!socket->send(datagram_of(frame, manufacturer_))) {
        return;
    }
    ++delivery_.sent;
    if (++in_burst_ % kBurst == 0) {
        std::this_thread::sleep_for(kBurstPause);
    }
}

ZeroDelivery ZeroSender::delivery() {
    ZeroDelivery result = delivery_;
    for (const auto& [port, socket] : ports_) {
        if (const int error = socket->error(); error != 0) {
            result.failures.emplace(port, error_text(error));
        }
    }
    return result;
}

}  // namespace ctl
