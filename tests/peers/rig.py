"""Programs, their ends, deadlines, and a network of two machines: ours (this namespace) and the peer's."""

import json
import os
import shutil
import signal
import socket
import subprocess
import threading
import time
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
SCRATCH = TOP / "build" / "peers"
# Generous, since it only ever runs out where something is wrong.
PATIENCE = float(os.environ.get("PEERS_PATIENCE", "120"))

OUR_ADDRESS, PEER_ADDRESS = "10.77.0.1", "10.77.0.2"
OUR_LINK, PEER_LINK = "ours0", "peer0"
ART_NET_PORT = 6454
# Datagrams to this port mark places in a capture.
MARK_PORT = 6455


class Failed(Exception):
    """What a test says when a peer saw something else than it should."""


class Skipped(Exception):
    """What is missing for a test."""


def require(condition, message):
    if not condition:
        raise Failed(message)


def until(what, condition, patience=None):
    """Waits for a condition to hold and gives its value; fails with `what` after the deadline."""
    deadline = time.monotonic() + (patience or PATIENCE)
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise Failed(f"waited {patience or PATIENCE:g} s in vain: {what}")
        time.sleep(0.02)
    return value


def need(program, package):
    """Skips the test where a peer's program is not there."""
    if not shutil.which(program):
        raise Skipped(f"{program} is missing (package {package})")


def ours(name):
    """The built program of that name."""
    build = Path(os.environ.get("PEERS_BUILD", TOP / "build" / "release"))
    if not build.is_absolute():
        build = TOP / build
    for path in sorted(build.rglob(name)):
        if path.is_file() and os.access(path, os.X_OK):
            return path
    raise Failed(f"{name} is not in {build}")


def run(words, **options):
    """Runs a program to its end and gives what it printed."""
    done = subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False, **options)
    require(done.returncode == 0, f"{Path(words[0]).name} ended with status {done.returncode}: {done.stderr.strip()}")
    return done.stdout


class Program:
    """A child process whose lines are kept: `out` and `err`."""

    def __init__(self, words, **options):
        words = [str(word) for word in words]
        self.title = next((Path(word).name for word in words if Path(word).name not in ("nsenter", "unshare") and not word.startswith("-")), words[0])
        self.process = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        text=True, errors="replace", bufsize=1, **options)
        self.out, self.err = [], []
        self._threads = [threading.Thread(target=self._read, args=pair, daemon=True)
                         for pair in ((self.process.stdout, self.out), (self.process.stderr, self.err))]
        for thread in self._threads:
            thread.start()

    @staticmethod
    def _read(pipe, lines):
        for line in pipe:
            lines.append(line.rstrip("\n"))

    @property
    def pid(self):
        return self.process.pid

    def said(self, text):
        return any(text in line for line in self.out + self.err)

    def alive(self):
        """Fails if the program has ended by itself."""
        if self.process.poll() is not None:
            self._join()
            raise Failed(f"{self.title} ended with status {self.process.returncode}: {' / '.join((self.err or self.out)[-3:])}")
        return True

    def wait_for(self, text):
        until(f"{self.title} to say \"{text}\"", lambda: self.said(text) or (self.alive() and False))

    def write(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def _join(self):
        for thread in self._threads:
            thread.join(10)

    def finish(self, how=None, status=0):
        """Waits for the end, which a signal may bring about; everything printed is there then."""
        if how is not None and self.process.poll() is None:
            self.process.send_signal(how)
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            raise Failed(f"{self.title} does not end") from None
        self._join()
        require(status is None or self.process.returncode == status,
                f"{self.title} ended with status {self.process.returncode}: {' / '.join((self.err or self.out)[-3:])}")

    def end(self):
        """Ends it whatever its state."""
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self._join()
        for pipe in (self.process.stdin, self.process.stdout, self.process.stderr):
            try:
                pipe.close()
            except OSError:
                pass


class Rig:
    """What a test works with: a scratch directory, a second network namespace, and programs that end with the test."""

    def __init__(self, name, fault):
        self.fault = fault
        self.figures = []
        self.directory = SCRATCH / "run" / (name + (f"-{fault}" if fault else ""))
        shutil.rmtree(self.directory, ignore_errors=True)
        self.directory.mkdir(parents=True)
        self._programs = []

    def __enter__(self):
        # Holds the peer's namespace open as long as its input is.
        holder = self.start(["unshare", "--net", "cat"])
        until("the peer's network namespace",
              lambda: holder.alive() and os.readlink(f"/proc/{holder.pid}/ns/net") != os.readlink("/proc/self/ns/net"))
        self.peer = ["nsenter", f"--net=/proc/{holder.pid}/ns/net"]
        run(["ip", "link", "set", "lo", "up"])
        run(["ip", "link", "add", OUR_LINK, "type", "veth", "peer", "name", PEER_LINK, "netns", holder.pid])
        for prefix, link, address in ([], OUR_LINK, OUR_ADDRESS), (self.peer, PEER_LINK, PEER_ADDRESS):
            run([*prefix, "ip", "address", "add", f"{address}/24", "brd", "+", "dev", link])
            run([*prefix, "ip", "link", "set", "lo", "up"])
            run([*prefix, "ip", "link", "set", link, "up"])
        return self

    def __exit__(self, *_):
        for program in reversed(self._programs):
            program.end()
        # Goes with the namespace, but not at once, and the next test wants the name.
        subprocess.run(["ip", "link", "delete", OUR_LINK], stderr=subprocess.DEVNULL, check=False)

    def start(self, words, **options):
        program = Program(words, **options)
        self._programs.append(program)
        return program

    def say(self, text):
        """A figure for the report."""
        self.figures.append(text)

    def mark(self, text):
        """Sends a mark to the peer, which both sides' captures show."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.sendto(text.encode(), (PEER_ADDRESS, MARK_PORT))


class Service:
    """The playback service with a data directory and a session bus of its own."""

    NAME = "com.torvexserver.Cuewright"

    def __init__(self, rig):
        self._rig = rig
        self._data = rig.directory / "device" / "data"
        (self._data / "playlists").mkdir(parents=True)
        (self._data / "recordings").mkdir()
        self._playlists = []
        # A copy, since it finds its data beside its own file.
        program = rig.directory / "device" / "bin" / "cuewright"
        program.parent.mkdir()
        shutil.copy2(ours("cuewright"), program)
        bus = rig.start(["dbus-daemon", "--session", "--nofork", "--print-address=1"])
        address = until("the session bus", lambda: bus.alive() and bus.out)[0]
        self.environment = {**os.environ, "LC_ALL": "C.UTF-8", "DBUS_SESSION_BUS_ADDRESS": address}
        self._program = program
        self._monitor = None

    def add(self, number, recording, outputs, loop=False):
        """A playlist; before start()."""
        shutil.copy2(recording, self._data / "recordings" / f"{number}.rec")
        effect = {"path": f"recordings/{number}.rec", "fps": -1, "outputs": outputs, "universes": []}
        self._write(f"{number}.json", [effect])
        self._playlists.append({"Id": number, "Loop": loop})
        self._write("playlists.json", self._playlists)

    def _write(self, name, value):
        (self._data / "playlists" / name).write_text(json.dumps(value), encoding="utf-8")

    def start(self):
        self._rig.start([self._program], env=self.environment)
        run(["gdbus", "wait", "--session", "--timeout", int(PATIENCE), self.NAME], env=self.environment)
        self._monitor = self._rig.start(["gdbus", "monitor", "--session", "--dest", self.NAME], env=self.environment)
        self._monitor.wait_for("is owned by")

    def call(self, method, *arguments):
        return run(["gdbus", "call", "--session", "--timeout", int(PATIENCE), "--dest", self.NAME, "--object-path", "/",
                    "--method", f"{self.NAME}.{method}", *arguments], env=self.environment).strip()

    def play(self, number):
        require(self.call("play_playlist", number) == "(true,)", f"the service refuses to play playlist {number}")

    def wait_for_end(self, number, meanwhile=lambda: None):
        """Waits for the signal that a playlist has sent its last packet."""
        def ended():
            meanwhile()
            return self._monitor.said(f".OnPlaylistStopped ({number},)")

        until(f"the end of playlist {number}", ended)


def start_forwarder(rig, *options):
    forwarder = rig.start([ours("cuewright-forwarder"), *options, "--json"])
    forwarder.wait_for("istening")
    return forwarder


def start_recorder(rig, file, *options, prefix=()):
    """Records what comes until nothing has come for five seconds."""
    recorder = rig.start([*prefix, ours("cuewright-recording"), "record", "--until-idle", "5s", "--json", *options, file])
    recorder.wait_for("listening on")
    return recorder


def end_forwarder(forwarder):
    """Ends it after what had arrived is delivered."""
    forwarder.finish(signal.SIGTERM)
