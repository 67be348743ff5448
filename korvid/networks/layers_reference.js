// Runs the TF.js layers models of networks.json ("layers_package", unpacked by
// layers_unpack.js into MODELS_DIR/<source>/) in the reference runtime (pure JavaScript CPU backend) on the parity
// image of reference.js, scaled as declared, and writes their outputs beside that script's
// (same file layout; lines appended to manifest.txt).
//   usage: node layers_reference.js NETWORKS.json MODELS_DIR OUT_DIR   (NODE_PATH: the runtime)
'use strict';
const fs = require('fs');
const path = require('path');
const tf = require('@tensorflow/tfjs');
const { loadLayersModel } = require('./graph_model');
const { pixels } = require('./reference_input');

async function main() {
  const [networksFile, modelsDir, outDir] = process.argv.slice(2);
  await tf.setBackend('cpu');
  fs.mkdirSync(outDir, { recursive: true });
  const lines = [];
  for (const net of JSON.parse(fs.readFileSync(networksFile)).layers_package.networks) {
    const { height: h, width: w, scale, offset } = net.input;
    const normalised = Float32Array.from(pixels(h, w, 3), (v) => v * scale + offset);
    const nchw = new Float32Array(h * w * 3);
    for (let y = 0; y < h; y++) for (let x = 0; x < w; x++) for (let k = 0; k < 3; k++) {
      nchw[(k * h + y) * w + x] = normalised[(y * w + x) * 3 + k];
    }
    fs.writeFileSync(path.join(outDir, `${net.model}.input.f32`), Buffer.from(nchw.buffer));
    const model = await loadLayersModel(tf, path.join(modelsDir, net.source), net.source);
    const names = Object.keys(net.outputs);
    const outputs = model.outputNames || model.outputs.map((o) => o.name.split('/')[0]);
    const started = process.hrtime.bigint();
    let results = model.predict(tf.tensor(normalised, [1, h, w, 3], 'float32'));
    const ms = Number(process.hrtime.bigint() - started) / 1e6;
    if (!Array.isArray(results)) results = [results];
    const shapes = {};
    for (const name of names) {
      const at = outputs.indexOf(net.outputs[name]);
      if (at < 0) throw new Error(`${net.model}: ${net.outputs[name]} is not an output of the model (${outputs})`);
      shapes[name] = results[at].shape;
      fs.writeFileSync(path.join(outDir, `${net.model}.${name}.f32`), Buffer.from((await results[at].data()).buffer));
    }
    fs.writeFileSync(path.join(outDir, `${net.model}.json`), JSON.stringify({ shapes, tfjs_cpu_ms: ms }));
    lines.push([net.model, 3, h, w, ...names.flatMap((n) => [n, shapes[n].reduce((a, b) => a * b, 1)])].join(' '));
    console.log(`${net.model} (${net.source}): tfjs cpu ${ms.toFixed(1)} ms`);
  }
  fs.appendFileSync(path.join(outDir, 'manifest.txt'), lines.join('\n') + '\n');
}

main().catch((e) => { console.error(e); process.exit(1); });
