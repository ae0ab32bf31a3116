#pragma once
// A non-blocking IPv4 UDP socket over the POSIX calls.

#include "ondra/net/host_address.h"

namespace ondra::net {

/**
 * Non-blocking UDP socket with broadcast permitted, set up on first use.
 *
 * One object is used by one thread at a time and is neither copied nor moved. No operation throws, logs or
 * retries a set-up or a send; failures are results, and the object stays usable after any of them.
 */
class UdpSocket final {
public:
    UdpSocket() = default;
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    /// Creates and configures the descriptor unless that is done; false on failure (tried again next time).
    bool initialize();

    /// Binds `port` on every local interface; false for any address but "0.0.0.0".
    bool bind(const HostAddress& address, int port);
    bool bind(int port);

    /// True when a datagram is queued; false before set-up.
    [[nodiscard]] bool hasPendingDatagrams() const;

    /// Bytes of the next datagram; -1 when there is none, before set-up, and for 8192 bytes or more.
    [[nodiscard]] int pendingDatagramSize() const;

    /**
     * Receives one datagram into `data` (`size` bytes; 0 discards it).
     *
     * @param address, port  may be null; written even on failure ("0.0.0.0" and 0)
     * Returns the byte count, -1 on error, 0 when set-up fails.
     */
    int readDatagram(char* data, unsigned size, HostAddress* address = nullptr, int* port = nullptr);

    /// Sends one datagram; bytes sent, or -1 (bad address, set-up failure, full send buffer).
    int writeDatagram(const char* data, unsigned size, const HostAddress& address, int port);

    /// Waits for readability (true) or writability; positive when ready, 0 on time-out, -1 on error.
    /// `timeout_ms` below 0 waits without limit. Before set-up nothing becomes ready.
    [[nodiscard]] int select_with_tm(int timeout_ms, bool read) const;

    /// True when a datagram can be read within `timeout_ms`.
    bool waitForReadyRead(int timeout_ms);

private:
    int descriptor_ = -1;
    bool initialized_ = false;
};

}  // namespace ondra::net
