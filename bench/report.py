#!/usr/bin/env python3
"""Prints tqv_bench's JSON output as the tables of docs/performance.md.

Every benchmark labels itself "operation|image|target". A benchmark "X" is paired with "X_Floor"
(the same work through libtiff's plain API) and with "X_Peer_<loader>" (other loaders), matched
by their arguments. Times are the median of the repetitions' process CPU time.
"""
import json
import sys


def main(path):
    # The median where there were repetitions, else the single run.
    runs, medians = {}, {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("aggregate_name") == "median":
            medians[b["run_name"]] = b
        elif b.get("run_type") == "iteration":
            runs.setdefault(b["run_name"], b)
    runs.update(medians)

    def split(name):
        base, _, args = name.partition("/")
        return base, args

    def label(run):
        parts = (run.get("label") or "").split("|") + ["", "", ""]
        return parts[0] or split(run["run_name"])[0], parts[1] or split(run["run_name"])[1], parts[2]

    def ms(run):
        if run is None or run.get("error_occurred"):
            return None
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[run.get("time_unit", "ns")]
        return run["cpu_time"] * scale

    def cell(value, width, digits=1):
        return f"{value:{width}.{digits}f}" if value is not None else f"{'-':>{width}}"

    ours = [(n, r) for n, r in runs.items() if "_Floor" not in split(n)[0] and "_Peer_" not in split(n)[0]]

    print(f"{'operation':<26} {'image':<34} {'ours ms':>9} {'floor ms':>9} {'ratio':>6} {'target':>7} "
          f"{'peak MB':>8} {'floor MB':>8}")
    for name, run in ours:
        base, args = split(name)
        floor = runs.get(f"{base}_Floor/{args}" if args else f"{base}_Floor")
        if floor is None:
            continue
        op, image, target = label(run)
        a, f = ms(run), ms(floor)
        ratio = a / f if a is not None and f else None
        verdict = ""
        if target and ratio is not None:
            verdict = ("<= " if ratio <= float(target) else "!> ") + target
        print(f"{op:<26} {image:<34} {cell(a, 9)} {cell(f, 9)} {cell(ratio, 6, 2)} {verdict:>7} "
              f"{cell(run.get('peak_MB'), 8)} {cell(floor.get('peak_MB'), 8)}")

    # Peers are matched by image: every operation on that image is compared with them.
    peers = sorted({split(n)[0].partition("_Peer_")[2] for n in runs if "_Peer_" in n})
    by_image = {(split(n)[0].partition("_Peer_")[2], label(r)[1]): r for n, r in runs.items() if "_Peer_" in n}
    if peers:
        print()
        print(f"{'operation':<26} {'image':<34} {'ours ms':>9} " + " ".join(f"{p + ' ms':>14}" for p in peers))
        for name, run in ours:
            op, image, _ = label(run)
            cells = [by_image.get((p, image)) for p in peers]
            if any(cells):
                print(f"{op:<26} {image:<34} {cell(ms(run), 9)} " + " ".join(cell(ms(c), 14) for c in cells))

    print()
    print(f"{'operation':<26} {'image':<34} {'ours ms':>9} {'peak MB':>8}  other")
    for name, run in ours:
        base, args = split(name)
        if runs.get(f"{base}_Floor/{args}" if args else f"{base}_Floor"):
            continue
        op, image, _ = label(run)
        extra = "  ".join(f"{k} {v:.0f}" for k, v in run.items()
                          if k.startswith("ns_per") or k.endswith("_per_MiB"))
        print(f"{op:<26} {image:<34} {cell(ms(run), 9)} {cell(run.get('peak_MB'), 8)}  {extra}")


if __name__ == "__main__":
    main(sys.argv[1])
