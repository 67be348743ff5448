// Writes a TF.js layers model that nsfwjs ships as JavaScript modules (NAME/model.min.js,
// the topology and weight manifest; NAME/group1-shard*.min.js, each a base64 weight shard)
// as the usual files: OUT/NAME.json and its shards, named as the manifest names them.
//   usage: node layers_unpack.js MODELS_DIR NAME OUT_DIR
'use strict';
const fs = require('fs');
const path = require('path');

const [modelsDir, name, outDir] = process.argv.slice(2);
const dir = path.resolve(modelsDir, name);
const model = require(path.join(dir, 'model.min.js'));
if (!model.modelTopology || !Array.isArray(model.weightsManifest)) throw new Error(`${name}: no layers model`);
fs.mkdirSync(outDir, { recursive: true });
for (const group of model.weightsManifest) {
  for (const shard of group.paths) {
    const data = require(path.join(dir, `${shard}.min.js`));
    if (typeof data !== 'string') throw new Error(`${name}/${shard}: no base64 shard`);
    fs.writeFileSync(path.join(outDir, shard), Buffer.from(data, 'base64'));
  }
}
fs.writeFileSync(path.join(outDir, `${name}.json`), JSON.stringify(model));
