#!/usr/bin/env bash
# What a user who mistypes sees: each mistake gets one line that names it, the command's
# synopsis and where the help is (not the whole help), and its exit status.
#   cli_messages_test.sh VQFE_BINARY SOURCE_DIR
set -euo pipefail
vqfe=$1
source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# expect STATUS FIRST_LINE COMMAND...: the exit status and the first line on standard error.
expect() {
  local want_status=$1 want_line=$2 status=0
  shift 2
  "$@" >"$work/out.txt" 2>"$work/err.txt" || status=$?
  [[ $status -eq $want_status ]] || fail "$* gave status $status, not $want_status: $(cat "$work/err.txt")"
  [[ "$(head -n 1 "$work/err.txt")" == "$want_line" ]] ||
    fail "$*: first line '$(head -n 1 "$work/err.txt")', not '$want_line'"
}

expect 2 "vqfe extract: unknown option --kinds" "$vqfe" extract --kinds face x.jpg
[[ $(wc -l <"$work/err.txt") -le 4 ]] || fail "a usage error printed the whole help: $(cat "$work/err.txt")"
grep -q "^Run 'vqfe extract --help' for the options.$" "$work/err.txt" || fail "no pointer to the help"
expect 2 "vqfe extract: --store needs a file or URI" "$vqfe" extract --store
expect 2 "vqfe people: people takes 'name ID NAME' or 'merge ID ID'" "$vqfe" people --store "$work/none.db" merge 1
expect 2 "vqfe graph: unknown kind 'nope'" "$vqfe" graph nope
expect 1 "vqfe graph: no built-in graph for kind 9999" "$vqfe" graph 9999
expect 1 "vqfe extract: no such file or directory: $work/missing.jpg" "$vqfe" extract "$work/missing.jpg"
# After "--" a name that starts with '-' is a name, also "--help".
(cd "$work" && expect 1 "vqfe extract: no such file or directory: -x.jpg" "$vqfe" extract -- -x.jpg --help)
expect 1 "vqfe extract: not a regular file: /dev/zero" "$vqfe" extract /dev/zero
expect 1 "vqfe search: result store $work/none.db: no such store file" "$vqfe" search --store "$work/none.db"
expect 1 "vqfe extract: result store $work/no/such/results.db: its directory $work/no/such does not exist" \
  "$vqfe" extract --store "$work/no/such/results.db" "$source_dir/samples/coffee.jpg"
echo "not a picture" >"$work/notes.jpg"
expect 1 "vqfe score: $work/missing.jpg: no such file" "$vqfe" score "$work/missing.jpg" "$source_dir/samples/coffee.jpg"
grep -q "coffee.jpg" "$work/out.txt" || fail "score stopped at the missing file"
expect 1 "vqfe score: $work/notes.jpg: cannot score (INVALID_FORMAT, code 8: not a JPEG or PNG image it can read)" \
  "$vqfe" score "$work/notes.jpg"
for command in extract score graph models show enqueue work status people duplicates search report reindex; do
  "$vqfe" "$command" --help >"$work/help.txt" || fail "$command --help"
  grep -q "^usage: vqfe $command" "$work/help.txt" || fail "$command --help: $(head -n 1 "$work/help.txt")"
done
echo "command-line messages: ok"
