#pragma once
// Receives Art-Net packets with the kernel's time stamps.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>

#include "packet.h"

namespace demo {

/**
 * Owns a UDP socket and the thread that empties it.
 *
 * Datagrams of 554 bytes are taken apart into forwarding header and packet; their line is what the header
 * says. The destructor stops and joins the thread, which notices at once.
 */
class PacketReceiver {
public:
    /**
     * Binds `ip` (dotted) and `port`, and starts receiving.
     *
     * Throws std::system_error; its code is EADDRINUSE when another program has the port.
     */
    PacketReceiver(const std::string& ip, std::uint16_t port);
    ~PacketReceiver();
    PacketReceiver(const PacketReceiver&) = delete;
    PacketReceiver& operator=(const PacketReceiver&) = delete;

    /// All packets since the last call, in the order of their arrival. Main thread.
    [[nodiscard]] std::vector<ReceivedPacket> take();

    /// Readable when there is something to take; reading it is the receiver's business. Main thread.
    [[nodiscard]] int descriptor() const noexcept { return ready_; }

private:
    /// Runs on the receive thread: blocks until datagrams or the stop come.
    void receive();
    void take_batch();
    void add(const std::uint8_t* bytes, std::size_t size, const msghdr& message);
    void close_all() noexcept;

    int socket_ = -1;
    /// Counter that ends the thread's wait.
    int stop_ = -1;
    /// Counter that tells the main thread of new packets.
    int ready_ = -1;
    std::mutex mutex_;
    /// Guarded by `mutex_`.
    std::vector<ReceivedPacket> packets_;
    std::thread thread_;
};

/**
 * Throws std::system_error with EADDRINUSE when a socket is bound to exactly this address.
 *
 * Address reuse would let two programs bind it, and the later one would get the datagrams.
 */
void check_port_is_free(const std::string& ip, std::uint16_t port);

}  // namespace demo
