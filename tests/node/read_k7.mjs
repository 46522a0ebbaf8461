// read_k7.mjs K7 OUT: what an independent reader finds in a K7 file. One JSON object goes to standard output: of each object its
// attributes, and of a dataset its shape, type and scales as well. The values of the datasets, in the order of the objects,
// go to OUT as they are in memory; texts stand in the JSON.
import { openSync, writeSync } from 'node:fs';
import h5wasm from 'h5wasm/node';

const [path, out] = process.argv.slice(2);
await h5wasm.ready;
const file = new h5wasm.File(path, 'r');
const to = openSync(out, 'w');

const plain = value => ArrayBuffer.isView(value) ? Array.from(value, plain) : typeof value === 'bigint' ? Number(value) : value;

function attributesOf(object) {
  const told = {};
  for (const [name, attribute] of Object.entries(object.attrs)) {
    const { shape, dtype } = attribute;
    // References have no value beyond their file; the scales are told instead.
    const refers = name === 'DIMENSION_LIST' || name === 'REFERENCE_LIST';
    told[name] = refers ? { shape } : { shape, dtype, value: plain(attribute.value) };
  }
  return told;
}

function datasetOf(dataset) {
  const told = { shape: dataset.shape, dtype: dataset.dtype, scales: dataset.shape.map((_, i) => dataset.get_attached_scales(i)) };
  const { value } = dataset;
  if (ArrayBuffer.isView(value)) {
    told.size = writeSync(to, value);
  } else {
    told.texts = value;
  }
  return told;
}

const objects = {};
for (const name of ['/', ...file.paths()]) {
  const object = file.get(name);
  objects[name] = { attributes: attributesOf(object), ...(object instanceof h5wasm.Dataset ? datasetOf(object) : {}) };
}
console.log(JSON.stringify(objects));
