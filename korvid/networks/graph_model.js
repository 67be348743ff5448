// Loads a TF.js graph model (NAME.json + its weight shards) from DIR into tf, from memory.
'use strict';
const fs = require('fs');
const path = require('path');

function loadGraphModel(tf, dir, name) {
  const model = JSON.parse(fs.readFileSync(path.join(dir, name + '.json')));
  const specs = [];
  const shards = [];
  for (const group of model.weightsManifest) {
    specs.push(...group.weights);
    for (const p of group.paths) shards.push(fs.readFileSync(path.join(dir, p)));
  }
  const weights = Buffer.concat(shards);
  const data = weights.buffer.slice(weights.byteOffset, weights.byteOffset + weights.length);
  return tf.loadGraphModel(tf.io.fromMemory({ modelTopology: model.modelTopology, weightSpecs: specs, weightData: data }));
}

module.exports = { loadGraphModel };
