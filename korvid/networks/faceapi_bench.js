// Forward-pass time of face-api's networks (networks.json "weights_package") in TF.js under
// node, WebAssembly backend (XNNPACK) on one thread, as bench.js does for the graph models:
// warm mean over RUNS runs on a zero input, one line per network: MODEL CHANNELS HEIGHT WIDTH
// MILLISECONDS.
//   usage: node faceapi_bench.js NETWORKS.json WEIGHTS_DIR [RUNS]
'use strict';
const fs = require('fs');
const wasm = require('@tensorflow/tfjs-backend-wasm');
const { tf, loadNet } = require('./faceapi_load');

async function main() {
  const [networksFile, weightsDir, runsText] = process.argv.slice(2);
  const runs = Number(runsText || 20);
  wasm.setThreadsCount(1);
  await tf.setBackend('wasm');
  for (const spec of JSON.parse(fs.readFileSync(networksFile)).weights_package.networks) {
    const { height: h, width: w } = spec.input;
    const net = loadNet(spec, weightsDir);
    const input = tf.zeros([1, h, w, 3]);
    const once = async () => {
      const out = await net.forward(input);
      for (const t of out instanceof tf.Tensor ? [out] : Object.values(out)) { t.dataSync(); t.dispose(); }
    };
    await once();
    const started = process.hrtime.bigint();
    for (let i = 0; i < runs; i++) await once();
    const ms = Number(process.hrtime.bigint() - started) / 1e6 / runs;
    console.log(spec.model, 3, h, w, ms.toFixed(2));
  }
}

main().catch((e) => { console.error(e); process.exit(1); });
