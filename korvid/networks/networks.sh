#!/usr/bin/env bash
# Build and test steps of the networks, run by CMake:
#   networks.sh convert OUT_DIR PYTHON   fetch the models and weights packages, convert every
#                                        network of networks.json to OUT_DIR/<model>.model (ONNX)
#   networks.sh reference OUT_DIR        fetch the reference runtime, write its outputs on
#                                        the parity input to OUT_DIR (reference.js,
#                                        faceapi_reference.js, layers_reference.js)
#   networks.sh valid MODELS_DIR REF_DIR PYTHON
#                                        every network passes ONNX's full check, and ONNX
#                                        Runtime's outputs match the reference outputs
#   networks.sh bench MODELS_DIR BENCH [ROUNDS]
#                                        each network's forward time in our runtimes (the BENCH
#                                        program) against ONNX Runtime, one thread each, in
#                                        ROUNDS rounds (default 3), then each ratio's median
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
fetch="$here/../../scripts/fetch-networks"
case "${1:-}" in
  convert)
    models="$("$fetch")"
    "$3" "$here/tfjs_to_onnx.py" all "$here/networks.json" "$models" "$2"
    weights="$("$fetch" --weights)"
    "$3" "$here/faceapi_to_onnx.py" "$here/networks.json" "$weights/model" "$2"
    "$3" "$here/layers_to_onnx.py" "$here/networks.json" "$("$fetch" --layers)" "$2"
    ;;
  reference)
    models="$("$fetch")"
    runtime="$("$fetch" --runtime)"
    NODE_PATH="$runtime" node "$here/reference.js" "$here/networks.json" "$models" "$2" | grep -v '^$\|^====\|node backend'
    # face-api's own forward pass; its package sits in a node_modules folder of its own.
    weights="$("$fetch" --weights)"
    NODE_PATH="$runtime:$(dirname "$(dirname "$weights")")" node "$here/faceapi_reference.js" "$here/networks.json" \
      "$weights/model" "$2" | grep -v '^$\|^====\|node backend'
    NODE_PATH="$runtime" node "$here/layers_reference.js" "$here/networks.json" "$("$fetch" --layers)" "$2" \
      | grep -v '^$\|^====\|node backend'
    ;;
  valid)
    runtime="$("$fetch" --runtime)"
    status=0
    "$4" "$here/onnx_validity.py" "$here/networks.json" "$2" || status=1
    NODE_PATH="$runtime" node "$here/ort_parity.js" "$3" "$2" || status=1
    exit $status
    ;;
  bench)
    runtime="$("$fetch" --runtime)"
    rounds="${4:-3}"
    models=$(NODE_PATH="$runtime" node "$here/ort_bench.js" "$here/networks.json" --list)
    rows=$(mktemp)
    trap 'rm -f "$rows"' EXIT
    # Each network in ONNX Runtime and then in ours, one network after the other, so that the
    # two figures of a ratio are seconds apart and a change in the machine's speed (other
    # work on a shared host) falls on both; piped, the two would run at the same time and
    # take each other's processor. The rounds repeat that; the summary takes each ratio's
    # median over them.
    for round in $(seq "$rounds"); do
      echo "round $round of $rounds"
      for model in $models; do
        ort="$(NODE_PATH="$runtime" node "$here/ort_bench.js" "$here/networks.json" "$2" 30 "$model")"
        "$3" "$2" <<<"$ort" | tail -n +3 | tee -a "$rows"
      done
    done
    echo "median over the rounds: ours / ORT (runtime), ORT ms, ours ms; GFLOP of a pass, and the share of the core's peak ours and ORT run at"
    awk '{ ratio[$1] = ratio[$1] " " $7; ort[$1] = ort[$1] " " $5; runtime[$1] = $8; gflop[$1] = $9
           ours[$1] = ours[$1] " " ($8 == "oneDNN" ? $4 : $8 == "XNNPACK" ? $3 : $2)
           oursShare[$1] = oursShare[$1] " " $10; ortShare[$1] = ortShare[$1] " " $11
           if (!($1 in seen)) { seen[$1] = 1; order[++n] = $1 } }
      function median(list,   v, k, i, j, t) {
        k = split(list, v, " ")
        for (i = 2; i <= k; i++) for (j = i; j > 1 && v[j - 1] + 0 > v[j] + 0; j--) { t = v[j]; v[j] = v[j - 1]; v[j - 1] = t }
        return k % 2 ? v[(k + 1) / 2] : (v[k / 2] + v[k / 2 + 1]) / 2 }
      END { for (i = 1; i <= n; i++) { m = order[i]
              printf "%-24s %6.2f (%s)  %8.2f %8.2f  %7s %4s%% %4s%%   rounds:%s\n", m, median(ratio[m]), runtime[m],
                     median(ort[m]), median(ours[m]), gflop[m], median(oursShare[m]), median(ortShare[m]), ratio[m] } }' "$rows"
    ;;
  *)
    echo "usage: $0 convert OUT_DIR PYTHON | reference OUT_DIR | valid MODELS_DIR REF_DIR PYTHON | bench MODELS_DIR BENCH [ROUNDS]" >&2
    exit 2
    ;;
esac
