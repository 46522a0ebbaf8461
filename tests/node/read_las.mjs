// read_las.mjs LAS OUT: what an independent reader finds in a LAS file. One JSON object goes to standard output; the values of
// each dimension, in the order of its names there, to OUT as doubles.
import { readFileSync, writeFileSync } from 'node:fs';
import { Las } from 'copc';

const [path, out] = process.argv.slice(2);
const raw = readFileSync(path);
const header = Las.Header.parse(raw);
const records = await Las.Vlr.walk(async (first, last) => raw.subarray(first, last), header);
const contentOf = r => raw.subarray(r.contentOffset, r.contentOffset + r.contentLength);
const extra = Las.ExtraBytes.parse(contentOf(Las.Vlr.at(records, 'LASF_Spec', 4)));
const coordinates = contentOf(Las.Vlr.at(records, 'LASF_Projection', 2112)).toString('latin1');
const view = Las.View.create(raw.subarray(header.pointDataOffset), header, extra);

const dimensions = Object.keys(view.dimensions);
const values = new Float64Array(dimensions.length * view.pointCount);
let at = 0;
for (const name of dimensions) {
  const get = view.getter(name);
  for (let i = 0; i < view.pointCount; ++i) values[at++] = get(i);
}
writeFileSync(out, values);
console.log(JSON.stringify({ header, records, extra, coordinates, count: view.pointCount, dimensions }));
