// Lists the samples of an MP4 file as mp4box.js finds them.
//
//     node samples.mjs MODULES FILE
//
// Standard output gets a line a sample, in the order of its track: track_ID, timescale, offset in the file, size, dts,
// cts and duration in ticks, and 1 for a sync sample. mp4box.js reads fragments and indexed files by code of its own.
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';

const [modules, path] = process.argv.slice(2);
const { createFile } = createRequire(join(modules, 'package.json'))('mp4box');

const bytes = readFileSync(path);
const buffer = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
buffer.fileStart = 0;

const file = createFile();
let info;
file.onReady = (found) => { info = found; };
file.onError = (...words) => { throw new Error(words.join(' ')); };
file.appendBuffer(buffer);
file.flush();
if (info === undefined) throw new Error(`no movie in ${path}`);
for (const { id } of info.tracks) {
    for (const sample of file.getTrackSamplesInfo(id)) {
        const { track_id, timescale, offset, size, dts, cts, duration, is_sync } = sample;
        console.log([track_id, timescale, offset, size, dts, cts, duration, is_sync ? 1 : 0].join(' '));
    }
}
