// face-api's own networks on the reference runtime: its node build, whose native binding
// @tensorflow/tfjs-node is answered by the pure JavaScript @tensorflow/tfjs (same API), and
// each network of networks.json's "weights_package" loaded from its weight manifest.
//   NODE_PATH: the runtime's node_modules and the one holding @vladmandic/face-api
'use strict';
const fs = require('fs');
const path = require('path');
const Module = require('module');

const resolve = Module._resolveFilename;
Module._resolveFilename = function (request, ...rest) {
  return resolve.call(this, request === '@tensorflow/tfjs-node' ? '@tensorflow/tfjs' : request, ...rest);
};
const faceapi = require('@vladmandic/face-api/dist/face-api.node.js');

const NETS = { face_recognition: faceapi.FaceRecognitionNet, age_gender: faceapi.AgeGenderNet };

// The network of one networks.json entry, its weights read from weightsDir.
function loadNet(spec, weightsDir) {
  const tf = faceapi.tf;
  const manifest = JSON.parse(fs.readFileSync(path.join(weightsDir, `${spec.source}-weights_manifest.json`)));
  const bin = Buffer.concat(manifest.flatMap((group) => group.paths.map((p) => fs.readFileSync(path.join(weightsDir, p)))));
  const net = new NETS[spec.architecture]();
  net.loadFromWeightMap(tf.io.decodeWeights(bin.buffer.slice(bin.byteOffset, bin.byteOffset + bin.length),
    manifest.flatMap((group) => group.weights)));
  return net;
}

module.exports = { faceapi, tf: faceapi.tf, loadNet };
