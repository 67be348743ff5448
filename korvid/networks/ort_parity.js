// Each converted network run by ONNX Runtime (onnxruntime-node, CPU, one thread) against the
// reference runtime's outputs on the same input (written by reference.js and
// faceapi_reference.js: manifest.txt, <model>.input.f32, <model>.<output>.f32), with the
// bound the OpenCV parity test uses: 1e-3 absolute, 1e-5 relative for values beyond 100.
// A network ONNX Runtime refuses to load fails.
//   usage: node ort_parity.js REFERENCE_DIR MODEL_DIR   (NODE_PATH: the runtime)
'use strict';
const fs = require('fs');
const path = require('path');
const ort = require('onnxruntime-node');

function floats(file) {
  const bytes = fs.readFileSync(file);
  return new Float32Array(bytes.buffer, bytes.byteOffset, bytes.length / 4);
}

async function main() {
  const [refDir, modelDir] = process.argv.slice(2);
  const lines = fs.readFileSync(path.join(refDir, 'manifest.txt'), 'utf8').split('\n').filter(Boolean);
  let checked = 0;
  let failed = 0;
  for (const line of lines) {
    const [model, c, h, w, ...pairs] = line.split(' ');
    const names = pairs.filter((_, i) => i % 2 === 0);
    let results;
    try {
      const session = await ort.InferenceSession.create(path.join(modelDir, `${model}.model`),
        { intraOpNumThreads: 1, interOpNumThreads: 1, executionMode: 'sequential' });
      const input = new ort.Tensor('float32', floats(path.join(refDir, `${model}.input.f32`)), [1, +c, +h, +w]);
      results = await session.run({ input }, names);
    } catch (e) {
      console.log(`FAIL ${model}: ONNX Runtime: ${e.message.split('\n')[0]}`);
      failed++;
      continue;
    }
    for (const name of names) {
      const expected = floats(path.join(refDir, `${model}.${name}.f32`));
      const got = results[name].data;
      let worst = got.length === expected.length ? 0 : Infinity;
      let ok = Number.isFinite(worst);
      for (let k = 0; k < expected.length && ok; k++) {
        const diff = Math.abs(got[k] - expected[k]);
        worst = Math.max(worst, diff);
        ok = diff <= Math.max(1e-3, 1e-5 * Math.abs(expected[k]));
      }
      console.log(`${ok ? 'ok  ' : 'FAIL'} ${model}.${name} (${expected.length} values): max abs diff ${worst.toExponential(2)}`);
      failed += ok ? 0 : 1;
      checked++;
    }
  }
  console.log(`${checked} outputs checked in ONNX Runtime ${ort.env.versions.common}, ${failed} failed`);
  process.exit(checked > 0 && failed === 0 ? 0 : 1);
}

main().catch((e) => { console.error(e); process.exit(1); });
