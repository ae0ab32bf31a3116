"""Results: rounds gathered, medians over all of them, a line each on the terminal, JSON on disk."""

import json
import statistics

from . import paths


def say(text):
    print(text, flush=True)


class Result:
    """One scenario's figures. Every round is kept; nothing is ever left out."""

    def __init__(self, name, options, machine):
        self.data = {"scenario": name, "rounds": options.rounds, "quick": options.quick, "machine": machine, "cases": {}}

    def add(self, case, place, **figures):
        """One round of a case; `place` in the scenario's runs, for the terminal."""
        rounds = self.data["cases"].setdefault(case, {"rounds": []})["rounds"]
        rounds.append(figures)
        shown = "  ".join(f"{key} {short(value)}" for key, value in figures.items() if not isinstance(value, (list, dict)))
        say(f"  [{place}] {case}, round {len(rounds)}: {shown}")

    def values(self, case, figure):
        return [entry[figure] for entry in self.data["cases"][case]["rounds"]]

    def median(self, case, figure):
        return statistics.median(self.values(case, figure))

    def noise(self):
        """Cores that other programs and the hypervisor took, median over all runs."""
        return statistics.median(entry["others"] + entry["steal"] for case in self.data["cases"].values() for entry in case["rounds"])

    def goal(self, text, value, limit, at_least=False, unit=""):
        """States a figure against what it should reach."""
        reached = value >= limit if at_least else value <= limit
        sign = ">=" if at_least else "<="
        self.data.setdefault("goals", []).append(
            {"figure": text, "value": value, "limit": limit, "at_least": at_least, "unit": unit, "reached": bool(reached)}
        )
        say(f"  {'reached ' if reached else 'MISSED  '} {text}: {short(value)}{unit} (goal {sign} {short(limit)}{unit})")

    def tell(self, text, **figures):
        """States figures that no goal judges."""
        self.data.setdefault("facts", []).append({"fact": text, **figures})
        say(f"           {text}: " + "  ".join(f"{key} {short(value)}" for key, value in figures.items()))

    def print_medians(self):
        say(f"  medians of {self.data['rounds']} round(s):")
        for case, entry in self.data["cases"].items():
            names = [name for name, value in entry["rounds"][0].items() if not isinstance(value, (list, dict))]
            say(f"    {case}: " + "  ".join(f"{name} {short(float(self.median(case, name)))}" for name in names))

    def write(self):
        paths.RESULTS.mkdir(parents=True, exist_ok=True)
        file = paths.result(self.data["scenario"], self.data["quick"])
        file.write_text(json.dumps(self.data, indent=1), encoding="utf-8")
        say(f"  written to {file.relative_to(paths.TOP)}")


def short(value):
    if isinstance(value, float):
        return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.4g}"
    return str(value)
