// Forward-pass time of each converted network (every network of networks.json, face-api's
// included) in ONNX Runtime's CPU build under node, one thread (intraOpNumThreads 1), all
// graph optimisations on: the median processor time of RUNS warm runs on a zero input (the
// process does nothing else meanwhile). Prints one line per network: MODEL CHANNELS HEIGHT
// WIDTH MILLISECONDS. With MODEL, that network only; with --list, only the networks' names,
// in the order they are timed.
//   usage: node ort_bench.js NETWORKS.json MODELS_DIR [RUNS [MODEL]]   (NODE_PATH: the runtime)
//          node ort_bench.js NETWORKS.json --list
'use strict';
const fs = require('fs');
const path = require('path');
const ort = require('onnxruntime-node');

async function main() {
  const [networksFile, modelsDir, runsText, only] = process.argv.slice(2);
  const runs = Number(runsText || 30);
  const spec = JSON.parse(fs.readFileSync(networksFile));
  const networks = [...spec.networks, ...spec.weights_package.networks, ...spec.layers_package.networks];
  if (modelsDir === '--list') {
    for (const net of networks) console.log(net.model);
    return;
  }
  for (const net of networks) {
    if (only !== undefined && net.model !== only) continue;
    const { height: h, width: w } = net.input;
    const c = net.input.channels || 3;
    const session = await ort.InferenceSession.create(path.join(modelsDir, `${net.model}.model`),
      { intraOpNumThreads: 1, interOpNumThreads: 1, executionMode: 'sequential', graphOptimizationLevel: 'all' });
    const feeds = { input: new ort.Tensor('float32', new Float32Array(c * h * w), [1, c, h, w]) };
    await session.run(feeds);
    const times = [];
    for (let i = 0; i < runs; i++) {
      const started = process.cpuUsage();
      await session.run(feeds);
      const used = process.cpuUsage(started);
      times.push((used.user + used.system) / 1e3);
    }
    times.sort((a, b) => a - b);
    console.log(net.model, c, h, w, times[Math.floor(runs / 2)].toFixed(2));
  }
}

main().catch((e) => { console.error(e); process.exit(1); });
