#!/usr/bin/env python3
"""Prints the coverage table of scripts/coverage from gcovr's JSON files.

One row per component (the top folder), then one per folder inside it where it has more
than one, each with lines and branches covered and the goal of the component; then the
functions no test reaches, per file. --markdown prints the table in Markdown.
"""

import argparse
import json
import os
import subprocess
from collections import defaultdict

# (lines %, branches %) a component must reach; components not named have no goal.
GOALS = {name: (90, 75) for name in ("extractor", "encoding", "cache", "vantor", "platform", "queue", "store")}
GOALS.update({"korvid": (80, None), "tools": (70, None)})


def percent(covered, total):
    return 100.0 * covered / total if total else 100.0


def demangle(names):
    try:
        out = subprocess.run(["c++filt"], input="\n".join(names), capture_output=True, text=True, check=True)
        return out.stdout.splitlines()
    except (OSError, subprocess.CalledProcessError):
        return names


def load(build):
    with open(os.path.join(build, "coverage-summary.json")) as f:
        summary = json.load(f)["files"]
    with open(os.path.join(build, "coverage.json")) as f:
        detail = json.load(f)["files"]
    return summary, detail


def folder_rows(summary):
    """{component: {folder: [lines covered, lines, branches covered, branches]}}"""
    rows = defaultdict(lambda: defaultdict(lambda: [0, 0, 0, 0]))
    for f in summary:
        folder = os.path.dirname(f["filename"])
        component = folder.split("/")[0]
        for key in (component, folder):
            row = rows[component][key]
            row[0] += f["line_covered"]
            row[1] += f["line_total"]
            row[2] += f["branch_covered"]
            row[3] += f["branch_total"]
    return rows


def goal_text(component, row):
    goal = GOALS.get(component)
    if not goal:
        return ""
    lines_goal, branches_goal = goal
    met = percent(row[0], row[1]) >= lines_goal and (branches_goal is None or percent(row[2], row[3]) >= branches_goal)
    text = f">= {lines_goal} %" + (f" / {branches_goal} %" if branches_goal else "")
    return text + (" met" if met else " NOT met")


def table(rows):
    out = []
    for component in sorted(rows):
        folders = rows[component]
        names = [component] + (sorted(k for k in folders if k != component) if len(folders) > 2 else [])
        for name in names:
            row = folders[name]
            out.append((name if name == component else "  " + name, f"{percent(row[0], row[1]):.1f} %",
                        f"{row[0]} / {row[1]}", f"{percent(row[2], row[3]):.1f} %", f"{row[2]} / {row[3]}",
                        goal_text(component, row) if name == component else ""))
    return out


def unreached(detail):
    by_file = []
    for f in detail:
        names = [fn["name"] for fn in f["functions"] if fn["execution_count"] == 0]
        lines = {fn["name"]: fn["lineno"] for fn in f["functions"]}
        if names:
            readable = demangle(names)
            by_file.append((f["file"], sorted((lines[n], r) for n, r in zip(names, readable))))
    return by_file


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--markdown", action="store_true")
    args = parser.parse_args()
    summary, detail = load(args.build)
    header = ("Component / folder", "Lines", "covered", "Branches", "covered", "Goal (lines / branches)")
    rows = table(folder_rows(summary))
    if args.markdown:
        print("| " + " | ".join(header) + " |")
        print("|" + "---|" * len(header))
        for row in rows:
            print("| " + " | ".join(c.strip() if i else c.replace("  ", "&nbsp;&nbsp;") for i, c in enumerate(row)) + " |")
        return
    widths = [max(len(r[i]) for r in rows + [header]) for i in range(len(header))]
    for row in [header] + rows:
        print("  ".join(c.ljust(w) for c, w in zip(row, widths)).rstrip())
    print("\nFunctions no test reaches:")
    for file, functions in unreached(detail):
        print(f"{file}:")
        for line, name in functions:
            print(f"  {line}: {name}")


if __name__ == "__main__":
    main()
