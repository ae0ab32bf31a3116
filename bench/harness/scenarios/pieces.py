"""Single functions, by Google Benchmark: build/bench/bench/piece_benchmarks."""

import json
import subprocess

from .. import paths
from ..machine import Noise
from ..programs import Program

LEAST_SECONDS = "0.2"
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def run_scenario(bench):
    result = bench.result
    file = paths.SCRATCH / "pieces.json"
    bench.wait()
    noise = Noise(Program.live_pids)
    words = [paths.tool("piece_benchmarks"), f"--benchmark_out={file}", "--benchmark_out_format=json",
             f"--benchmark_repetitions={bench.options.rounds}", "--benchmark_enable_random_interleaving=true",
             f"--benchmark_min_time={bench.choose(LEAST_SECONDS, '0.01')}"]
    done = subprocess.run(words, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{words[0]} ended with status {done.returncode}: {done.stderr}")
    noise = noise.end()
    runs = [one for one in json.loads(file.read_text(encoding="utf-8"))["benchmarks"] if one["run_type"] == "iteration"]
    for number, one in enumerate(runs, 1):
        if one.get("error_occurred"):
            raise RuntimeError(f"{one['name']}: {one['error_message']}")
        figures = {"ns": one["real_time"] * NANOSECONDS[one["time_unit"]]} | {key: one[key] for key in ("bytes_per_second", "items_per_second") if key in one}
        result.add(one["name"], f"{number}/{len(runs)}", **figures, **noise)
