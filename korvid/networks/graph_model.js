// Loads a TF.js model (NAME.json + its weight shards) from DIR into tf, from memory: a graph
// model (loadGraphModel) or a layers model (loadLayersModel).
'use strict';
const fs = require('fs');
const path = require('path');

function artifacts(dir, name) {
  const model = JSON.parse(fs.readFileSync(path.join(dir, name + '.json')));
  const specs = [];
  const shards = [];
  for (const group of model.weightsManifest) {
    specs.push(...group.weights);
    for (const p of group.paths) shards.push(fs.readFileSync(path.join(dir, p)));
  }
  const weights = Buffer.concat(shards);
  const data = weights.buffer.slice(weights.byteOffset, weights.byteOffset + weights.length);
  return { modelTopology: model.modelTopology, weightSpecs: specs, weightData: data };
}

function loadGraphModel(tf, dir, name) {
  return tf.loadGraphModel(tf.io.fromMemory(artifacts(dir, name)));
}

function loadLayersModel(tf, dir, name) {
  return tf.loadLayersModel(tf.io.fromMemory(artifacts(dir, name)));
}

module.exports = { loadGraphModel, loadLayersModel };
