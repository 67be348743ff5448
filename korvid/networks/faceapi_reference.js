// Runs the face-api networks of networks.json ("weights_package") through face-api's own
// forward pass (faceapi_load.js: pure JavaScript CPU backend) on the parity image of
// reference.js, and writes their outputs beside that script's (same file layout; lines
// appended to manifest.txt). An architecture mistake in faceapi_to_onnx.py shows as a
// difference here, not only a wrong weight.
//   usage: node faceapi_reference.js NETWORKS.json WEIGHTS_DIR OUT_DIR
'use strict';
const fs = require('fs');
const path = require('path');
const { tf, loadNet } = require('./faceapi_load');
const { pixels } = require('./reference_input');

async function main() {
  const [networksFile, weightsDir, outDir] = process.argv.slice(2);
  await tf.setBackend('cpu');
  fs.mkdirSync(outDir, { recursive: true });
  const lines = [];
  for (const spec of JSON.parse(fs.readFileSync(networksFile)).weights_package.networks) {
    const { height: h, width: w } = spec.input;
    const px = pixels(h, w, 3);
    const nchw = new Float32Array(h * w * 3);
    for (let y = 0; y < h; y++) for (let x = 0; x < w; x++) for (let k = 0; k < 3; k++) {
      nchw[(k * h + y) * w + x] = px[(y * w + x) * 3 + k];
    }
    fs.writeFileSync(path.join(outDir, `${spec.model}.input.f32`), Buffer.from(nchw.buffer));
    const net = loadNet(spec, weightsDir);
    const input = tf.tensor(Float32Array.from(px), [1, h, w, 3], 'float32');
    const started = process.hrtime.bigint();
    const out = await net.forward(input);
    const ms = Number(process.hrtime.bigint() - started) / 1e6;
    // The recogniser returns the descriptor, the age/gender net { age, gender }.
    const results = out instanceof tf.Tensor ? { [Object.keys(spec.outputs)[0]]: out } : out;
    const shapes = {};
    for (const name of Object.keys(spec.outputs)) {
      shapes[name] = results[name].shape;
      fs.writeFileSync(path.join(outDir, `${spec.model}.${name}.f32`), Buffer.from((await results[name].data()).buffer));
    }
    fs.writeFileSync(path.join(outDir, `${spec.model}.json`), JSON.stringify({ shapes, tfjs_cpu_ms: ms }));
    lines.push([spec.model, 3, h, w, ...Object.keys(spec.outputs).flatMap((n) => [n, shapes[n].reduce((a, b) => a * b, 1)])].join(' '));
    console.log(`${spec.model} (face-api ${spec.source}): tfjs cpu ${ms.toFixed(1)} ms`);
  }
  fs.appendFileSync(path.join(outDir, 'manifest.txt'), lines.join('\n') + '\n');
}

main().catch((e) => { console.error(e); process.exit(1); });
