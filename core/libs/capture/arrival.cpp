#include "capture/arrival.h"

#include "artnet/forwarding_datagram.h"

namespace capture {

Arrival read_arrival(const Datagram& datagram, Payload payload) noexcept {
    Arrival arrival;
    arrival.time = datagram.time;
    arrival.peer = datagram.sender;
    if (payload == Payload::Plain) {
        arrival.kind = artnet::decode_packet(datagram.bytes, arrival.dmx);
        return arrival;
    }
    artnet::ForwardingTarget target;
    if (artnet::parse_forwarding_datagram(datagram.bytes, target) == artnet::ForwardingFault::None) {
        arrival.peer = {target.address, target.port};
        arrival.kind =
            artnet::decode_packet(datagram.bytes.subspan(artnet::kForwardingHeaderSize), arrival.dmx);
    }
    return arrival;
}

}  // namespace capture
