#!/usr/bin/env python3
"""Prints tqv_bench's JSON output as the tables of docs/performance.md.

    bench/report.py BENCH.json [--markdown] [--ratio-from NAME=OTHER.json ...] [--peers-only]

Every benchmark labels itself "operation|image|ratio target|peak target MB" (targets may be
empty). A benchmark "X" is paired with "X_Floor" (the same work through libtiff's plain API)
and compared with "X_Peer_<loader>" runs of the same image (other loaders). Times are the median
of the repetitions' process CPU time; peak memory is the largest rise of the resident set during
one iteration. Each --ratio-from adds a column "ratio, NAME" with the ratios of another run of
the same benchmarks (the same binary under another machine setting, say).

The first table has a row for every operation: its floor, ratio and peak memory, and its peers'
times in one column each. --peers-only prints just the operations with peers and those columns.
"""
import json
import sys


def load(path):
    # The median where there were repetitions, else the single run.
    runs, medians = {}, {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("aggregate_name") == "median":
            medians[b["run_name"]] = b
        elif b.get("run_type") == "iteration":
            runs.setdefault(b["run_name"], b)
    runs.update(medians)
    return runs


def split(name):
    base, _, args = name.partition("/")
    return base, args


def label(run):
    parts = (run.get("label") or "").split("|") + ["", "", "", ""]
    return (parts[0] or split(run["run_name"])[0], parts[1] or split(run["run_name"])[1], parts[2], parts[3])


def ms(run):
    if run is None or run.get("error_occurred"):
        return None
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[run.get("time_unit", "ns")]
    return run["cpu_time"] * scale


def number(value, digits=1):
    return f"{value:.{digits}f}" if value is not None else "-"


def verdict(value, target):
    if not target or value is None:
        return ""
    return ("met " if value <= float(target) else "NOT met ") + "<= " + target


class Table:
    def __init__(self, markdown, headers, right):
        self.markdown, self.headers, self.right, self.rows = markdown, headers, right, []

    def add(self, *cells):
        self.rows.append([str(c) for c in cells])

    def show(self):
        if not self.rows:
            return
        if self.markdown:
            print("| " + " | ".join(self.headers) + " |")
            print("|" + "|".join("---:" if r else "---" for r in self.right) + "|")
            for row in self.rows:
                print("| " + " | ".join(row) + " |")
        else:
            widths = [max(len(h), *(len(r[i]) for r in self.rows)) for i, h in enumerate(self.headers)]
            def line(cells):
                return "  ".join(c.rjust(w) if r else c.ljust(w) for c, w, r in zip(cells, widths, self.right))
            print(line(self.headers))
            for row in self.rows:
                print(line(row))
        print()


def floor_of(runs, name, kind="_Floor"):
    base, args = split(name)
    return runs.get(f"{base}{kind}/{args}" if args else f"{base}{kind}")


def ratio_of(runs, name, kind="_Floor"):
    run, floor = runs.get(name), floor_of(runs, name, kind)
    a, f = ms(run), ms(floor)
    return a / f if a is not None and f else None


def peer_finder(runs):
    """The peer loaders' names, and a function giving the peer runs of one of ours (None where a
    loader has none). Peers are matched by their arguments (the same image file): an operation is
    compared with its own peers "X_Peer_<loader>" where there are some (the same bytes taken the
    same way), else with any peer run with the same arguments."""
    peers = sorted({split(n)[0].partition("_Peer_")[2] for n in runs if "_Peer_" in n})
    by_args, own = {}, {}
    for n, r in runs.items():
        if "_Peer_" in n:
            base, _, peer = split(n)[0].partition("_Peer_")
            by_args.setdefault((peer, split(n)[1]), r)
            own[(base, peer, split(n)[1])] = r

    def of(name):
        base, args = split(name)
        return [own.get((base, p, args)) or by_args.get((p, args)) for p in peers]
    return peers, of


def main(path, markdown, others, peers_only):
    runs = load(path)
    ours = [(n, r) for n, r in runs.items() if "_Floor" not in split(n)[0] and "_Peer_" not in split(n)[0]]
    # Operations with a floor first, in the order they ran; then the others.
    ours.sort(key=lambda item: floor_of(runs, item[0]) is None)
    other_runs = [(title, load(other)) for title, other in others]
    peers, peers_of = peer_finder(runs)

    if peers_only:
        against = Table(markdown, ["operation", "image", "ours ms"] + [p + " ms" for p in peers],
                        [False, False, True] + [True] * len(peers))
        for name, run in ours:
            cells = peers_of(name)
            if any(cells):
                op, image, _, _ = label(run)
                against.add(op, image, number(ms(run)), *(number(ms(c)) for c in cells))
        against.show()
        return

    # The one table: every operation against its floor and its peers.
    table = Table(markdown, ["operation", "image", "ours ms", "floor ms", "ratio", "ratio target"] +
                  [f"ratio, {title}" for title, _ in other_runs] + ["peak MB", "peak target", "floor peak MB"] +
                  [p + " ms" for p in peers] + ["other"],
                  [False, False, True, True, True, False] + [True] * len(other_runs) + [True, False, True] +
                  [True] * len(peers) + [False])
    for name, run in ours:
        floor = floor_of(runs, name)
        op, image, target, peak_target = label(run)
        ratio = ratio_of(runs, name)
        other = "  ".join(f"{k} {v:.0f}" for k, v in run.items() if k.startswith("ns_per"))
        table.add(op, image, number(ms(run)), number(ms(floor)), number(ratio, 2), verdict(ratio, target),
                  *(number(ratio_of(runs_, name), 2) for _, runs_ in other_runs),
                  number(run.get("peak_MB")), verdict(run.get("peak_MB"), peak_target),
                  number(floor.get("peak_MB")) if floor else "-",
                  *(number(ms(c)) if c else "" for c in peers_of(name)), other)
    table.show()

    # The floor of a program that also makes the same pixels itself.
    pixels = Table(markdown, ["operation", "image", "ours ms", "floor + pixels ms", "ratio"] +
                   [f"ratio, {title}" for title, _ in other_runs],
                   [False, False, True, True, True] + [True] * len(other_runs))
    for name, run in ours:
        floor = floor_of(runs, name, "_FloorPixels")
        if floor is None:
            continue
        op, image, _, _ = label(run)
        pixels.add(op, image, number(ms(run)), number(ms(floor)), number(ratio_of(runs, name, "_FloorPixels"), 2),
                   *(number(ratio_of(other, name, "_FloorPixels"), 2) for _, other in other_runs))
    pixels.show()


if __name__ == "__main__":
    options = sys.argv[2:]
    others = [tuple(options[i + 1].split("=", 1)) for i, o in enumerate(options) if o == "--ratio-from"]
    main(sys.argv[1], "--markdown" in options, others, "--peers-only" in options)
