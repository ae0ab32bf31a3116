"""The same frames by another player: the recorder of the Open Lighting Architecture, in a network of its own."""

import os
import shutil
import statistics
import subprocess
import time

import numpy

from .. import paths
from ..analysis import Frames, quantiles
from ..programs import Program, Receiver, run
from .pacing import FPS, INTERVAL_NS, SETTLE_SECONDS, once_settled, service

UNIVERSES = 4
NEAR, FAR = "cuebencha", "cuebenchb"
PLUGINS_OFF = ("dummy", "e131", "espnet", "ftdidmx", "gpio", "karate", "kinet", "milinst", "nanoleaf", "opendmx", "openpixelcontrol",
               "osc", "pathport", "renard", "sandnet", "shownet", "spi", "spidmx", "stageprofi", "uartdmx", "usbdmx", "usbpro",
               "usbserial", "opensoundcontrol", "stream")


class SkipScenario(Exception):
    """Carries the reason why a scenario cannot run here."""


class Network:
    """Two network namespaces joined by a cable; needs root."""

    def __enter__(self):
        for words in (
            f"ip netns add {NEAR}", f"ip netns add {FAR}",
            f"ip link add {NEAR}0 netns {NEAR} type veth peer name {FAR}0 netns {FAR}",
            f"ip -n {NEAR} addr add 10.77.0.1/24 brd + dev {NEAR}0", f"ip -n {FAR} addr add 10.77.0.2/24 brd + dev {FAR}0",
            f"ip -n {NEAR} link set lo up", f"ip -n {FAR} link set lo up",
            f"ip -n {NEAR} link set {NEAR}0 up", f"ip -n {FAR} link set {FAR}0 up",
        ):
            run(words.split(), stderr=subprocess.DEVNULL)
        return self

    def __exit__(self, *_):
        for name in (NEAR, FAR):
            subprocess.run(["ip", "netns", "delete", name], check=False, stderr=subprocess.DEVNULL)


def write_show(path, seconds):
    """The frames that make_show makes, in the recorder's own format."""
    with open(path, "w", encoding="ascii") as file:
        file.write("OLA Show\n")
        for frame in range(int(seconds * FPS)):
            levels = [(frame + channel) & 0xFF for channel in range(512)]
            levels[:4] = [frame % 128 * 2, frame // 128 % 128 * 2, 0, 0]
            text = ",".join(str(level) for level in levels)
            for universe in range(1, UNIVERSES + 1):
                file.write(f"{universe} {text}\n{1000 // FPS if universe == UNIVERSES else 0}\n")


def configure(home):
    shutil.rmtree(home, ignore_errors=True)
    home.mkdir(parents=True)
    (home / "ola-artnet.conf").write_text(
        "enabled = true\nip = 10.77.0.1\nnet = 0\nsubnet = 0\noutput_ports = 4\nalways_broadcast = true\nuse_loopback = false\n")
    for plugin in PLUGINS_OFF:
        (home / f"ola-{plugin}.conf").write_text("enabled = false\n")
    run(["chown", "-R", "olad", home])


def peer(seconds):
    home = paths.Path("/tmp") / f"cuewright-bench-ola-{os.getpid()}"
    configure(home)
    inside = ["ip", "netns", "exec", NEAR]
    try:
        with Network():
            with Program([*inside, "setpriv", "--reuid", "olad", "--regid", "nogroup", "--clear-groups", "env", f"HOME={home}",
                          "olad", "-c", home, "-l", "1", "--no-register-with-dns-sd"], stderr=subprocess.DEVNULL):
                device = artnet_device(inside)
                for port in range(UNIVERSES):
                    run([*inside, "ola_patch", "-d", device, "-p", port, "-u", port + 1], stderr=subprocess.DEVNULL)
                show = home / "frames.ola"
                write_show(show, seconds + SETTLE_SECONDS)
                with Receiver(int(UNIVERSES * FPS * (seconds + 10)), 6454, ["ip", "netns", "exec", FAR]) as receiver:
                    run([*inside, "ola_recorder", "-p", show, "-i", "1"], stderr=subprocess.DEVNULL, timeout=seconds + SETTLE_SECONDS + 30)
                    rows = receiver.rows()
    finally:
        shutil.rmtree(home, ignore_errors=True)
    return rows


def artnet_device(inside):
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        done = subprocess.run([*inside, "ola_dev_info"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
        for line in done.stdout.splitlines():
            if line.startswith("Device") and "ArtNet" in line:
                return line.split()[1].rstrip(":")
        time.sleep(0.1)
    raise SkipScenario("the peer's daemon offers no ArtNet device")


def peer_figures(seconds):
    rows = peer(seconds)
    rows = rows[rows["length"] >= 530 // 4]
    universes = numpy.unique(rows["universe"])
    if len(universes) < UNIVERSES:
        raise SkipScenario(f"the peer sent only universes {list(universes)}")
    # Named from 0 on, as ours are.
    rows["universe"] = numpy.searchsorted(universes, rows["universe"])
    frames = Frames(once_settled(rows), UNIVERSES, INTERVAL_NS)
    p50, p99, most = quantiles(frames.deviations * 1e-3)
    return {"frames": len(frames.first), "deviation_p50_us": p50, "deviation_p99_us": p99, "deviation_max_us": most,
            "drift_ppm": frames.drift_ppm()}


def run_scenario(bench):
    if os.geteuid() != 0:
        raise SkipScenario("it needs root for network namespaces")
    if shutil.which("olad") is None or shutil.which("ola_recorder") is None:
        raise SkipScenario("Debian's package ola is not installed and could not be had")
    result = bench.result
    seconds = bench.options.seconds or bench.choose(60.0, 3.0)
    bench.rounds(
        ("OLA's recorder", lambda: peer_figures(seconds)),
        ("cuewright", lambda: service(UNIVERSES, seconds)),
    )
    result.goal("pacing, peer: p99 interval deviation, part of the peer's",
                result.median("cuewright", "deviation_p99_us") / result.median("OLA's recorder", "deviation_p99_us"), 0.05)
    result.goal("pacing, peer: packets of ours lost, repeated or out of order",
                sum(one["faults"] + one["dropped"] for one in result.data["cases"]["cuewright"]["rounds"]), 0)
    # Which way it drifts does not matter: a median of signed slopes would show the best round.
    ours, recorder = ([abs(value) for value in result.values(case, "drift_ppm")] for case in ("cuewright", "OLA's recorder"))
    result.tell("pacing, peer: drift in ppm, median and worst round", ours=statistics.median(ours), ours_worst=max(ours),
                peer=statistics.median(recorder), peer_worst=max(recorder))
    result.tell("pacing, peer: frames of each run, of " + str(int(seconds * FPS)),
                ours=result.median("cuewright", "frames"), peer=result.median("OLA's recorder", "frames"))
