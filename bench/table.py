# SPDX-License-Identifier: BSD-3-Clause
#
# Turns orvanite-bench's JSON into tables in Markdown: table.py RESULT.json
# Of repeated measurements the best counts: what else the machine did only ever makes them slower.
import json
import os
import sys


# The order of the tables: measurements come in random order. A name that is not here comes last.
ORDER = ["linear", "log", "video", "composite", "compOnColour", "matte", "unpremultiplied", "status",
         "everything", "screen", "gain", "exposure", "bgExposure", "screenRange"]


def place(name):
    return ORDER.index(name) if name in ORDER else len(ORDER)


def best_seconds(runs):
    """Name, without Google Benchmark's suffix, to seconds an iteration and pixels."""
    best = {}
    for run in runs:
        if run.get("run_type") != "iteration" or run.get("error_occurred"):
            continue
        name = run["name"].removesuffix("/real_time")
        scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[run["time_unit"]]
        seconds = run["real_time"] * scale
        if name not in best or seconds < best[name][0]:
            best[name] = (seconds, run.get("pixels"))
    return best


def megapixels(best, name):
    if name not in best:
        return None
    seconds, pixels = best[name]
    return pixels / seconds * 1e-6


def rate(best, name, memory):
    """Megapixels a second, and their share of what the memory pass does."""
    value = megapixels(best, name)
    if value is None:
        return "-", "-"
    against = megapixels(best, memory)
    return f"{value:.1f}", f"{value / against:.3f}" if against else "-"


def print_table(head, rows):
    if not rows:
        return
    rows = [head, ["-" * len(h) for h in head], *rows]
    widths = [max(len(row[i]) for row in rows) for i in range(len(head))]
    for row in rows:
        dashes = row[0].startswith("-")
        cells = [c.ljust(w, "-") if dashes else c.ljust(w) for c, w in zip(row, widths)]
        print("| " + " | ".join(cells) + " |")
    print()


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        result = json.load(file)
    context, best = result["context"], best_seconds(result["benchmarks"])
    load = "/".join(f"{v:.1f}" for v in context["load_avg"])
    target = os.environ.get("ORVANITE_TARGET") or "best of the machine"
    print(f"{context['date']}, {context['num_cpus']} processors at {context['mhz_per_cpu']} MHz, "
          f"load {load}, kernels: {target}\n")

    keys = []
    for name in best:
        parts = name.split("/")
        if parts[0] in ("memory", "key") and parts[:-1] not in keys:
            keys.append(parts[:-1])
    keys.sort(key=lambda k: (int(k[1]), k[0] == "key", [place(part) for part in k[2:]]))
    rows = []
    for parts in keys:
        row = [parts[1], *(parts[2:4] if parts[0] == "key" else ["-", "memory pass"])]
        for threads in ("1", "2"):
            row += rate(best, "/".join([*parts, threads]), f"memory/{parts[1]}/{threads}")
        rows.append(row)
    print_table(["bits", "encoding", "output", "MP/s, 1 thread", "of memory", "MP/s, 2 threads",
                 "of memory"], rows)

    changes = {}
    for name, (seconds, _) in best.items():
        parts = name.split("/")
        if parts[0] == "tables":
            changes.setdefault((parts[1], parts[2]), {})[parts[3]] = seconds * 1e3
    columns = sorted({c for row in changes.values() for c in row}, key=place)
    print_table(["bits", "encoding", *(c + ", ms" for c in columns)],
                [[*k, *(f"{row[c]:.3f}" if c in row else "-" for c in columns)]
                 for k, row in sorted(changes.items(), key=lambda c: (int(c[0][0]), place(c[0][1])))])


main()
