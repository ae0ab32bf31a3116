"""A capture by tshark: the kernel's time stamps of what passes a link, and what tshark's dissector makes of it."""

import signal
from typing import NamedTuple

from rig import MARK_PORT, need, require, until

FIELDS = ("frame.time_epoch", "udp.dstport", "ip.src", "ip.dst", "ip.dsfield.dscp", "artnet.header.opcode", "artnet.output.universe",
          "artnet.output.sequence", "artnet.output.length", "dmx_chan.data_filter", "_ws.malformed", "_ws.expert.message", "udp.payload")


class Packet(NamedTuple):
    """A datagram. Numbers are -1 and bytes empty where the dissector has no such field."""
    time: int  # nanoseconds
    port: int
    source: str
    destination: str
    dscp: int
    opcode: int
    universe: int
    sequence: int
    length: int
    levels: bytes
    malformed: str
    remark: str
    payload: bytes


def number(text):
    return int(text, 0) if text else -1


def packet_of(line):
    words = line.split(";")
    seconds, _, fraction = words[0].partition(".")
    time = int(seconds) * 1_000_000_000 + int(fraction.ljust(9, "0")[:9])
    return Packet(time, number(words[1]), words[2], words[3], *(number(word) for word in words[4:9]), bytes.fromhex(words[9].replace(":", "")),
                  words[10], words[11], bytes.fromhex(words[12].replace(":", "")))


class Capture:
    """Runs until finish()."""

    def __init__(self, rig, link, prefix=()):
        need("tshark", "tshark")
        self._rig = rig
        words = [*prefix, "tshark", "-i", link, "-l", "-n", "-f", f"udp port 6454 or udp port {MARK_PORT}", "-T", "fields", "-E", "separator=;"]
        for field in FIELDS:
            words += ["-e", field]
        self._tshark = rig.start(words)
        # Its own word that it captures may come before the first packet would be seen.
        until("tshark to capture", self._mark_seen)

    def _mark_seen(self):
        self._tshark.alive()
        self._rig.mark("the begin of the capture")
        return any(map(self._is_mark, list(self._tshark.out)))

    @staticmethod
    def _is_mark(line):
        return line.split(";")[1:2] == [str(MARK_PORT)]

    def seen(self):
        """All Art-Net datagrams that it has shown so far."""
        return [packet for packet in map(packet_of, list(self._tshark.out)) if packet.port != MARK_PORT]

    def finish(self):
        """Ends it when it has shown everything up to now; all Art-Net datagrams."""
        end = b"the end of the capture"
        self._rig.mark(end.decode())
        until("tshark to show the end", lambda: self._tshark.alive() and any(line.endswith(end.hex()) for line in list(self._tshark.out)))
        self._tshark.finish(signal.SIGINT, status=None)
        drops = [line for line in self._tshark.err if "dropped" in line]
        require(not drops, f"the capture is not whole: {drops}")
        return self.seen()


def frames_only(packets):
    """The ArtDmx among them."""
    return [packet for packet in packets if packet.opcode == 0x5000]


def require_well_formed(packets):
    for packet in packets:
        require(not packet.malformed and not packet.remark,
                f"tshark on {packet.payload[:20].hex()}...: {packet.malformed} {packet.remark}")
        require(packet.opcode != -1, f"tshark does not take {packet.payload[:20].hex()}... for Art-Net")
