// read_k7.mjs K7 OUT [NAME ...]: what an independent reader finds in a K7 file, or of the objects named. One JSON object goes
// to standard output: of each object its attributes, and of a dataset its shape, type and scales as well. The values of the
// datasets, in the order of the objects, go to OUT as they are in memory, and behind each the rows that the JSON tells, once
// more; texts stand in the JSON.
import { openSync, writeSync } from 'node:fs';
import h5wasm from 'h5wasm/node';

const [path, out, ...names] = process.argv.slice(2);
await h5wasm.ready;
const file = new h5wasm.File(path, 'r');
const to = openSync(out, 'w');

// What JSON has no word for, as a text.
const plain = value => ArrayBuffer.isView(value) ? Array.from(value, plain) : typeof value === 'number' ? `${value}` : value;

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
  const { shape, dtype } = dataset;
  const told = { shape, dtype, scales: shape.map((_, i) => dataset.get_attached_scales(i)) };
  const { value } = dataset;
  if (ArrayBuffer.isView(value)) {
    writeSync(to, value);
    // Some rows alone, as a viewer reads them.
    told.rows = [shape[0] >> 2, (shape[0] >> 1) + 1];
    if (value.length !== 0) writeSync(to, dataset.slice([told.rows]));
  } else {
    told.texts = value;
  }
  return told;
}

const objects = {};
for (const name of names.length !== 0 ? names : ['/', ...file.paths()]) {
  const object = file.get(name);
  objects[name] = { attributes: attributesOf(object), ...(object instanceof h5wasm.Dataset && { dataset: datasetOf(object) }) };
}
console.log(JSON.stringify(objects));
