#!/usr/bin/env python3
"""Checks of the similar-pairs scoring: python3 scripts/similar_pairs_test.py"""
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import similar_pairs  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))


class SimilarPairsTest(unittest.TestCase):
    def test_copies_labelled_pairs_and_wrong_pairs(self):
        similar = {frozenset(("grace_hopper", "grace_hopper_crop"))}
        photos = ["a/aqua_q92.jpg", "b/aqua_q92.jpg", "a/aqua_zoom.jpg", "a/sky_q92.jpg",
                  "a/grace_hopper_q92.jpg", "a/grace_hopper_crop_q92.jpg"]
        groups = [["a/aqua_q92.jpg", "b/aqua_q92.jpg", "a/sky_q92.jpg"]]
        found = similar_pairs.score(similar, groups, photos)
        self.assertEqual(found["grouped"], 3)
        self.assertEqual(found["right"], 1)
        self.assertEqual(found["copies"], (1, 3))  # the zoom is an aqua pair too
        self.assertEqual(found["labelled"], (0, 1))  # the crop of the portrait is not its copy
        self.assertEqual(found["wrong"], [("aqua", "sky"), ("aqua", "sky")])

    def test_the_labelled_list_names_labelled_photos(self):
        names = set()
        with open(os.path.join(HERE, "quality-labels.tsv"), encoding="utf-8") as lines:
            names = {line.split("\t")[0] for line in lines if not line.startswith("#")}
        similar, known = similar_pairs.read_pairs(os.path.join(HERE, "similar-pairs.tsv"))
        self.assertEqual(similar, {frozenset(("grace_hopper", "grace_hopper_crop"))})
        for pair in known:
            self.assertLessEqual(pair, names)


if __name__ == "__main__":
    unittest.main()
