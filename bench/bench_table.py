#!/usr/bin/env python3
"""Prints the benchmark table: every figure beside its baseline from the same run.

Reads the Google Benchmark JSON files (median aggregates) that scripts/bench writes into
one folder, pairs each figure with its baseline as listed in ROWS, and prints the ratio
and whether the target is met. --markdown prints the same table as Markdown, headed by
a description of the machine.

Times are CPU times (process CPU clock: user and system time of the benchmark thread's
process), which other programs on the machine disturb far less than wall time.
"""

import argparse
import glob
import json
import os
import re
import platform
import subprocess

# (measure, figure benchmark, baseline benchmark or None, metric, target)
# metric: "throughput" (bytes per second, higher is better), "time" (ns per iteration),
#         "per_item" (ns per asset or operation), "bytes" (the bytes_per_entry counter).
# target: None, ("ratio>=", x), ("ratio<=", x), ("diff<=", ns), ("abs<=", ns),
#         ("floor<=", x, floor figure, floor baseline): the ratio at most x times the ratio of
#         the two floor benchmarks of the same run (growth no worse than x times the floor's).
ROWS = [
    ("MD5 64 B vs OpenSSL MD5()", "md5/64B/vqfe", "md5/64B/openssl", "throughput", None),
    ("MD5 1 KiB vs OpenSSL MD5()", "md5/1KiB/vqfe", "md5/1KiB/openssl", "throughput", ("ratio>=", 0.85)),
    ("MD5 kind-121 graph vs OpenSSL MD5()", "md5/graph121/vqfe", "md5/graph121/openssl", "throughput",
     ("ratio>=", 0.85)),
    ("MD5 1 MiB vs OpenSSL MD5()", "md5/1MiB/vqfe", "md5/1MiB/openssl", "throughput", ("ratio>=", 0.85)),
    ("Algorithm key (kind-121 graph, 10 params) vs OpenSSL MD5() of its text", "key/graph121/vqfe",
     "key/graph121/openssl_md5", "time", None),
    ("Encode 5-face FaceBuffer vs C++ protobuf", "encode/face/vqfe", "encode/face/protobuf", "time",
     ("ratio<=", 1.5)),
    ("Decode 5-face FaceBuffer vs C++ protobuf", "decode/face/vqfe", "decode/face/protobuf", "time",
     ("ratio<=", 1.5)),
    ("Encode 208-class classification vs C++ protobuf", "encode/classification/vqfe",
     "encode/classification/protobuf", "time", ("ratio<=", 1.5)),
    ("Decode 208-class classification vs C++ protobuf", "decode/classification/vqfe",
     "decode/classification/protobuf", "time", ("ratio<=", 1.5)),
    ("Encode 512x512 matting mask vs C++ protobuf", "encode/matting/vqfe", "encode/matting/protobuf", "time",
     ("ratio<=", 1.5)),
    ("Decode 512x512 matting mask vs C++ protobuf", "decode/matting/vqfe", "decode/matting/protobuf", "time",
     ("ratio<=", 1.5)),
    ("MemoryCache 90/10 query/save, 100k entries vs textbook LRU", "cache/mixed_100k/vqfe",
     "cache/mixed_100k/textbook", "per_item", ("ratio<=", 1.0)),
    ("MemoryCache heap bytes per entry vs textbook LRU", "cache/bytes_per_entry/vqfe",
     "cache/bytes_per_entry/textbook", "bytes", None),
    ("Cache op, 1k-key working set: 100k entries vs 1k", "cache/hot_set/100k", "cache/hot_set/1k", "per_item",
     ("ratio<=", 1.3)),
    ("Cache op, 1k-key working set: 1M entries vs 1k", "cache/hot_set/1M", "cache/hot_set/1k", "per_item",
     ("ratio<=", 1.3)),
    ("Cache op, uniform over all entries: 100k vs 1k", "cache/uniform/100k", "cache/uniform/1k", "per_item", None),
    ("Cache op, uniform over all entries: 1M vs 1k", "cache/uniform/1M", "cache/uniform/1k", "per_item", None),
    ("extractFeatures per asset, instant framework vs direct loop (overhead)", "extractor/run_1k/vqfe",
     "extractor/run_1k/direct", "per_item", ("diff<=", 2000)),
    ("All-cached walk per asset, 1k assets vs textbook lookups", "extractor/cached_1k/vqfe",
     "extractor/cached_1k/lookup", "per_item", ("abs<=", 300)),
    ("All-cached walk per asset: 10k assets vs 1k", "extractor/cached_10k/vqfe", "extractor/cached_1k/vqfe",
     "per_item", ("floor<=", 1.25, "extractor/cached_10k/floor", "extractor/cached_1k/floor")),
    ("All-cached walk per asset: 100k assets vs 1k", "extractor/cached_100k/vqfe", "extractor/cached_1k/vqfe",
     "per_item", ("floor<=", 1.25, "extractor/cached_100k/floor", "extractor/cached_1k/floor")),
    ("  (textbook lookups alone: 100k vs 1k)", "extractor/cached_100k/lookup", "extractor/cached_1k/lookup",
     "per_item", None),
    ("  (memory floor, asset id + shared Result, no cache: 10k vs 1k)", "extractor/cached_10k/floor",
     "extractor/cached_1k/floor", "per_item", None),
    ("  (memory floor, asset id + shared Result, no cache: 100k vs 1k)", "extractor/cached_100k/floor",
     "extractor/cached_1k/floor", "per_item", None),
    ("JNI extractFeatures, 1k cached assets, per asset vs C++", "jni/cached_1k/vqfe", "extractor/cached_1k/vqfe",
     "per_item", ("abs<=", 1000)),
    ("  (the same requests with the kind's graph: the open framework reloads it every call)",
     "jni/cached_1k/with_graph", "jni/cached_1k/vqfe", "per_item", None),
] + [
    (f"Reload of the kind-{kind} graph ({what}) vs its first load", f"graph_load/{kind}/reload",
     f"graph_load/{kind}/first", "time", ("abs<=", 5e6))
    for kind, what in [(4, "face networks held"), (7, "9.3 MB skeleton network held"),
                       (9, "face and emotion networks held"), (130, "face and emotion networks held"),
                       (71, "cat cascade and networks held")]
] + [
    (f"Switch between the kind-{a} and kind-{b} graphs (both loads) vs a first load of {b}",
     f"graph_load/switch/{a}-{b}", f"graph_load/{b}/first", "time", goal)
    for a, b, goal in [(4, 121, ("abs<=", 10e6)), (12, 9, ("abs<=", 10e6)), (7, 8, None)]
] + [
    ("Clustering 100,000 faces (average linkage) vs single linkage over the same candidates",
     "BM_ClusterFaces", "BM_SingleLinkageBaseline", "time", ("abs<=", 10e9)),
    ("1,000 new faces joining 10,000 persons", "BM_IncrementalPeople1000", None, "time", ("abs<=", 1e9)),
    ("Label search (2 labels, min faces), 1M images vs a scan of the label table", "BM_SearchLabels1M",
     "BM_LabelTableScanBaseline", "time", ("abs<=", 100e6)),
    ("Search of one label on 1 % of 1M images vs a scan of the label table", "BM_SearchOneCommonLabel1M",
     "BM_LabelTableScanBaseline", "time", ("abs<=", 100e6)),
]


def load(folder):
    """name -> median aggregate entry, from every *.json of the folder."""
    medians = {}
    for path in sorted(glob.glob(os.path.join(folder, "*.json"))):
        with open(path, encoding="utf-8") as f:
            try:
                data = json.load(f)
            except json.JSONDecodeError:
                continue
        for entry in data.get("benchmarks", []):
            if entry.get("error_occurred"):
                continue
            if entry.get("run_type") == "aggregate" and entry.get("aggregate_name") != "median":
                continue
            name = re.sub(r"/iterations:\d+", "", entry.get("run_name", entry["name"]))
            if entry.get("run_type") != "aggregate" and name in medians:
                continue  # keep the median over single runs
            medians[name] = entry
    return medians


def to_ns(entry, key):
    scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[entry.get("time_unit", "ns")]
    return entry[key] * scale


def value(entry, metric):
    if metric == "throughput":
        return entry.get("bytes_per_second")
    if metric == "time":
        return to_ns(entry, "cpu_time")
    if metric == "per_item":
        rate = entry.get("items_per_second")
        return 1e9 / rate if rate else None
    if metric == "bytes":
        return entry.get("bytes_per_entry")
    raise ValueError(metric)


def show(v, metric):
    if v is None:
        return "n/a"
    if metric == "throughput":
        return f"{v / 1e6:.0f} MB/s"
    if metric == "bytes":
        return f"{v:.0f} B"
    if v >= 1e6:
        return f"{v / 1e6:.2f} ms"
    if v >= 1e4:
        return f"{v / 1e3:.1f} us"
    return f"{v:.0f} ns"


def judge(fig, base, target):
    """(ratio text, target text, verdict)."""
    ratio = fig / base if fig is not None and base else None
    ratio_text = f"{ratio:.2f}" if ratio is not None else "n/a"
    if target is None:
        return ratio_text, "-", "-"
    kind, limit = target[:2]
    if kind == "floor<=":
        floor = target[2]
        text = f"<= {limit} x floor's {floor:.2f}" if floor else f"<= {limit} x floor's (not run)"
        ok = ratio is not None and floor is not None and ratio <= limit * floor
        if floor is None:
            return ratio_text, text, "not run"
    elif kind == "ratio>=":
        text, ok = f">= {limit}", ratio is not None and ratio >= limit
    elif kind == "ratio<=":
        text, ok = f"<= {limit}", ratio is not None and ratio <= limit
    elif kind == "diff<=":
        text = f"diff <= {limit / 1000:g} us"
        ok = fig is not None and base is not None and fig - base <= limit
        if fig is not None and base is not None:
            ratio_text += f" (diff {fig - base:.0f} ns)"
    else:
        text, ok = f"figure <= {limit:g} ns", fig is not None and fig <= limit
    if fig is None or (base is None and kind != "abs<="):
        return ratio_text, text, "not run"
    return ratio_text, text, "met" if ok else "MISSED"


def machine(folder):
    cpu = platform.processor() or "unknown"
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    try:
        with open("/proc/meminfo", encoding="utf-8") as f:
            mem = f"{int(f.readline().split()[1]) / 1048576:.0f} GiB"
    except (OSError, ValueError, IndexError):
        mem = "unknown"
    try:
        compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True, check=False).stdout
        compiler = compiler.splitlines()[0] if compiler else "unknown"
    except OSError:
        compiler = "unknown"
    try:  # scripts/bench notes the load before it starts
        with open(os.path.join(folder, "loadavg"), encoding="utf-8") as f:
            load = "load average before the run " + " ".join(f.read().split()[:3])
    except OSError:
        load = "load average now " + " ".join(f"{x:.2f}" for x in os.getloadavg())
    return f"{cpu}, {os.cpu_count()} cores, {mem} RAM; {platform.system()} {platform.release()}; {compiler}; {load}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", help="folder holding the benchmark JSON files")
    parser.add_argument("--markdown", action="store_true", help="print a Markdown table")
    args = parser.parse_args()
    medians = load(args.folder)

    header = ("Measure", "Figure", "Baseline", "Ratio", "Target", "Verdict")
    rows = []
    for measure, fig_name, base_name, metric, target in ROWS:
        fig = value(medians[fig_name], metric) if fig_name in medians else None
        base = value(medians[base_name], metric) if base_name in medians else None
        if target is not None and target[0] == "floor<=":
            floor_fig, floor_base = (value(medians[n], metric) if n in medians else None for n in target[2:])
            target = (target[0], target[1], floor_fig / floor_base if floor_fig and floor_base else None)
        ratio, target_text, verdict = judge(fig, base, target)
        rows.append((measure, show(fig, metric), show(base, metric) if base_name else "-", ratio, target_text,
                     verdict))

    print(f"Machine: {machine(args.folder)}")
    if args.markdown:
        print()
        print("| " + " | ".join(header) + " |")
        print("|" + "---|" * len(header))
        for row in rows:
            print("| " + " | ".join(c.strip() for c in row) + " |")
    else:
        widths = [max(len(r[i]) for r in rows + [header]) for i in range(len(header))]
        line = "  ".join("{:<%d}" % w for w in widths)
        print(line.format(*header))
        print(line.format(*("-" * w for w in widths)))
        for row in rows:
            print(line.format(*row))
    verdicts = [r[5] for r in rows]
    print(f"\n{verdicts.count('met')} targets met, {verdicts.count('MISSED')} missed, "
          f"{verdicts.count('not run')} not run.")


if __name__ == "__main__":
    main()
