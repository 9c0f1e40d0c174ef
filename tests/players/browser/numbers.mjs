// Plays a file whose pictures carry their number, in headless Chromium, and tells which numbers it saw.
//
//     node numbers.mjs MODULES FILE HOW RATE COUNT OFFSET
//
// HOW is native (the file as the source of a video element), mse (fragmented MP4 through Media Source), mpegts or flv
// (through mpegts.js), hls (a playlist, through hls.js) or shaka (a manifest or playlist, through shaka-player). Picture n
// is shown from OFFSET + n / RATE seconds on. The number stands along the picture's top: ten squares over its width,
// white for a 1, the lowest bit first. Standard output gets one line of JSON: the numbers while it plays, the number at
// the middle of each picture's time, those at 20 random places in time, the picture's widths, and every error. A
// presentation plays its largest rendition first, and is sought in its smallest.
//
// HOW may be killed: FILE and COUNT are lists then, divided by commas, of files of which each has its first COUNT
// pictures. The line has an entry a file: what it shows at its first picture, one in the middle, and its last.
import { createReadStream, existsSync, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { basename, dirname, join } from 'node:path';

import { withChromium } from './chromium.mjs';

const [modules, file, how, rate, count, offset] = process.argv.slice(2);

const page_text = '<!doctype html><meta charset="utf-8"><title>Muxora</title>' +
    '<video id="video" muted></video>';
const files = file.split(',');
const types = { native: 'video/x-matroska', killed: 'video/mp4', mse: 'video/mp4', mpegts: 'video/mp2t', flv: 'video/x-flv' };
const players = {
    mpegts: 'mpegts.js/dist/mpegts.js',
    flv: 'mpegts.js/dist/mpegts.js',
    hls: 'hls.js/dist/hls.min.js',
    shaka: 'shaka-player/dist/shaka-player.compiled.js',
};

// Files have ranges, so that the browser can seek in them.
function sendFile(request, response, path, type) {
    const size = statSync(path).size;
    const range = /bytes=(\d+)-(\d*)/.exec(request.headers.range ?? '');
    const start = range ? Number(range[1]) : 0;
    const end = range && range[2] !== '' ? Math.min(Number(range[2]), size - 1) : size - 1;
    response.writeHead(range ? 206 : 200, {
        'Content-Type': type, 'Accept-Ranges': 'bytes', 'Content-Length': end - start + 1,
        ...(range ? { 'Content-Range': `bytes ${start}-${end}/${size}` } : {}),
    });
    createReadStream(path, { start, end }).pipe(response);
}

const server = createServer((request, response) => {
    const path = new URL(request.url, 'http://localhost').pathname;
    if (path === '/') {
        response.setHeader('Content-Type', 'text/html').end(page_text);
    } else if (path.startsWith('/site/') && !path.includes('..')) {
        // A presentation: the playlist's folder and those beside it.
        const wanted = join(dirname(file), decodeURIComponent(path.slice('/site/'.length)));
        if (existsSync(wanted)) {
            sendFile(request, response, wanted, path.endsWith('.m3u8') ? 'application/vnd.apple.mpegurl'
                : path.endsWith('.mpd') ? 'application/dash+xml' : 'video/mp4');
        } else {
            response.writeHead(404).end();
        }
    } else if (/^\/media\/\d+$/.test(path) && Number(path.slice('/media/'.length)) < files.length) {
        sendFile(request, response, files[Number(path.slice('/media/'.length))], types[how]);
    } else {
        response.writeHead(path === '/favicon.ico' ? 204 : 404).end();
    }
});
await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
const address = `http://127.0.0.1:${server.address().port}`;

// Runs in the page.
async function watch({ how, rate, counts, offset, site }) {
    const video = document.getElementById('video');
    const count = counts[0];
    const errors = [];
    video.addEventListener('error', () => errors.push(`video: ${video.error.message}`));
    const canvas = document.createElement('canvas');
    const context = canvas.getContext('2d', { willReadFrequently: true });
    const number = () => {
        canvas.width = video.videoWidth;
        canvas.height = video.videoHeight;
        context.drawImage(video, 0, 0);
        let value = 0;
        for (let bit = 0; bit < 10; ++bit) {
            const middle = Math.floor(canvas.width / 10 * (bit + 0.5));
            if (context.getImageData(middle, Math.floor(canvas.width / 20), 1, 1).data[0] > 128) value += 1 << bit;
        }
        return value;
    };
    const until = async (condition, limit = 30000) => {
        const started = performance.now();
        while (!condition() && errors.length === 0 && performance.now() - started < limit) {
            await new Promise((resolve) => setTimeout(resolve, 20));
        }
        if (!condition()) errors.push(`waited in vain at ${video.currentTime}`);
    };

    // What the screen settles on: a decoder may still show an earlier picture when it says that it has arrived.
    const frame = () => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve)));
    const at = async (n) => {
        video.currentTime = offset + (n + 0.5) / rate;
        await until(() => !video.seeking && video.readyState >= 2);
        let seen = -1;
        for (const started = performance.now(); performance.now() - started < 10000;) {
            const before = seen;
            await frame();
            seen = number();
            if (seen === n && before === n) break;
        }
        return seen;
    };
    if (how === 'killed') {
        const shown = [];
        for (const [i, pictures] of counts.entries()) {
            video.src = `/media/${i}`;
            await until(() => video.readyState >= 2);
            for (const wanted of [0, Math.floor(pictures / 2), pictures - 1]) {
                if (errors.length === 0) shown.push({ wanted, got: await at(wanted) });
            }
        }
        return { shown, errors };
    }

    let smallest = () => {};
    if (how === 'native') {
        video.src = '/media/0';
    } else if (how === 'mse') {
        const source = new MediaSource();
        video.src = URL.createObjectURL(source);
        source.addEventListener('sourceopen', async () => {
            const buffer = source.addSourceBuffer('video/mp4; codecs="avc1.640028, mp4a.40.2"');
            buffer.addEventListener('error', () => errors.push('source buffer'));
            buffer.addEventListener('updateend', () => source.endOfStream(), { once: true });
            buffer.appendBuffer(await (await fetch('/media/0')).arrayBuffer());
        }, { once: true });
    } else if (how === 'hls') {
        const player = new Hls({ enableWorker: false, startLevel: 1 });
        player.on(Hls.Events.ERROR, (_, data) => {
            // A busy machine may be late, and a seek or a switch ends a load with "aborted"; a hole between segments, or
            // bytes that it cannot read, are the stream's.
            const late = /TimeOut$|^bufferStalledError$|^bufferNudgeOnStall$|^aborted$/.test(data.details) && !data.fatal;
            if (!late) errors.push(`${data.type} ${data.details} ${data.reason ?? ''}`);
        });
        player.attachMedia(video);
        player.loadSource(site);
        await until(() => player.levels.length > 0);
        player.currentLevel = player.levels.length - 1;
        // The switch throws away what is buffered and loads the same place again.
        smallest = async () => {
            let level = -1;
            player.on(Hls.Events.LEVEL_SWITCHED, (_, data) => { level = data.level; });
            player.currentLevel = 0;
            await until(() => level === 0 && !video.seeking && video.readyState >= 2);
        };
    } else if (how === 'shaka') {
        shaka.polyfill.installAll();
        const player = new shaka.Player();
        await player.attach(video);
        player.addEventListener('error', (event) => errors.push(`shaka ${event.detail.code} ${event.detail.data}`));
        player.configure({ abr: { enabled: false } });
        await player.load(site).catch((error) => errors.push(`load: ${error.code} ${error.data}`));
        const bySize = () => player.getVariantTracks().sort((a, b) => a.width - b.width);
        if (errors.length === 0) player.selectVariantTrack(bySize().at(-1), true);
        smallest = () => player.selectVariantTrack(bySize()[0], true);
    } else {
        const player = mpegts.createPlayer({ type: how, url: '/media/0', isLive: false },
            { enableWorker: false, lazyLoad: false, accurateSeek: true, autoCleanupSourceBuffer: false });
        player.on(mpegts.Events.ERROR, (kind, detail, info) => errors.push(`${kind} ${detail} ${JSON.stringify(info)}`));
        player.attachMediaElement(video);
        player.load();
    }
    await until(() => video.readyState >= 2);

    const played = [];
    let playing = true;
    const note = () => {
        if (!playing) return;
        played.push(number());
        video.requestVideoFrameCallback(note);
    };
    video.requestVideoFrameCallback(note);
    video.playbackRate = 0.5;
    await video.play().catch((error) => errors.push(`play: ${error.message}`));
    const last = offset + (count - 1.5) / rate;
    await until(() => video.currentTime >= last || video.ended);
    playing = false;
    video.pause();

    const stepped = [];
    for (let n = 0; n < count && errors.length === 0; ++n) stepped.push(await at(n));
    const widths = [video.videoWidth];
    await at(0);
    await smallest();
    const sought = [];
    for (let i = 0; i < 20 && errors.length === 0; ++i) {
        const wanted = Math.floor(Math.random() * count);
        sought.push({ wanted, got: await at(wanted) });
    }
    widths.push(video.videoWidth);
    return { played, stepped, sought, widths, errors };
}

try {
    await withChromium(modules, async (browser) => {
        const page = await browser.newPage();
        await page.goto(address);
        if (how in players) await page.addScriptTag({ path: join(modules, 'node_modules', players[how]) });
        const result = await page.evaluate(watch, {
            how, rate: Number(rate), counts: count.split(',').map(Number), offset: Number(offset), site: `/site/${basename(file)}`,
        });
        console.log(JSON.stringify(result));
    });
} finally {
    server.close();
}
