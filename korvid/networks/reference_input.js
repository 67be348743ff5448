// The parity image every reference script feeds its networks: pixels 0..255 from a fixed
// linear congruential sequence, the same on every run.
'use strict';

function pixels(h, w, c) {
  const out = new Uint8Array(h * w * c);
  let s = 12345;
  for (let i = 0; i < out.length; i++) {
    s = (Math.imul(s, 1103515245) + 12345) >>> 0;
    out[i] = (s >>> 16) & 255;
  }
  return out;
}

module.exports = { pixels };
