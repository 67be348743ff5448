#!/usr/bin/env python3
"""Checks of the quality scoring and photo conversion: python3 scripts/quality_table_test.py"""
import os
import struct
import sys
import unittest
import zlib

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quality_photos  # noqa: E402
import quality_table  # noqa: E402


def face(x, top, size, bottom_up_y=None):
    # "y" counts from the bottom of the photo; y_vantor is the top edge counted from the top.
    return {"rect": {"x": x, "y": 1 - top - size if bottom_up_y is None else bottom_up_y, "y_vantor": top,
                     "width": size, "height": size}}


def photo(name, faces=(), people=0, **labels):
    base = {"name": name, "faces": list(faces), "people": people, "pet": "", "gender": "", "age": "", "person": "",
            "classes": []}
    base.update(labels)
    return base


class ScoringTest(unittest.TestCase):
    def test_faces_match_by_position_each_box_once(self):
        boxes = quality_table.face_boxes({"m_faceBaseInfos": [face(0.1, 0.1, 0.2), face(0.6, 0.6, 0.2)]})
        # One box holds the first centre; the second box holds none: one hit, one false face.
        self.assertEqual(quality_table.match_faces(boxes, [(0.2, 0.2), (0.45, 0.2)]), (1, 1))
        # A box over two labelled centres finds one of them.
        big = quality_table.face_boxes({"m_faceBaseInfos": [face(0.0, 0.0, 0.9)]})
        self.assertEqual(quality_table.match_faces(big, [(0.2, 0.2), (0.5, 0.5)]), (1, 0))

    def test_a_kind_without_a_result_is_left_out_not_counted_as_nothing_found(self):
        photos = [photo("found", faces=[(0.5, 0.5)]), photo("failed", faces=[(0.5, 0.5)])]
        results = {"found": {4: {"m_faceBaseInfos": [face(0.4, 0.4, 0.2)]}}, "failed": {4: None}}
        table = quality_table.Table()
        quality_table.score_faces(table, photos, results)
        self.assertEqual(table.rows[0][2:], ("1 of 1", "no result on 1 photo, left out"))

    def test_all_zero_attributes_are_no_answer(self):
        photos = [photo("a", faces=[(0.5, 0.5)], gender="F", age="30-40"),
                  photo("b", faces=[(0.5, 0.5)], gender="M", age="30-40")]
        results = {"a": {46: {"m_faceAttributeInfos": [{"age": 0, "gender": 0, "boy_prob": 0}]}},
                   "b": {46: {"m_faceAttributeInfos": [{"age": 35, "gender": 1, "boy_prob": 0.9}]}}}
        table = quality_table.Table()
        quality_table.score_attributes(table, photos, results)
        self.assertEqual([row[2] for row in table.rows], ["1 of 2", "1 of 2", "1 of 2"])

    def test_identity_uses_only_faces_at_labelled_centres(self):
        def verify(*rects_and_features):
            return {8: {"m_faceVerifyInfos": [dict(face(*r), features=f) for r, f in rects_and_features]}}

        photos = [photo("one", faces=[(0.5, 0.5)], person="p"), photo("two", faces=[(0.5, 0.5)], person="p"),
                  photo("other", faces=[(0.5, 0.5)], person="q")]
        results = {"one": verify(((0.4, 0.4, 0.2), [1, 0]), ((0.0, 0.0, 0.1), [0, 1])),  # the second is a false face
                   "two": verify(((0.4, 0.4, 0.2), [1, 0.1])),
                   "other": verify(((0.4, 0.4, 0.2), [0, 1]))}
        table = quality_table.Table()
        quality_table.score_identity(table, photos, results)
        self.assertEqual(table.rows[0][2], "0.995 over 1 pair")
        self.assertEqual(table.rows[2][2], "2 of 2")

    def test_scene_labels_wrong_and_found_per_set_and_colour_labels_unscored(self):
        def scene(**labels):
            return {25: {"m_SceneRecogInfo": [{"name": n, "prob": p, "satisfied": p >= 0.5} for n, p in labels.items()]}}

        photos = [photo("lake", scenes=["water", "sky"], set="tune"), photo("flower", scenes=[], set="check"),
                  photo("failed", scenes=["sky"], set="check")]
        results = {"lake": scene(water=0.7, sky=0.2, sunset=0.6, colourful=0.9),
                   "flower": scene(sunset=0.95, greenery=0.1, solid_colour=0.8), "failed": {25: None}}
        table = quality_table.Table()
        quality_table.score_scenes(table, photos, results)
        values = {(row[0], row[1]): row[2] for row in table.rows}
        tune, check = "scenes (25), calibration photos", "scenes (25), held-out photos"
        self.assertEqual(values[(tune, "wrong scene labels (of photo-label pairs)")], "1 of 3")
        self.assertEqual(values[(tune, "wrong scene labels at 0.9 or more")], "0")
        self.assertEqual(values[(tune, "labelled scene labels found")], "1 of 2")
        self.assertEqual(values[(check, "wrong scene labels (of photo-label pairs)")], "1 of 2")
        self.assertEqual(values[(check, "wrong scene labels at 0.9 or more")], "1")
        self.assertEqual(values[(check, "labelled scene labels found")], "none labelled")

    def test_classification_groups_and_confident_wrong_classes(self):
        def classes(*pairs):
            labels = [label for label, _ in pairs]
            return {121: {"m_labels": labels, "m_classificationInfos": [
                {"id": list(range(len(pairs))), "confidence": [c for _, c in pairs]}]}}

        photos = [photo("cat", classes=["cat_c1_c2"]), photo("lake", classes=["lake_c1_c2", "2584_sky"]),
                  photo("nothing")]
        results = {"cat": classes(("cat_c1_c2", 0.6), ("dog_c1_c2", 0.85)),
                   "lake": classes(("2584_sky", 0.7), ("lake_c1_c2", 0.3)),
                   "nothing": classes(("qrcode_c2", 0.9), ("text_c1_c2", 0.79))}
        table = quality_table.Table()
        quality_table.score_classification(table, photos, results)
        values = {row[1]: row[2] for row in table.rows}
        self.assertEqual(values["a labelled class in the top 5"], "2 of 2")
        self.assertEqual(values["top-5 hits, photos of animals"], "1 of 1")
        self.assertEqual(values["top-5 hits, photos of scenes"], "1 of 1")
        self.assertNotIn("top-5 hits, photos of text", values)
        self.assertEqual(values["classes at 0.8 or more that the photo was not labelled with"], "2")
        # Shown from 0.3: the cat's dog, the nothing photo's two classes; the lake's 0.3 is labelled.
        self.assertEqual(values["wrong classes shown (0.3 or more, not labelled), check photos"], "3")
        self.assertEqual(values["wrong classes shown (0.3 or more, not labelled), tune photos"], "0")
        self.assertEqual(quality_table.wrong_shown(photos, results)["nothing"], [("qrcode_c2", 0.9), ("text_c1_c2", 0.79)])

    def test_every_sensitive_alarm_is_false(self):
        photos = [photo("flower"), photo("cat"), photo("wood"), photo("failed")]
        results = {"flower": {33: {"is_porn": True, "confidence": 0.82}}, "cat": {33: {"is_porn": False, "confidence": 0.25}},
                   "wood": {33: {"is_porn": False, "confidence": 0.01}}, "failed": {33: None}}
        table = quality_table.Table()
        quality_table.score_sensitive(table, photos, results)
        values = {row[1]: (row[2], row[3]) for row in table.rows}
        self.assertEqual(values["photos at is_porn (none is sensitive)"], ("1 of 3", "no result on 1 photo, left out"))
        self.assertEqual(values["photos at confidence 0.2 or more"][0], "2 of 3")


class ConversionTest(unittest.TestCase):
    def test_npy_grey_to_png_keeps_every_pixel(self):
        pixels = bytes(range(12))
        header = b"{'descr': '|u1', 'fortran_order': False, 'shape': (3, 4), }".ljust(118) + b"\n"
        npy = b"\x93NUMPY\x01\x00" + struct.pack("<H", len(header)) + header + pixels
        width, height, got = quality_photos.npy_grey(npy)
        self.assertEqual((width, height, got), (4, 3, pixels))
        png = quality_photos.png_bytes(width, height, 1, got)
        idat = png[png.index(b"IDAT") + 4:png.index(b"IEND") - 8]
        rows = zlib.decompress(idat)
        self.assertEqual(rows, b"".join(b"\x00" + pixels[y * 4:(y + 1) * 4] for y in range(3)))
        with self.assertRaises(ValueError):
            quality_photos.npy_grey(npy.replace(b"|u1", b"<f8"))


if __name__ == "__main__":
    unittest.main()
