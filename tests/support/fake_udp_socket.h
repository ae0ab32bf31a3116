#pragma once
// What the engine sends, for tests that link the fake socket instead of the real one.

#include <functional>
#include <string>
#include <vector>

#include "ondra/timing.h"

/// One call of the socket's writeDatagram().
struct SentDatagram {
    ondra::Clock::time_point time;
    /// Where the socket was asked to send.
    std::string ip;
    int port = 0;
    std::vector<unsigned char> bytes;

    /// The real destination, as the forwarding header names it.
    [[nodiscard]] std::string destination() const;
    [[nodiscard]] int universe() const;
    /// Number of channels that the packet's header states.
    [[nodiscard]] int length() const;
    [[nodiscard]] int channel(int number) const;
};

/**
 * The fake socket's memory: every datagram of every socket of the process, in order.
 *
 * Linking it replaces ondra::net::UdpSocket. Any thread.
 */
struct FakeUdpSocket {
    /// Gives the errno to fail with for a datagram, 0 to take it. Called on the sending thread.
    using Verdict = std::function<int(const SentDatagram& datagram)>;

    static void reset();
    static void set_verdict(Verdict verdict);
    /// What was taken, failed sends left out.
    static std::vector<SentDatagram> sent();
    static std::size_t sent_count();
    /// Number of calls, failed ones included.
    static std::size_t attempts();
    /// Sockets destroyed so far.
    static int destroyed();
};
