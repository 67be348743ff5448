#!/usr/bin/env bash
# vqfe people, duplicates, search and report as a user runs them, on a SQLite store and
# (with VQFE_TEST_PG_URI) a PostgreSQL one, built from photos by vqfe extract. Every page
# of the report is loaded in headless Chromium: no console message, and every picture or
# link it names is a file inside the report folder. Exit 77 (skipped) without Chromium.
#   library_commands_test.sh VQFE_BINARY SOURCE_DIR
set -euo pipefail
vqfe=$1
source_dir=$2
command -v chromium >/dev/null || { echo "chromium is not installed: report pages not checked"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

mkdir -p "$work/photos"
cp "$source_dir"/samples/*.jpg "$source_dir/testdata/grace_hopper_crop.jpg" "$work/photos/"
cp "$source_dir/samples/coffee.jpg" "$work/photos/coffee_again.jpg"
# A smaller copy of the rocket under the same file name in another folder.
mkdir -p "$work/photos/old"
cp "$source_dir/testdata/rocket.jpg" "$work/photos/old/rocket.jpg"

check_store() {
  local store=$1
  "$vqfe" extract --kind face-verify --kind scene --kind similarity --kind classification \
    --store "$store" --draw "$work/pictures" --summary "$work/photos" >/dev/null 2>"$work/summary.txt" ||
    fail "extract"
  grep -q "^store: " "$work/summary.txt" || fail "the summary does not say where the store is"
  # A picture per photo file, also for the two rockets of one file name in two folders.
  [[ $(find "$work/photos" -name "*.jpg" | wc -l) -eq $(find "$work/pictures" -name "*.png" | wc -l) ]] ||
    fail "pictures: $(ls "$work/pictures")"

  "$vqfe" people --store "$store" --json >"$work/people.jsonl" 2>/dev/null || fail "people"
  python3 - "$work/people.jsonl" <<'EOF' || fail "people --json"
import json, sys
people = [json.loads(line) for line in open(sys.argv[1])]
assert [len(p["faces"]) for p in people] == sorted((len(p["faces"]) for p in people), reverse=True), people
grace = [p for p in people if any("grace_hopper" in f["image"] for f in p["faces"])]
assert len(grace) == 1 and len(grace[0]["faces"]) == 2, people
assert grace[0]["name"] is None and all(len(f["box"]) == 4 for f in grace[0]["faces"])
open(sys.argv[1] + ".grace", "w").write(str(grace[0]["person"]))
EOF
  local grace
  grace=$(cat "$work/people.jsonl.grace")
  # Options may stand anywhere; an unknown person is exit status 2.
  "$vqfe" people name "$grace" "Grace Hopper" --store "$store" 2>/dev/null || fail "people name"
  "$vqfe" people --json --store "$store" 2>/dev/null | grep -q '"name": "Grace Hopper"' || fail "the name did not stay"
  local status=0
  "$vqfe" people --store "$store" merge "$grace" 424242 2>/dev/null || status=$?
  [[ $status -eq 2 ]] || fail "merge with an unknown person gave $status, not 2"
  status=0
  "$vqfe" search --store "$store" --person "Nobody" 2>/dev/null || status=$?
  [[ $status -eq 2 ]] || fail "search for an unknown person gave $status, not 2"

  "$vqfe" duplicates --store "$store" --json >"$work/duplicates.jsonl" || fail "duplicates"
  python3 - "$work/duplicates.jsonl" <<'EOF' || fail "duplicates --json"
import json, os, sys
groups = [sorted(os.path.basename(p) for p in json.loads(line)) for line in open(sys.argv[1])]
assert groups == [["coffee.jpg", "coffee_again.jpg"], ["rocket.jpg", "rocket.jpg"]], groups
EOF
  # The two crops of the portrait are 16 hash bits apart, as far as distinct photos can
  # be: --similar adds nothing here.
  "$vqfe" duplicates --store "$store" --similar --json | cmp -s - "$work/duplicates.jsonl" || fail "duplicates --similar"
  "$vqfe" search --store "$store" --person "Grace Hopper" --label people >"$work/found.txt" || fail "search"
  [[ $(grep -c grace_hopper "$work/found.txt") -eq 2 && $(wc -l <"$work/found.txt") -eq 2 ]] ||
    fail "search --person: $(cat "$work/found.txt")"
  # A label by its display name: "cat" is the class cat_c1_c2.
  "$vqfe" search --store "$store" --label cat >"$work/found.txt" || fail "search by display name"
  [[ "$(xargs -n1 basename <"$work/found.txt")" == "chelsea.jpg" ]] || fail "search --label cat: $(cat "$work/found.txt")"
  "$vqfe" search --store "$store" --label Cat >"$work/found.txt" || fail "search in another case"
  [[ "$(xargs -n1 basename <"$work/found.txt")" == "chelsea.jpg" ]] || fail "search --label Cat: $(cat "$work/found.txt")"
  # A label no analysis gives is a usage error that says what a label is; a known one
  # that no photo has is an empty answer that says so.
  status=0
  "$vqfe" search --store "$store" --label "no such label" >"$work/found.txt" 2>"$work/err.txt" || status=$?
  [[ $status -eq 2 ]] && grep -q "unknown label 'no such label': give a scene label" "$work/err.txt" &&
    grep -q "; the store has .*people (3), cat (1)" "$work/err.txt" ||
    fail "search for an unknown label gave $status: $(cat "$work/err.txt")"
  "$vqfe" search --store "$store" --label giraffe >"$work/found.txt" 2>"$work/err.txt" || fail "search --label giraffe"
  [[ ! -s "$work/found.txt" ]] &&
    grep -q "no photo has the label 'giraffe' (from score 0.30); the store has .*people ([0-9]*).*cat (1)$" "$work/err.txt" ||
    fail "search --label giraffe: $(cat "$work/found.txt" "$work/err.txt")"
  # A label counts from the score the summary shows it at (0.3): the cat's flower class
  # at 0.13 only with a lower floor, and the empty answer says so.
  "$vqfe" search --store "$store" --label flower >"$work/found.txt" 2>"$work/err.txt" || fail "search --label flower"
  [[ ! -s "$work/found.txt" ]] && grep -q "no photo matches (1 with the labels scored under 0.30: --min-score 0" \
    "$work/err.txt" || fail "search --label flower: $(cat "$work/found.txt" "$work/err.txt")"
  "$vqfe" search --store "$store" --label flower --min-score 0.1 >"$work/found.txt" || fail "search --min-score"
  [[ "$(xargs -n1 basename <"$work/found.txt")" == "chelsea.jpg" ]] || fail "search --min-score 0.1: $(cat "$work/found.txt")"
  status=0
  "$vqfe" search --store "$store" --label flower --min-score 1.5 2>/dev/null || status=$?
  [[ $status -eq 2 ]] || fail "--min-score 1.5 gave $status, not 2"
}

check_report() {
  local report=$1
  for page in "$report"/*.html; do
    local profile
    profile=$(mktemp -d)
    timeout 120 chromium --headless --no-sandbox --disable-gpu --disable-background-networking \
      --disable-component-update --no-first-run --user-data-dir="$profile" --enable-logging=stderr --v=0 \
      --dump-dom "file://$page" >"$work/dom.html" 2>"$work/console.txt" || fail "chromium on $page"
    rm -rf "$profile"
    if grep -a ":CONSOLE" "$work/console.txt"; then fail "console message on $page"; fi
    grep -q "</html>" "$work/dom.html" || fail "$page did not load"
  done
  grep -q "Grace Hopper" "$report/index.html" || fail "the index does not show the named person"
  # Labels by their display names, and none the summary would not show (the cup's flower
  # class at 0.13): a class cat_c1_c2 is "cat".
  grep -q '>cat</a>' "$report/index.html" || fail "the index does not list the label cat"
  # Counts in the right number: the astronaut's person has "1 face".
  grep -q ', 2 groups of copies, 0 groups of similar photos' "$report/index.html" && grep -q ', 1 face</a>' "$report/index.html" &&
    ! grep -q ' 1 faces\| 1 groups' "$report/index.html" || fail "counts in the wrong number"
  [[ "$("$vqfe" people --store "$work/results.db" 2>/dev/null | grep -c ': 1 face$')" -ge 1 ]] || fail "people: '1 face'"
  # The two rockets go by their folders; each page shows the other as its copy, and not
  # again as a similar photo.
  grep -q '>old/rocket.jpg</a>' "$report/index.html" && grep -q '>photos/rocket.jpg</a>' "$report/index.html" ||
    fail "files of one name are not told apart"
  for page in $(grep -l '<h1>[a-z]*/rocket.jpg</h1>' "$report"/photo-*.html); do
    grep -q '<h2>Copies</h2>' "$page" && ! grep -q '<h2>Similar photos</h2>' "$page" || fail "copies on $page"
  done
  [[ $(grep -l '<h1>[a-z]*/rocket.jpg</h1>' "$report"/photo-*.html | wc -l) -eq 2 ]] || fail "no rocket pages"
  if grep -l '_c1_c2\|>flower</a>' "$report"/*.html; then fail "a label by its system name or under the shown floor"; fi
  python3 - "$report" <<'EOF' || fail "the report names a file outside itself or a missing one"
import os, re, sys
root = os.path.realpath(sys.argv[1])
for name in os.listdir(root):
    if not name.endswith(".html"):
        continue
    for ref in re.findall(r'(?:src|href)="([^"]*)"', open(os.path.join(root, name)).read()):
        if ref.startswith("data:"):
            continue
        target = os.path.realpath(os.path.join(root, ref))
        assert target.startswith(root + os.sep), (name, ref)
        assert os.path.isfile(target), (name, ref)
EOF
}

check_store "$work/results.db"
# A store of faces without descriptors gives no persons and says which kind gives them;
# one without perceptual hashes says which kind finds copies.
"$vqfe" extract --kind face --store "$work/faces.db" "$work/photos/astronaut.jpg" >/dev/null 2>&1 || fail "extract face"
"$vqfe" people --store "$work/faces.db" >"$work/people.txt" 2>"$work/err.txt" || fail "people without descriptors"
[[ ! -s "$work/people.txt" ]] && grep -q "no face descriptors in the store (it has 1 face in 1 photo); persons come from the face-verify kind" "$work/err.txt" ||
  fail "people without descriptors: $(cat "$work/people.txt" "$work/err.txt")"
grep -q "^vqfe people: 0 new faces: 0 joined known persons, 0 new persons$" "$work/err.txt" || fail "people counts: $(cat "$work/err.txt")"
"$vqfe" duplicates --store "$work/faces.db" 2>"$work/err.txt" >/dev/null || fail "duplicates without hashes"
grep -q "no photo of the store has a perceptual hash" "$work/err.txt" || fail "duplicates without hashes: $(cat "$work/err.txt")"
# Hashes without class signatures: --similar says it can only find copies.
"$vqfe" extract --kind similarity --store "$work/hashes.db" "$work/photos/coffee.jpg" "$work/photos/rocket.jpg" >/dev/null 2>&1 ||
  fail "extract similarity"
"$vqfe" duplicates --store "$work/hashes.db" --similar 2>"$work/err.txt" >/dev/null || fail "duplicates --similar without signatures"
grep -q "2 photos have no class signature, so --similar finds only copies of them" "$work/err.txt" ||
  fail "duplicates --similar without signatures: $(cat "$work/err.txt")"
"$vqfe" report --store "$work/results.db" --out "$work/report" --pictures "$work/pictures" 2>/dev/null ||
  fail "report"
ls "$work/report"/person-*.html "$work/report"/photo-*.html "$work/report"/label-*.html >/dev/null ||
  fail "pages missing"
check_report "$work/report"
# Written again over itself: fine. A folder that is not a report: refused, left as it was,
# and nothing beside it touched.
"$vqfe" report --store "$work/results.db" --out "$work/report" 2>/dev/null || fail "report again"
mkdir -p "$work/mine"
echo keep >"$work/mine/notes.txt"
echo beside >"$work/beside.txt"
status=0
"$vqfe" report --store "$work/results.db" --out "$work/mine" 2>/dev/null || status=$?
[[ $status -eq 1 ]] || fail "a folder that is not a report was not refused ($status)"
[[ $(ls -A "$work/mine") == notes.txt && $(cat "$work/mine/notes.txt") == keep ]] || fail "the refused folder changed"
[[ $(cat "$work/beside.txt") == beside ]] || fail "a file beside the report changed"

if [[ -n "${VQFE_TEST_PG_URI:-}" ]]; then
  database="vqfe_report_$$"
  psql_uri="$VQFE_TEST_PG_URI"
  psql "$psql_uri" -q -c "CREATE DATABASE $database"
  sep='?'
  [[ $psql_uri == *\?* ]] && sep='&'
  check_store "$psql_uri${sep}dbname=$database"
  "$vqfe" report --store "$psql_uri${sep}dbname=$database" --out "$work/pg-report" 2>/dev/null || fail "report (pg)"
  [[ -f "$work/pg-report/index.html" ]] || fail "no report from the PostgreSQL store"
  psql "$psql_uri" -q -c "DROP DATABASE $database WITH (FORCE)" ||
    echo "note: the test database $database was left on the server"
else
  echo "VQFE_TEST_PG_URI is not set: the PostgreSQL store was not checked"
fi
echo "library commands and report: ok"
