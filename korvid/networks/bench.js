// Forward-pass time of each network of networks.json in TF.js under node, WebAssembly
// backend (XNNPACK) on one thread: warm mean over RUNS runs on a zero input. Prints one line
// per network: MODEL CHANNELS HEIGHT WIDTH MILLISECONDS.
//   usage: node bench.js NETWORKS.json MODELS_DIR [RUNS]   (NODE_PATH: the runtime)
'use strict';
const fs = require('fs');
const tf = require('@tensorflow/tfjs');
const { loadGraphModel } = require('./graph_model');
const wasm = require('@tensorflow/tfjs-backend-wasm');

async function main() {
  const [networksFile, modelsDir, runsText] = process.argv.slice(2);
  const runs = Number(runsText || 20);
  wasm.setThreadsCount(1);
  await tf.setBackend('wasm');
  for (const net of JSON.parse(fs.readFileSync(networksFile)).networks) {
    const { height: h, width: w } = net.input;
    const model = await loadGraphModel(tf, modelsDir, net.source);
    const c = net.input.channels || 3;
    const input = tf.zeros(net.input.layout === 'nchw' ? [1, c, h, w] : [1, h, w, c], net.input.tfjs_dtype);
    const feed = { [net.input.tfjs_node || net.input.node]: input };
    const outputs = Object.values(net.outputs);
    const once = () => { for (const t of [].concat(model.execute(feed, outputs))) { t.dataSync(); t.dispose(); } };
    once();
    const started = process.hrtime.bigint();
    for (let i = 0; i < runs; i++) once();
    const ms = Number(process.hrtime.bigint() - started) / 1e6 / runs;
    console.log(net.model, net.input.channels || 3, h, w, ms.toFixed(2));
  }
}

main().catch((e) => { console.error(e); process.exit(1); });
