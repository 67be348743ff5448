// Runs each network of networks.json in the reference runtime (@tensorflow/tfjs, pure
// JavaScript CPU backend) on one fixed pseudo-random image and writes, per network, the
// converted network's input (NCHW float32) and every output (float32, TF layout) to OUT:
//   <model>.input.f32, <model>.<output>.f32, <model>.json with the shapes and timing, and
//   manifest.txt, one line per network: MODEL CHANNELS HEIGHT WIDTH then OUTPUT COUNT pairs.
//   usage: node reference.js NETWORKS.json MODELS_DIR OUT_DIR   (NODE_PATH: the runtime)
'use strict';
const fs = require('fs');
const path = require('path');
const tf = require('@tensorflow/tfjs');
const { loadGraphModel } = require('./graph_model');
const { pixels } = require('./reference_input');

async function main() {
  const [networksFile, modelsDir, outDir] = process.argv.slice(2);
  await tf.setBackend('cpu');
  fs.mkdirSync(outDir, { recursive: true });
  const manifest = [];
  for (const net of JSON.parse(fs.readFileSync(networksFile)).networks) {
    const { height: h, width: w, scale, offset } = net.input;
    const c = net.input.channels || 3;
    const px = pixels(h, w, c);
    // scale and offset: one number for every plane, or one per plane (networks.json).
    const perPlane = (v, k) => (Array.isArray(v) ? v[k] : v);
    const normalised = Float32Array.from(px, (v, i) => v * perPlane(scale, i % c) + perPlane(offset, i % c));
    const nchw = new Float32Array(h * w * c);
    for (let y = 0; y < h; y++) for (let x = 0; x < w; x++) for (let k = 0; k < c; k++) {
      nchw[(k * h + y) * w + x] = normalised[(y * w + x) * c + k];
    }
    // Graphs exported from ONNX take their input channels-first.
    const input = net.input.tfjs_dtype === 'int32'
      ? tf.tensor(Int32Array.from(px), [1, h, w, c], 'int32')
      : net.input.layout === 'nchw'
        ? tf.tensor(nchw, [1, c, h, w], 'float32')
        : tf.tensor(normalised, [1, h, w, c], 'float32');
    fs.writeFileSync(path.join(outDir, `${net.model}.input.f32`), Buffer.from(nchw.buffer));
    const model = await loadGraphModel(tf, modelsDir, net.source);
    const names = Object.keys(net.outputs);
    const started = process.hrtime.bigint();
    const results = model.execute({ [net.input.tfjs_node || net.input.node]: input }, names.map((n) => net.outputs[n]));
    const ms = Number(process.hrtime.bigint() - started) / 1e6;
    const shapes = {};
    for (let i = 0; i < names.length; i++) {
      const t = Array.isArray(results) ? results[i] : results;
      shapes[names[i]] = t.shape;
      fs.writeFileSync(path.join(outDir, `${net.model}.${names[i]}.f32`), Buffer.from((await t.data()).buffer));
    }
    fs.writeFileSync(path.join(outDir, `${net.model}.json`), JSON.stringify({ shapes, tfjs_cpu_ms: ms }));
    manifest.push([net.model, c, h, w, ...names.flatMap((n) => [n, shapes[n].reduce((a, b) => a * b, 1)])].join(' '));
    console.log(`${net.model} (${net.source}): tfjs cpu ${ms.toFixed(1)} ms`);
  }
  fs.writeFileSync(path.join(outDir, 'manifest.txt'), manifest.join('\n') + '\n');
}

main().catch((e) => { console.error(e); process.exit(1); });
