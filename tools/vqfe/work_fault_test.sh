#!/usr/bin/env bash
# Shared work survives its faults: four worker processes over 200 small images and a
# corrupt one, one worker killed with SIGKILL while it holds a batch, the server
# restarted mid-run (pg_ctl restart -m fast), two workers frozen for a while and one
# started late. Afterwards every job is done exactly once, the blobs equal a
# single-process run's, the corrupt image is failed once with its error, and no job was
# claimed while another claim's lease on it was still valid (every claim is recorded in
# vqfe_claims).
#
# usage: work_fault_test.sh VQFE_BINARY SOURCE_DIR
# Restarts its server, so it starts a cluster of its own (scripts/pg_cluster) rather than
# disturb the other tests; exits 77 (skipped), saying why, where none can run.
set -euo pipefail
vqfe=$1
root=$2
work=$(mktemp -d)
chmod 755 "$work"  # the server account (when run as root) must reach its directory
cleanup() {
  jobs -p | xargs -r kill -9 2>/dev/null || true
  wait 2>/dev/null || true
  "$root/scripts/pg_cluster" stop "$work/pg"
  rm -rf "$work"
}
trap cleanup EXIT
if ! server=$("$root/scripts/pg_cluster" start "$work/pg" 2>"$work/pg.err"); then
  echo "no PostgreSQL server could be started here, skipped: $(tail -n 1 "$work/pg.err")"
  exit 77
fi
fail() {
  echo "FAIL: $*"
  tail -n 5 "$work"/w*.log 2>/dev/null || true
  psql "$run_uri" -XAq -c "SELECT worker, count(*), min(claimed_at), max(claimed_at) FROM vqfe_claims GROUP BY 1" || true
  exit 1
}
psql "$server" -XAtq -v ON_ERROR_STOP=1 -c "CREATE DATABASE run" -c "CREATE DATABASE single"
run_uri="$server&dbname=run"
single_uri="$server&dbname=single"
q() { psql "$run_uri" -XAtq -v ON_ERROR_STOP=1 -c "$1"; }

# 200 small distinct PNGs and a file that is no image.
python3 "$root/testing/make_pngs.py" "$work/images" 200

"$vqfe" enqueue --store "$single_uri" "$work/images" >/dev/null
"$vqfe" work --store "$single_uri" >"$work/single.log" 2>&1 || fail "single-process run"
"$vqfe" enqueue --store "$run_uri" "$work/images" >/dev/null

start_worker() { "$vqfe" work --store "$run_uri" --lease 3 --batch 4 >"$work/w$1.log" 2>&1 & }
done_jobs() { q "SELECT count(*) FROM vqfe_jobs WHERE state = 'done'"; }
wait_until() {  # wait_until SECONDS CONDITION...
  local deadline=$((SECONDS + $1)); shift
  until "$@"; do ((SECONDS < deadline)) || fail "timed out waiting for: $*"; sleep 0.05; done
}
start_worker 1; victim=$!
start_worker 2; w2=$!
start_worker 3; w3=$!

# The victim dies while it holds leased jobs.
holds_jobs() { (($(q "SELECT count(*) FROM vqfe_jobs WHERE state = 'leased' AND worker LIKE '%:$victim'") > 0)); }
wait_until 60 holds_jobs
kill -9 "$victim"
wait "$victim" 2>/dev/null || true
killed_with=$(q "SELECT count(*) FROM vqfe_jobs WHERE state = 'leased' AND worker LIKE '%:$victim'")

at_least() { (($(done_jobs) >= $1)); }
# Two workers freeze (SIGSTOP: a hung machine, leases unrenewed) while most jobs are
# open, so the late worker surely has work; the server restarts under the late worker's
# transactions; the frozen ones go on, find their connections gone, reconnect, and lose
# any lease that ran out meanwhile.
wait_until 120 at_least 20
kill -STOP "$w2" "$w3"
start_worker 4; w4=$!
late_done() { (($(q "SELECT count(*) FROM vqfe_claims WHERE worker LIKE '%:$w4' AND outcome IS NOT NULL") >= 5)); }
wait_until 120 late_done
"$root/scripts/pg_cluster" restart "$work/pg"
kill -CONT "$w2" "$w3"

deadline=$((SECONDS + 180))
for pid in $w2 $w3 $w4; do
  while kill -0 "$pid" 2>/dev/null; do ((SECONDS < deadline)) || fail "workers still running after 180 s"; sleep 0.2; done
  wait "$pid" || fail "worker $pid exited with an error"
done

status=$("$vqfe" status --store "$run_uri")
echo "$status"
grep -qx "pending: 0" <<<"$status" && grep -qx "leased: 0" <<<"$status" && grep -qx "done: 200" <<<"$status" &&
  grep -qx "failed: 1" <<<"$status" || fail "unexpected job states"
(( killed_with > 0 )) || fail "the victim held no job when it was killed"
[[ $(q "SELECT pg_postmaster_start_time() BETWEEN min(claimed_at) AND max(finished_at) FROM vqfe_claims") == t ]] ||
  fail "the server was not restarted while the workers ran"
[[ $(q "SELECT count(*) FROM vqfe_claims WHERE worker LIKE '%:$victim' AND finished_at IS NULL") -gt 0 ]] ||
  fail "the victim's claims were not left open"
[[ $(q "SELECT count(*) FROM (SELECT job_id FROM vqfe_claims GROUP BY job_id HAVING count(*) > 1) again") -gt 0 ]] ||
  fail "no job was claimed again after the kill"
[[ $(q "SELECT count(*) FROM vqfe_claims WHERE worker LIKE '%:$w4' AND outcome = 'done'") -gt 0 ]] ||
  fail "the late worker did nothing"

# Done exactly once: one finished claim per job, one result row per image.
[[ $(q "SELECT count(*) FROM (SELECT job_id FROM vqfe_claims WHERE outcome IS NOT NULL GROUP BY job_id
        HAVING count(*) <> 1) twice") == 0 ]] || fail "a job finished more than once"
[[ $(q "SELECT count(*) FROM vqfe_results") == 200 ]] || fail "result rows: $(q 'SELECT count(*) FROM vqfe_results')"
blobs="SELECT asset_id || ' ' || algorithm_key || ' ' || coalesce(md5(blob), 'null') FROM vqfe_results ORDER BY 1"
diff <(psql "$single_uri" -XAtq -c "$blobs") <(q "$blobs") >/dev/null || fail "blobs differ from the single-process run"

# The corrupt image: failed once, with its error.
[[ $(q "SELECT error FROM vqfe_jobs WHERE path LIKE '%/corrupt.png'") == *"is not a JPEG or PNG image" ]] ||
  fail "corrupt image: $(q "SELECT state, error FROM vqfe_jobs WHERE path LIKE '%/corrupt.png'")"
[[ $(q "SELECT count(*) FROM vqfe_claims c JOIN vqfe_jobs j ON j.id = c.job_id
        WHERE j.path LIKE '%/corrupt.png' AND c.outcome = 'failed'") == 1 ]] || fail "corrupt image failed more than once"

# No claim while an earlier claim of the same job still held a valid lease: the earlier
# one ends at its finish or at the end of its last renewed lease, whichever is first.
overlaps=$(q "SELECT count(*) FROM vqfe_claims a JOIN vqfe_claims b ON a.job_id = b.job_id AND a.claimed_at < b.claimed_at
              WHERE b.claimed_at < least(a.lease_until, coalesce(a.finished_at, a.lease_until))")
[[ $overlaps == 0 ]] || fail "$overlaps claims overlapped a valid lease"
echo "PASS: 200 images done once through a SIGKILL, a server restart and a late worker"
