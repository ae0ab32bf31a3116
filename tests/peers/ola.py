"""OLA's daemon in the peer's namespace."""

import json
import os

from rig import PEER_ADDRESS, need, run, until

# All that is not Art-Net, so that it looks for no hardware and opens no other port.
OTHER_PLUGINS = ("dummy e131 espdmx espnet ftdidmx gpio karate kinet milinst nanoleaf opendmx openpixelcontrol osc pathport renard sandnet "
                 "shownet spi spidmx stageprofi uartdmx usbdmx usbpro usbserial").split()
NET, SUBNET = 1, 2
# Of the four input ports and of the first output port; OLA's own numbers are the low four bits.
UNIVERSES = [NET << 8 | SUBNET << 4 | port for port in (1, 2, 3, 4)]
OUTPUT_UNIVERSE = NET << 8 | SUBNET << 4 | 5


class Ola:
    """A daemon that listens to UNIVERSES."""

    def __init__(self, rig, universes=None):
        need("olad", "ola")
        need("curl", "curl")
        self._peer = rig.peer
        configuration = rig.directory / "ola"
        configuration.mkdir()
        (configuration / "ola-artnet.conf").write_text(
            f"enabled = true\nip = {PEER_ADDRESS}\nnet = {NET}\nsubnet = {SUBNET}\noutput_ports = 4\nalways_broadcast = true\n"
            "use_loopback = false\nshort_name = peer\nlong_name = A peer\n", encoding="ascii")
        for plugin in OTHER_PLUGINS:
            (configuration / f"ola-{plugin}.conf").write_text("enabled = false\n", encoding="ascii")
        # It refuses root, and needs nothing of it.
        self.daemon = rig.start([*rig.peer, "unshare", "--user", "--map-user=1000", "--map-group=1000", "olad", "-c", configuration, "-l", "2",
                                 "--no-register-with-dns-sd"], env={**os.environ, "HOME": str(configuration)})
        until("OLA's daemon to answer", lambda: self.daemon.alive() and self._answers())
        for port, universe in enumerate(universes or UNIVERSES):
            run([*self._peer, "ola_patch", "-d", "1", "-p", port, "-i", "-u", universe & 15])

    def _answers(self):
        try:
            return "ArtNet" in run([*self._peer, "ola_dev_info"])
        except Exception:  # pylint: disable=broad-except
            return False

    def levels(self, universe):
        """What it has of a universe."""
        answer = run([*self._peer, "curl", "-sf", f"http://127.0.0.1:9090/get_dmx?u={universe & 15}"])
        return bytes(json.loads(answer)["dmx"])

    def start_sender(self, rig):
        """Takes lines of levels, each a packet of OUTPUT_UNIVERSE by broadcast."""
        run([*self._peer, "ola_patch", "-d", "1", "-p", 0, "-u", OUTPUT_UNIVERSE & 15])
        return rig.start([*self._peer, "ola_streaming_client", "-u", OUTPUT_UNIVERSE & 15])
