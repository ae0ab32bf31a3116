"""The machine: what it is, and how quiet it was while something was measured."""

import contextlib
import mmap
import os
import platform
import resource
import subprocess
import time

from . import paths

TICKS = os.sysconf("SC_CLK_TCK")

# A machine counts as quiet when everything else together takes less than this share of one core.
QUIET_SHARE = 0.05

# More than a run fills in user memory and in the kernel's queues together.
PAGES_SUPPLIED = 1 << 30


def supply_pages():
    """
    Takes memory and gives it back, so that the host of a virtual machine has supplied what a run is about to fill.

    A host takes back what its guest leaves free, and supplies it anew at the first touch, several times more slowly than
    the guest copies. That is a cost of whoever comes first after a pause, in a load as in the kernel's queue of datagrams,
    and says nothing about the program that happens to pay it. Never takes more than a quarter of what is available.
    """
    with open("/proc/meminfo", encoding="ascii") as file:
        available = next(int(line.split()[1]) for line in file if line.startswith("MemAvailable:")) * 1024
    size = min(PAGES_SUPPLIED, available // 4)
    mmap.mmap(-1, size, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS | mmap.MAP_POPULATE).close()


def commit():
    """What is measured; "-dirty" at its end when something of it is not committed, "unknown" without git or a repository."""
    try:
        told = subprocess.run(["git", "-C", paths.TOP, "describe", "--always", "--dirty"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True, check=False)
    except OSError:
        return "unknown"
    return told.stdout.strip() or "unknown"


def describe():
    model = "unknown"
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as file:
        for line in file:
            if line.startswith(("model name", "Model")):
                model = line.split(":", 1)[1].strip()
                break
    pages = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE")
    with open("/proc/sys/net/core/rmem_max", encoding="ascii") as file:
        rmem_max = int(file.read())
    return {
        "commit": commit(),
        "started": time.strftime("%Y-%m-%d %H:%M:%S UTC", time.gmtime()),
        "processor": model,
        "cores": os.cpu_count(),
        "memory_mib": pages >> 20,
        "kernel": platform.release(),
        "architecture": platform.machine(),
        "rmem_max": rmem_max,
        "root": os.geteuid() == 0,
        "virtual": os.path.exists("/sys/hypervisor") or "hypervisor" in open("/proc/cpuinfo", encoding="ascii", errors="replace").read(),
    }


def _cpu_ticks():
    """Busy and stolen ticks of all cores since the machine started."""
    with open("/proc/stat", encoding="ascii") as file:
        values = [int(word) for word in file.readline().split()[1:9]]
    user, nice, system, _idle, _wait, irq, softirq, steal = values
    return user + nice + system + irq + softirq, steal


def process_seconds(pid):
    """CPU seconds of a live process with all its threads, ended ones included; to the tick."""
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as file:
            fields = file.read().rsplit(")", 1)[1].split()
    except OSError:
        return 0.0
    return (int(fields[11]) + int(fields[12])) / TICKS


def thread_seconds(pid, name=None):
    """CPU seconds of a live process's live threads, or of those with a name, to the nanosecond."""
    total = 0
    for task in os.listdir(f"/proc/{pid}/task"):
        # A thread may end while we look, as loaders do.
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            with open(f"/proc/{pid}/task/{task}/comm", encoding="ascii", errors="replace") as file:
                if name is not None and file.read().strip() != name:
                    continue
            with open(f"/proc/{pid}/task/{task}/schedstat", encoding="ascii") as file:
                total += int(file.read().split()[0])
    return total * 1e-9


def memory_kib(pid, key):
    """VmRSS, VmHWM, ... of a process."""
    with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as file:
        for line in file:
            if line.startswith(key + ":"):
                return int(line.split()[1])
    return 0


class Noise:
    """What other processes took, and what the hypervisor stole, between begin and end; in cores."""

    def __init__(self, live_pids):
        """live_pids: a function that gives our own processes of the moment."""
        self._live_pids = live_pids
        self._start = self._now()

    def _now(self):
        own = resource.getrusage(resource.RUSAGE_SELF)
        ended = resource.getrusage(resource.RUSAGE_CHILDREN)
        seconds = own.ru_utime + own.ru_stime + ended.ru_utime + ended.ru_stime
        seconds += sum(process_seconds(pid) for pid in self._live_pids())
        busy, steal = _cpu_ticks()
        return time.monotonic(), busy / TICKS, steal / TICKS, seconds

    def end(self):
        begin, end = self._start, self._now()
        wall = max(end[0] - begin[0], 1e-6)
        others = (end[1] - begin[1]) - (end[3] - begin[3])
        return {"others": max(others, 0.0) / wall, "steal": (end[2] - begin[2]) / wall}


class Patience:
    """Waits for quiet before each run, as long in all as it was given for the scenario."""

    def __init__(self, seconds, say):
        self._left = seconds
        self._say = say
        self._told = False

    def wait(self):
        """Waits for a quiet half second; False when there was none as long as patience lasted."""
        while True:
            begin = time.monotonic()
            busy, steal = _cpu_ticks()
            time.sleep(0.5)
            busy_after, steal_after = _cpu_ticks()
            seconds = time.monotonic() - begin
            share = (busy_after - busy + steal_after - steal) / TICKS / seconds
            if share < QUIET_SHARE:
                return True
            self._left -= seconds
            if self._left <= 0:
                return False
            if not self._told:
                self._say(f"  other programs take {share:.2f} cores; waiting for a quiet machine, up to {self._left:.0f} s in all")
                self._told = True
