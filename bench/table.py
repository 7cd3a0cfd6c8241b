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
    """Name, without Google Benchmark's suffix, to seconds an iteration and pixels.

    Where a benchmark tells its best iteration itself (best_ms), that counts."""
    best = {}
    for run in runs:
        if run.get("run_type") != "iteration" or run.get("error_occurred"):
            continue
        name = run["name"].removesuffix("/real_time").removesuffix("/manual_time")
        scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[run["time_unit"]]
        seconds = run["best_ms"] * 1e-3 if "best_ms" in run else run["real_time"] * scale
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


def print_peers(best):
    """Other people's keyers, and how many times as fast the everyday key of the same frame is."""
    peers = {}
    for name, (seconds, _) in best.items():
        parts = name.split("/")
        if parts[0] == "peer":
            peers.setdefault(parts[1], {})[parts[2]] = seconds * 1e3
    rows = []
    for peer, times in peers.items():
        # What composites nothing is held against the matte alone.
        output = "composite" if "overlay" in peer else "matte"
        row = [peer, output]
        for threads in ("1", "2"):
            own = best.get(f"key/8/video/{output}/{threads}")
            if threads in times and own:
                row += [f"{times[threads]:.1f}", f"{own[0] * 1e3:.1f}",
                        f"{times[threads] / (own[0] * 1e3):.1f}x"]
            else:
                row += ["-", "-", "-"]
        rows.append(row)
    print_table(["peer, 8 bits", "beside", "its ms, 1 thread", "ours, ms", "faster",
                 "its ms, 2 threads", "ours, ms", "faster"], rows)


def print_finding(best):
    """Automatic keys: milliseconds on one thread and on two."""
    found = {}
    for name, (seconds, _) in best.items():
        parts = name.split("/")
        if parts[0] == "auto":
            found.setdefault(tuple(parts[1:4]), {})[parts[4]] = f"{seconds * 1e3:.1f}"
    print_table(["bits", "encoding", "automatic key", "ms, 1 thread", "ms, 2 threads"],
                [[*key, times.get("1", "-"), times.get("2", "-")]
                 for key, times in sorted(found.items(), key=lambda k: int(k[0][0]))])


def print_finish(best):
    """Composites with switches of the finish: milliseconds, and as times the plain key's."""
    rows, found = [], {}
    for name, (seconds, _) in best.items():
        parts = name.split("/")
        if parts[0] == "finish":
            found.setdefault(tuple(parts[1:4]), {})[parts[4]] = seconds * 1e3
    for key, times in sorted(found.items(), key=lambda k: (int(k[0][0]), place(k[0][1]))):
        row = [*key]
        for threads in ("1", "2"):
            plain = found.get((*key[:2], "none"), {}).get(threads)
            if threads in times and plain:
                row += [f"{times[threads]:.1f}", f"{times[threads] / plain:.1f}x"]
            else:
                row += ["-", "-"]
        rows.append(row)
    print_table(["bits", "encoding", "finish", "ms, 1 thread", "of the key", "ms, 2 threads",
                 "of the key"], rows)


def print_targets(best):
    """Each target's kernels on one thread, as times the speed of the definition's."""
    rows, targets = {}, []
    for name, (seconds, _) in best.items():
        parts = name.split("/")
        if parts[0] == "kernel":
            rows.setdefault(tuple(parts[1:4]), {})[parts[4]] = seconds * 1e3
            if parts[4] not in targets and parts[4] != "definition":
                targets.append(parts[4])
    table = []
    for key in sorted(rows, key=lambda k: (int(k[0]), place(k[1]), k[2])):
        definition = rows[key].get("definition")
        ratios = [f"{definition / rows[key][t]:.1f}x" if definition and t in rows[key] else "-"
                  for t in targets]
        table.append([*key, f"{definition:.1f}" if definition else "-", *ratios])
    print_table(["bits", "encoding", "case", "definition, ms", *targets], table)


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

    print_peers(best)
    print_finding(best)
    print_finish(best)
    print_targets(best)

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
