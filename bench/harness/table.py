"""The results of the last runs as Markdown, for docs/performance.md."""

import json
import statistics

from . import paths
from .report import short


def load(name):
    file = paths.result(name)
    return json.loads(file.read_text(encoding="utf-8")) if file.exists() else None


def goals(results):
    yield "| Figure | Measured | Goal | |"
    yield "|---|---|---|---|"
    for data in results:
        for goal in data.get("goals", []):
            sign = "≥" if goal["at_least"] else "≤"
            yield (f"| {goal['figure']} | {short(goal['value'])}{goal['unit']} | {sign} {short(goal['limit'])}{goal['unit']} | "
                   f"{'reached' if goal['reached'] else '**missed**'} |")


def facts(results):
    for data in results:
        for fact in data.get("facts", []):
            figures = ", ".join(f"{key} {short(value)}" for key, value in fact.items() if key != "fact")
            yield f"- {fact['fact']}: {figures}"


def rounds(results):
    """Every case with the medians of its figures and the values of all rounds behind them."""
    for data in results:
        yield f"\n### {data['scenario']} ({data['rounds']} rounds, {data['seconds']:.0f} s)\n"
        for case, entry in data["cases"].items():
            parts = []
            for figure, value in entry["rounds"][0].items():
                if isinstance(value, (list, dict)):
                    continue
                values = [one[figure] for one in entry["rounds"]]
                parts.append(f"{figure} **{short(float(statistics.median(values)))}** ({' '.join(short(float(v)) for v in values)})")
            yield f"- {case}: " + "; ".join(parts)


def print_tables(names):
    results = [data for data in map(load, names) if data]
    for part in (goals, facts, rounds):
        print("\n".join(part(results)))
