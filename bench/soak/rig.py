"""The programs of a run: session bus, service, client, forwarder, and the receiver at the forwarder's far side."""

import fcntl
import json
import os
import signal
import struct
import subprocess
import threading

from harness import paths
from harness.programs import Program, Service, program_environment

# What is addressed to the net of the show, its broadcast address included, is received here.
NET = "192.0.2.0/24"
FAR_SIDE = "127.0.0.2"
PIPE_BYTES = 1 << 20
END_SECONDS = 30.0
ROW = struct.Struct("<qIHBB")


class Forwarder(Program):
    """The real forwarder, its counters as JSON."""

    def __init__(self, port):
        super().__init__([paths.FORWARDER, "--port", port, "--rewrite", f"{NET}={FAR_SIDE}", "--json"],
                         env=program_environment(), stderr=subprocess.STDOUT)
        self.read()

    def finish(self):
        """Ends it; its counters, or None when it had none to give, and its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            printed, _ = self.process.communicate(timeout=END_SECONDS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            printed, _ = self.process.communicate()
        self.end()
        counters = [line for line in printed.splitlines() if line.startswith('{"type":"counters"')]
        return json.loads(counters[-1]) if counters else None, self.process.returncode


class FarSide(Program):
    """Receives, with the kernel's time stamps, and enters each row in the ledger on a thread of its own."""

    def __init__(self, port, ledger):
        """ledger: anything with `lock` and `add`."""
        self._ledger = ledger
        ours, theirs = os.pipe()
        fcntl.fcntl(theirs, fcntl.F_SETPIPE_SZ, PIPE_BYTES)
        super().__init__([paths.tool("bench_receiver"), f"{FAR_SIDE}:{port}", 0, f"/dev/fd/{theirs}"], pass_fds=[theirs])
        os.close(theirs)
        self._pipe = os.fdopen(ours, "rb", buffering=0)
        self.buffer = int(self.read().split()[1])
        self._thread = threading.Thread(target=self._enter_rows, daemon=True)
        self._thread.start()

    def _enter_rows(self):
        rest = b""
        while chunk := self._pipe.read(1 << 16):
            rest += chunk
            whole = len(rest) - len(rest) % ROW.size
            with self._ledger.lock:
                for time, serial, universe, sequence, length in ROW.iter_unpack(rest[:whole]):
                    self._ledger.add(time, serial, universe, sequence, length)
            rest = rest[whole:]

    def finish(self):
        """Ends it once all is entered: datagrams taken in, and dropped by its kernel; None when it had ended before."""
        self.process.stdin.close()
        self.process.stdin = None
        words = self.process.stdout.readline().split()
        self._thread.join()
        self._pipe.close()
        self.end()
        return (int(words[0]), int(words[1])) if len(words) == 3 else None


class Rig:
    """All of them, started in the order in which each needs the others."""

    def __init__(self, plan, ledger):
        self.show = plan.write()
        self.far_side = FarSide(plan.port, ledger)
        self.forwarder = Forwarder(plan.port)
        self.service = Service(self.show)

    def casualty(self):
        """Says which program has ended too early, if one has."""
        for name, program in (("cuewright", self.service.program), ("cuewright-forwarder", self.forwarder), ("the receiver", self.far_side)):
            status = program.process.poll()
            if status is not None:
                return f"{name} ended, {'signal' if status < 0 else 'status'} {abs(status)}"
        return None


def udp_counters():
    """The kernel's counters of this network namespace: datagrams sent and received, and those lost for any reason."""
    with open("/proc/self/net/snmp", encoding="ascii") as file:
        names, values = (line.split()[1:] for line in file if line.startswith("Udp:"))
    return dict(zip(names, map(int, values)))
