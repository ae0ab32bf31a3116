#pragma once
// The frames that make a device's outputs dark.

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "ondra/artnet_node_map.h"
#include "show.h"

namespace ctl {

/// A frame of zeros to send.
struct ZeroFrame {
    int universe = 0;
    Endpoint to;
    /// Who sends there otherwise: "playlist 1, 2", "node", "broadcast"; joined by ", ".
    std::string reason;
};

/**
 * Every place that a universe of the show can have been sent to, each once, ordered by universe.
 *
 * @param nodes      those of universes that the show does not light are left alone: somebody else does
 * @param broadcast  empty: no frames to a broadcast address
 */
[[nodiscard]] std::vector<ZeroFrame> plan_zero_frames(const ShowOutput& show,
                                                      const ondra::ArtnetNodeMap& nodes,
                                                      const std::string& broadcast);

/// What became of zero frames.
struct ZeroDelivery {
    /// Datagrams that the forwarder's socket took.
    std::size_t sent = 0;
    /// Port of 127.0.0.1 to what went wrong there.
    std::map<int, std::string> failures;
};

/**
 * Hands frames to the forwarder. A port that fails is given up.
 *
 * One thread; calls block while datagrams go out.
 */
class ZeroSender {
public:
    /// @param manufacturer  code of the device, for the datagrams' headers
    explicit ZeroSender(std::uint16_t manufacturer);
    ~ZeroSender();
    ZeroSender(const ZeroSender&) = delete;
    ZeroSender& operator=(const ZeroSender&) = delete;

    /// Sends each of them.
    void send(std::span<const ZeroFrame> frames);
    /// Sends those whose universe and destination have not been sent yet.
    void send_new(std::span<const ZeroFrame> frames);

    /// What has become of all of them.
    [[nodiscard]] ZeroDelivery delivery();

private:
    class ForwarderPort;

    void send(const ZeroFrame& frame);

    std::uint16_t manufacturer_;
    std::map<int, std::unique_ptr<ForwarderPort>> ports_;
    std::set<std::pair<int, Endpoint>> sent_;
    ZeroDelivery delivery_;
    std::size_t in_burst_ = 0;
};

}  // namespace ctl
