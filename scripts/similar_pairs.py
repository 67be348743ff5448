#!/usr/bin/env python3
"""Scores the groups of `vqfe duplicates --json` against scripts/similar-pairs.tsv.

usage: similar_pairs.py PAIRS.tsv GROUPS.jsonl PHOTO...

A photo's name is its file name without the extension and without what bench_make_photos
and the copies of docs/quality.md add (_q92, _256, _q40, _bright, _zoom, _panl, _panr), so
that two files of one name are copies or shots of one photo: similar. PHOTO lists every
file of the store (the pairs a perfect answer would group). Prints the pairs grouped, how
many of them are similar (precision), and how many similar pairs were grouped (recall),
split into copies of one photo and labelled pairs of two photos, and the wrong pairs.
"""
import json
import os
import re
import sys
from itertools import combinations

SUFFIX = re.compile(r"(_q\d+|_256|_bright|_zoom|_panl|_panr)+$")


def name(path):
    return SUFFIX.sub("", os.path.splitext(os.path.basename(path))[0])


def read_pairs(path):
    similar, known = set(), set()
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            fields = line.rstrip("\n").split("\t")
            if line.startswith("#") or fields[0] == "a" or len(fields) < 3:
                continue
            pair = frozenset(fields[:2])
            known.add(pair)
            if fields[2] == "similar":
                similar.add(pair)
    return similar, known


def score(similar, groups, photos):
    def is_similar(a, b):
        return name(a) == name(b) or frozenset((name(a), name(b))) in similar

    grouped = {frozenset(p) for group in groups for p in combinations(group, 2)}
    wanted = {frozenset(p) for p in combinations(sorted(set(photos)), 2) if is_similar(*p)}
    right = grouped & wanted
    copies = {p for p in wanted if len({name(x) for x in p}) == 1}
    return {"grouped": len(grouped), "right": len(right),
            "copies": (len(right & copies), len(copies)),
            "labelled": (len(right - copies), len(wanted - copies)),
            "wrong": sorted(tuple(sorted(name(x) for x in p)) for p in grouped - wanted)}


def main(argv):
    if len(argv) < 3:
        sys.exit(__doc__)
    similar, _ = read_pairs(argv[0])
    with open(argv[1], encoding="utf-8") as lines:
        groups = [json.loads(line) for line in lines if line.strip()]
    found = score(similar, groups, argv[2:])
    precision = found["right"] / found["grouped"] if found["grouped"] else float("nan")
    print(f"pairs grouped {found['grouped']}, similar {found['right']} (precision {precision:.3f})")
    print("recall: copies %d/%d, labelled pairs %d/%d" % (found["copies"] + found["labelled"]))
    for pair in sorted(set(found["wrong"])):
        print("wrong:", *pair)


if __name__ == "__main__":
    main(sys.argv[1:])
