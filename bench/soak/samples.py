"""What the programs hold on to, looked at in rests, when nothing but the references is loaded."""

import os
import time

from harness.machine import memory_kib

from .slope import slope

SECONDS_PER_HOUR = 3600.0


def look(pid):
    """Memory, descriptors and threads of a live process."""
    return {"rss_kib": memory_kib(pid, "VmRSS"), "descriptors": len(os.listdir(f"/proc/{pid}/fd")),
            "threads": len(os.listdir(f"/proc/{pid}/task"))}


class Samples:
    """One program's samples; what lies before `warm_up` seconds counts for nothing but the record."""

    def __init__(self, pid, warm_up):
        self.pid = pid
        self._warm_up = warm_up
        self._begin = time.monotonic()
        self.all = []

    def take(self):
        self.all.append({"seconds": time.monotonic() - self._begin, **look(self.pid)})
        return self.all[-1]

    @property
    def warm(self):
        return [sample for sample in self.all if sample["seconds"] >= self._warm_up]

    def figures(self):
        return growth(self.warm)


def growth(samples):
    """Slope and fitted growth of memory, and the change of descriptors and threads from the first sample to the most."""
    if not samples:
        return {"samples": 0, "rss_kib": 0, "slope_kb_per_hour": 0.0, "growth_kb": 0.0, "descriptors": (0, 0), "threads": (0, 0)}
    # Kilobytes of 1000, as the figure is quoted; /proc counts in units of 1024 bytes.
    per_second = slope([(sample["seconds"], sample["rss_kib"] * 1.024) for sample in samples])
    figures = {"samples": len(samples), "rss_kib": samples[-1]["rss_kib"], "slope_kb_per_hour": per_second * SECONDS_PER_HOUR,
               "growth_kb": per_second * (samples[-1]["seconds"] - samples[0]["seconds"])}
    for figure in ("descriptors", "threads"):
        figures[figure] = (samples[0][figure], max(sample[figure] for sample in samples))
    return figures
