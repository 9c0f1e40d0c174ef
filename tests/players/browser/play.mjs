// Plays media files in headless Chromium with mpegts.js, served over HTTP on loopback.
//
//     node play.mjs MODULES SECONDS FILE...
//
// MODULES is a folder in which package.json's dependencies are installed. For each file one line of JSON goes to
// standard output: how far it played, the picture's size, and every error that the page met.
import { createReadStream } from 'node:fs';
import { createServer } from 'node:http';
import { basename, extname, join } from 'node:path';

import { withChromium } from './chromium.mjs';

const [modules, seconds, ...files] = process.argv.slice(2);

const page_text = '<!doctype html><meta charset="utf-8"><title>Muxora</title>' +
    '<video id="video" muted></video><script src="/mpegts.js"></script>';

// The files go out as a live stream would: no length, no ranges.
const server = createServer((request, response) => {
    const path = new URL(request.url, 'http://localhost').pathname;
    const file = files.find((name) => path === '/' + basename(name));
    if (path === '/') {
        response.setHeader('Content-Type', 'text/html').end(page_text);
    } else if (path === '/mpegts.js') {
        response.setHeader('Content-Type', 'text/javascript');
        createReadStream(join(modules, 'node_modules', 'mpegts.js', 'dist', 'mpegts.js')).pipe(response);
    } else if (file !== undefined) {
        createReadStream(file).pipe(response);
    } else {
        response.writeHead(path === '/favicon.ico' ? 204 : 404).end();
    }
});
await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
const address = `http://127.0.0.1:${server.address().port}`;

// Runs in the page: plays to `seconds` and tells what happened on the way.
function play({ url, type, seconds }) {
    return new Promise((resolve) => {
        const video = document.getElementById('video');
        const errors = [];
        const times = [];
        const player = mpegts.createPlayer({ type, url, isLive: false }, { enableWorker: false });
        const finish = () => {
            clearInterval(clock);
            const codecs = player.mediaInfo;
            resolve({
                currentTime: video.currentTime,
                advanced: times.some((time, i) => i > 0 && time > times[i - 1]),
                width: video.videoWidth,
                height: video.videoHeight,
                videoCodec: codecs.videoCodec,
                audioCodec: codecs.audioCodec,
                errors,
            });
        };
        player.on(mpegts.Events.ERROR, (kind, detail, info) => errors.push(`${kind} ${detail} ${JSON.stringify(info)}`));
        video.addEventListener('error', () => errors.push(`video: ${video.error.message}`));
        const started = performance.now();
        const clock = setInterval(() => {
            times.push(video.currentTime);
            if (video.currentTime >= seconds || errors.length > 0 || performance.now() - started > 20000) finish();
        }, 100);
        player.attachMediaElement(video);
        player.load();
        Promise.resolve(player.play()).catch((error) => errors.push(`play: ${error.message}`));
    });
}

try {
    await withChromium(modules, async (browser) => {
        for (const file of files) {
            const page = await browser.newPage();
            const page_errors = [];
            page.on('pageerror', (error) => page_errors.push(`page: ${error.message}`));
            await page.goto(address);
            const type = extname(file) === '.ts' ? 'mpegts' : 'flv';
            const result = await page.evaluate(play,
                { url: `${address}/${basename(file)}`, type, seconds: Number(seconds) });
            result.errors.push(...page_errors);
            console.log(JSON.stringify({ file: basename(file), ...result }));
            await page.close();
        }
    });
} finally {
    server.close();
}
