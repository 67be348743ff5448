#!/usr/bin/env python3
"""Scores `vqfe extract` results against scripts/quality-labels.tsv and prints one table of
figures per analysis (docs/quality.md says what each one means).

usage: quality_table.py [--markdown] [--photos] LABELS RESULTS.jsonl

RESULTS holds one JSON object per image and kind, as `vqfe extract` prints them. A kind that
failed or gave no result on a photo is counted as such, never as a finding.
"""
import json
import math
import os
import sys
from itertools import combinations

from quality_labels import read_labels

KINDS = {4: "face", 7: "skeleton", 8: "face-verify", 10: "face-cluster", 25: "scene", 46: "face-attribute",
         95: "pet-face", 121: "classification", 33: "sensitive"}


def load_results(path):
    """{photo name: {kind: result or None}}; None where the kind failed or returned nothing."""
    results = {}
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            entry = json.loads(line)
            if entry.get("kind") not in KINDS:
                continue
            name = os.path.splitext(os.path.basename(entry["image"]))[0]
            result = entry.get("result") if not entry.get("error") else None
            results.setdefault(name, {})[entry["kind"]] = result
    return results


def cosine(a, b):
    dot = sum(x * y for x, y in zip(a, b))
    norms = math.sqrt(sum(x * x for x in a)) * math.sqrt(sum(y * y for y in b))
    return dot / norms if norms else 0.0


def top_labels(result, count):
    """The classification's labels, highest confidence first (ties in the order returned)."""
    labels = result.get("m_labels") or []
    infos = result.get("m_classificationInfos") or []
    if not infos:
        return []
    pairs = [(labels[i] if 0 <= i < len(labels) else "class %d" % i, c)
             for i, c in zip(infos[0].get("id", []), infos[0].get("confidence", []))]
    pairs.sort(key=lambda pair: -pair[1])
    return pairs[:count]


class Table:
    def __init__(self):
        self.rows = []

    def add(self, analysis, figure, value, note=""):
        self.rows.append((analysis, figure, value, note))

    def print(self, markdown):
        if markdown:
            print("| Analysis | Figure | Measured | Note |")
            print("|---|---|---|---|")
            for row in self.rows:
                print("| " + " | ".join(row) + " |")
            return
        widths = [max(len(row[i]) for row in self.rows) for i in range(3)]
        for row in self.rows:
            print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)) + ("  " + row[3] if row[3] else ""))


def of(count, total, empty="none labelled"):
    return "%d of %d" % (count, total) if total else empty


def answered(photos, results, kind):
    """The photos on which the kind gave a result, and a note naming how many it did not;
    the figures are taken over the first only."""
    got = [p for p in photos if results.get(p["name"], {}).get(kind) is not None]
    missing = len(photos) - len(got)
    return got, ("no result on %d photo%s, left out" % (missing, "" if missing == 1 else "s") if missing else "")


def face_boxes(result):
    """Top-left x, y, width and height of each face found, in fractions of the photo."""
    return [(f["rect"]["x"], f["rect"]["y_vantor"], f["rect"]["width"], f["rect"]["height"])
            for f in (result or {}).get("m_faceBaseInfos", [])]


def match_faces(boxes, centres):
    """Hits (labelled faces whose centre lies in a box found, each box used once) and false
    faces (boxes that hold no labelled face)."""
    unused = list(boxes)
    hits = 0
    for cx, cy in centres:
        inside = [b for b in unused if b[0] <= cx <= b[0] + b[2] and b[1] <= cy <= b[1] + b[3]]
        if inside:
            unused.remove(min(inside, key=lambda b: (b[0] + b[2] / 2 - cx) ** 2 + (b[1] + b[3] / 2 - cy) ** 2))
            hits += 1
    return hits, len(unused)


def score_faces(table, photos, results):
    photos, note = answered(photos, results, 4)
    labelled = hits = false = with_false = 0
    clean = [p for p in photos if not p["faces"]]
    for photo in photos:
        photo_hits, photo_false = match_faces(face_boxes(results[photo["name"]][4]), photo["faces"])
        labelled += len(photo["faces"])
        hits += photo_hits
        false += photo_false
        with_false += not photo["faces"] and photo_false > 0
    table.add("faces (4)", "labelled faces found", of(hits, labelled), note)
    table.add("faces (4)", "false faces (boxes on no labelled face)", str(false))
    table.add("faces (4)", "photos without a face that got one", of(with_false, len(clean)))


def score_pets(table, photos, results):
    def pets(photo):
        result = results.get(photo["name"], {}).get(95)
        return (result or {}).get("m_facePetInfos", [])

    photos, note = answered(photos, results, 95)
    for kind in ("cat", "dog"):
        with_pet = [p for p in photos if p["pet"] == kind]
        table.add("pets (95)", "%ss found" % kind, of(sum(1 for p in with_pet if pets(p)), len(with_pet)), note)
        note = ""
    without = [p for p in photos if not p["pet"]]
    table.add("pets (95)", "photos without a pet that got one", of(sum(1 for p in without if pets(p)), len(without)))


def people_cue(photo, results):
    """The scene kind's "people" entry: satisfied or not; None without a result or without
    such an entry."""
    entries = [e for e in (results.get(photo["name"], {}).get(25) or {}).get("m_SceneRecogInfo", [])
               if e.get("name") == "people"]
    return bool(entries[0].get("satisfied")) if entries else None


def score_people(table, photos, results):
    missing = sum(1 for p in photos if people_cue(p, results) is None)
    photos = [p for p in photos if people_cue(p, results) is not None]
    note = "no \"people\" entry on %d photos, left out" % missing if missing else ""
    with_people = [p for p in photos if p["people"]]
    without = [p for p in photos if not p["people"]]
    table.add("people present (25)", "photos with people said yes", of(sum(1 for p in with_people if people_cue(p, results)), len(with_people), "no answer"), note)
    table.add("people present (25)", "photos without people said yes", of(sum(1 for p in without if people_cue(p, results)), len(without), "no answer"))


# The scene labels with a meaning to check against a photo; "colourful" and "solid_colour"
# measure colour itself and fit whatever they say.
SCENE_LABELS = ("sky", "greenery", "water", "night", "snow", "sunset", "document", "people")


def scene_entries(photo, results):
    """{label: (prob, satisfied)} of the scene kind; None without a result."""
    result = results.get(photo["name"], {}).get(25)
    if result is None:
        return None
    return {e.get("name"): (e.get("prob", 0.0), bool(e.get("satisfied"))) for e in result.get("m_SceneRecogInfo", [])}


def score_scenes(table, photos, results):
    """Wrong scene labels: satisfied labels the photo was not labelled with, over all
    photo-label pairs; right ones: labelled labels that were satisfied. Each set apart."""
    photos, note = answered(photos, results, 25)
    for part in ("tune", "check"):
        chosen = [p for p in photos if p.get("set", "check") == part]
        pairs = wrong = confident = labelled = found = 0
        for photo in chosen:
            entries = scene_entries(photo, results)
            for label in SCENE_LABELS:
                if label not in entries:
                    continue
                prob, satisfied = entries[label]
                pairs += 1
                if label in photo.get("scenes", []):
                    labelled += 1
                    found += satisfied
                elif satisfied:
                    wrong += 1
                    confident += prob >= 0.9
        name = "scenes (25), %s photos" % ("calibration" if part == "tune" else "held-out")
        table.add(name, "wrong scene labels (of photo-label pairs)", of(wrong, pairs), note)
        table.add(name, "wrong scene labels at 0.9 or more", str(confident))
        table.add(name, "labelled scene labels found", of(found, labelled))
        note = ""


# Classification groups, by label: the class list's own blocks.
GROUPS = (
    ("people", {"selfie_c1_c2", "672_Family_photography", "QinZiSheYing_c2", "group_c1_c2", "yinger_c2", "ertong_c2",
                "2143_Old_man", "1248_crowd", "1536_Two", "2252_alone", "2001_student", "1072_Pregnant_woman"}),
    ("animals", {"585_Jellyfish", "204_goldfish", "Tortoise_c2", "KingPenguin_c2", "2452_bird", "Peacock_c2", "cat_c1_c2",
                 "dog_c1_c2", "1132_monkey", "399_deer", "Panda_c2", "184_sheep", "327_camel", "1628_horse", "415_Cattle",
                 "Tiger_c2", "Giraffe_c2", "Hamster_c2", "Elepant_c2", "Pig_c2", "rabbit_c2"}),
    ("food", {"mianshi_c2", "zhongcan_c2", "hotpot_c2", "Americal_Fast_Food_c2", "HaiXian_c2", "grill_c2", "sushi_c2",
              "ShaLa_c2", "snacks_c2", "2201_dessert", "cake_c2", "fruit_c2", "drink_c2", "bread_new"}),
    ("drawings", {"2098_Anime", "scrawl_mark_c2", "823_calligraphy", "725_sketch"}),
    ("text", {"bankcard_c2", "card_data_c2", "qrcode_c2", "text_c1_c2"}),
    ("scenes", {"desert_c2", "hill_c1_c2", "mountain_snowy_c2", "Cave_c2", "moutain_path_c2", "1714_Terraced_field",
                "formal_garden_c2", "farm_c2", "lawn_c2", "1276_jungle", "2107_Flower_sea", "islet_c2", "1215_Underwater",
                "lake_c1_c2", "ocean_c2", "2125_pond", "1031_Water_droplets", "creek_c2", "2220_waterfall", "2023_reef",
                "beach_c1_c2", "2584_sky", "2397_Galaxy", "1044_lightning", "2568_Sunset", "1550_rainbow", "2358_Cloud_sea",
                "2265_Blue_sky_and_white_clouds", "1570_dark_clouds", "2259_moon", "nightscape_c1_c2", "2002_Fireworks",
                "Bonfire_c2", "1257_Neon", "1235_Rainy_day", "xuejing_c2", "2408_fog", "flower_c1_c2", "tree_c1_c2",
                "1636_tulip", "1872_sunflower", "132_cactus", "2461_Lotus", "2482_Cherry_blossoms", "950_Rose",
                "670_lavender", "885_Dandelion", "1911_ginkgo", "1612_reed", "DuoRouZhiWu_c2", "2172_Rape_flower",
                "1840_Potted_plant", "2077_Maple_leaf"}),
)


SHOWN = 0.3  # the summary's display floor


def class_group(label):
    return next((name for name, labels in GROUPS if label in labels), "objects")


def score_classification(table, photos, results):
    photos, note = answered(photos, results, 121)
    labelled = [p for p in photos if p["classes"]]
    hits = 0
    confident = []
    for photo in photos:
        result = results[photo["name"]][121]
        if photo["classes"] and any(label in photo["classes"] for label, _ in top_labels(result, 5)):
            hits += 1
        infos = result.get("m_classificationInfos") or [{}]
        confident.append(sum(1 for c in infos[0].get("confidence", []) if c >= 0.99))
    table.add("classification (121)", "a labelled class in the top 5", of(hits, len(labelled)), note)
    for group in [name for name, _ in GROUPS] + ["objects"]:
        members = [p for p in labelled if class_group(p["classes"][0]) == group]
        if members:
            got = sum(1 for p in members if any(l in p["classes"] for l, _ in top_labels(results[p["name"]][121], 5)))
            table.add("classification (121)", "top-5 hits, photos of %s" % group, of(got, len(members)))
    wrong = sum(1 for p in photos for label, c in top_labels(results[p["name"]][121], 208) if c >= 0.8 and label not in p["classes"])
    table.add("classification (121)", "classes at 0.8 or more that the photo was not labelled with", str(wrong))
    for part in ("tune", "check"):
        shown = wrong_shown([p for p in photos if p.get("set", "check") == part], results)
        table.add("classification (121)", "wrong classes shown (0.3 or more, not labelled), %s photos" % part,
                  str(sum(len(labels) for labels in shown.values())))
    if confident:
        confident.sort()
        table.add("classification (121)", "classes at 0.99 or more per photo (median, most)",
                  "%d, %d" % (confident[len(confident) // 2], confident[-1]))


def wrong_shown(photos, results):
    """{photo name: [(label, confidence)]}: the classes the summary shows (0.3 or more,
    VQFeature::kShownConfidence) that the photo was not labelled with."""
    shown = {}
    for photo in photos:
        wrong = [(label, c) for label, c in top_labels(results[photo["name"]][121], 208)
                 if c >= SHOWN and label not in photo["classes"]]
        if wrong:
            shown[photo["name"]] = wrong
    return shown


def score_attributes(table, photos, results):
    """Age and gender on the faces of one-face photos labelled with them; all-zero attributes
    are an empty answer, not a 0-year-old."""
    single, note = answered([p for p in photos if len(p["faces"]) == 1 and (p["gender"] or p["age"])], results, 46)
    valued = gender_right = gender_total = age_in = age_total = faces = 0
    for photo in single:
        result = results.get(photo["name"], {}).get(46)
        for info in (result or {}).get("m_faceAttributeInfos", [])[:1]:
            faces += 1
            empty = not info.get("age") and not info.get("boy_prob") and not info.get("gender")
            valued += not empty
            if photo["gender"]:
                gender_total += 1
                if not empty:
                    gender_right += ("M" if info.get("boy_prob", 0) >= 0.5 else "F") == photo["gender"]
            if photo["age"]:
                low, high = (float(v) for v in photo["age"].split("-"))
                age_total += 1
                age_in += low <= info.get("age", 0) <= high
    table.add("gender and age (46)", "faces with any age or gender value", of(valued, faces, "no face found"), note)
    table.add("gender and age (46)", "gender right (boy_prob >= 0.5 is male)", of(gender_right, gender_total, "no face found"))
    table.add("gender and age (46)", "age within the labelled range", of(age_in, age_total, "no face found"))


def descriptors_at(result, centres):
    """The face descriptors found at the labelled face centres (faces found elsewhere are
    left out: a false face is not a person)."""
    infos = [i for i in (result or {}).get("m_faceVerifyInfos", []) if i.get("features") and i.get("rect")]
    found = []
    for cx, cy in centres:
        inside = [i for i in infos if i["rect"]["x"] <= cx <= i["rect"]["x"] + i["rect"]["width"]
                  and i["rect"]["y_vantor"] <= cy <= i["rect"]["y_vantor"] + i["rect"]["height"]]
        if inside:
            info = min(inside, key=lambda i: (i["rect"]["x"] + i["rect"]["width"] / 2 - cx) ** 2 +
                       (i["rect"]["y_vantor"] + i["rect"]["height"] / 2 - cy) ** 2)
            infos.remove(info)
            found.append(info["features"])
    return found


def score_identity(table, photos, results):
    """Cosine similarity of face descriptors: the named people's faces across photos, and the
    faces of a group photo among themselves (all different people)."""
    all_photos = photos
    photos, note = answered(photos, results, 8)
    named = []
    same, different = [], []
    for photo in photos:
        found = descriptors_at(results[photo["name"]][8], photo["faces"])
        if photo["person"] and found:
            named.append((photo["person"], found[0]))
        if len(photo["faces"]) > 1:
            different += [cosine(a, b) for a, b in combinations(found, 2)]
    for (a, da), (b, db) in combinations(named, 2):
        (same if a == b else different).append(cosine(da, db))
    if not same or not different:
        table.add("identity (8)", "same vs different people", "no descriptors to compare", note)
    else:
        table.add("identity (8)", "same-person similarity (lowest)", "%.3f over %d pair%s" % (min(same), len(same), "" if len(same) == 1 else "s"), note)
        different.sort()
        table.add("identity (8)", "different-people similarity (median, highest)",
                  "%.3f, %.3f over %d pairs" % (different[len(different) // 2], different[-1], len(different)))
        below = sum(1 for d in different if d < min(same))
        table.add("identity (8)", "different-people pairs below the lowest same-person pair", of(below, len(different)))
    photos, note = answered(all_photos, results, 10)
    merged = total = 0
    for photo in photos:
        if len(photo["faces"]) > 1:
            clusters = (results.get(photo["name"], {}).get(10) or {}).get("m_results", [])
            total += len(clusters)
            merged += sum(1 for c in clusters if clusters.count(c) > 1)
    table.add("identity (10)", "faces of the group photo in a cluster with another person", of(merged, total, "no group photo"), note)


def score_skeletons(table, photos, results):
    def skeletons(photo):
        return len((results.get(photo["name"], {}).get(7) or {}).get("m_skeletonInfos", []))

    photos, note = answered(photos, results, 7)
    with_people = [p for p in photos if p["people"]]
    without = [p for p in photos if not p["people"]]
    table.add("skeleton (7)", "photos with people that got a skeleton", of(sum(1 for p in with_people if skeletons(p)), len(with_people)), note)
    table.add("skeleton (7)", "photos without people that got a skeleton", of(sum(1 for p in without if skeletons(p)), len(without)))


def face_cell(result, centres):
    hits, false = match_faces(face_boxes(result), centres)
    return hits, len(centres), false


def scene_cell(photo, results):
    entries = scene_entries(photo, results) or {}
    said = [l for l in SCENE_LABELS if entries.get(l, (0, False))[1]]
    return "%s / %s" % (",".join(said) or "-", ",".join(photo.get("scenes", [])) or "-")


def print_photos(photos, results, markdown):
    """One line per photo: what was labelled and what came back."""
    head = ("photo", "faces found/labelled (false)", "pet faces", "people cue / labelled", "skeletons", "scenes said / labelled",
            "top label")
    rows = [head]
    for photo in photos:
        got = results.get(photo["name"], {})
        cue = people_cue(photo, results)
        top = top_labels(got[121], 1) if got.get(121) else []
        rows.append((photo["name"],
                     "%d/%d (%d)" % face_cell(got.get(4), photo["faces"]),
                     "%d%s" % (len((got.get(95) or {}).get("m_facePetInfos", [])), " (%s)" % photo["pet"] if photo["pet"] else ""),
                     "%s / %d" % ("-" if cue is None else "yes" if cue else "no", photo["people"]),
                     str(len((got.get(7) or {}).get("m_skeletonInfos", []))),
                     scene_cell(photo, results),
                     "%s %.2f" % top[0] if top else "-"))
    if markdown:
        print("| " + " | ".join(head) + " |")
        print("|" + "---|" * len(head))
        for row in rows[1:]:
            print("| " + " | ".join(row) + " |")
    else:
        widths = [max(len(row[i]) for row in rows) for i in range(len(head))]
        for row in rows:
            print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)))


def score_sensitive(table, photos, results):
    """None of the photos is sensitive: every is_porn is a false alarm."""
    photos, note = answered(photos, results, 33)
    confidence = [float(results[p["name"]][33].get("confidence", 0)) for p in photos]
    alarms = sum(1 for p in photos if results[p["name"]][33].get("is_porn"))
    table.add("sensitive (33)", "photos at is_porn (none is sensitive)", of(alarms, len(photos)), note)
    table.add("sensitive (33)", "photos at confidence 0.2 or more", of(sum(1 for c in confidence if c >= 0.2), len(photos)))


def main():
    args = [a for a in sys.argv[1:] if not a.startswith("--")]
    if len(args) != 2:
        sys.exit(__doc__)
    markdown = "--markdown" in sys.argv
    photos = read_labels(args[0])
    results = load_results(args[1])
    analysed = [p for p in photos if p["name"] in results]
    if len(analysed) < len(photos):
        print("not analysed: " + ", ".join(p["name"] for p in photos if p["name"] not in results), file=sys.stderr)
    table = Table()
    for score in (score_faces, score_pets, score_people, score_scenes, score_classification, score_attributes, score_identity,
                  score_skeletons, score_sensitive):
        score(table, analysed, results)
    print("%d photos: %d with people, %d with a cat or dog\n" % (
        len(analysed), sum(1 for p in analysed if p["people"]), sum(1 for p in analysed if p["pet"])))
    table.print(markdown)
    if "--photos" in sys.argv:
        print()
        print_photos(analysed, results, markdown)
        print()
        print("wrong classes shown (0.3 or more, not labelled):")
        shown = wrong_shown([p for p in analysed if results[p["name"]].get(121)], results)
        for name, wrong in shown.items():
            print("%s%s: %s" % ("- " if markdown else "  ", name, ", ".join("%s %.2f" % pair for pair in wrong)))


if __name__ == "__main__":
    main()
