// Opens the gateway's page in headless Chromium with every form side by side, and tells what a viewer sees and hears.
//
//     node watch_page.mjs MODULES ADDRESS SECONDS SCREENSHOT PICTURES
//
// MODULES is a folder with playwright-core, PICTURES how many the clip has, which comes round. One line of JSON goes to standard
// output: for each form the numbers of the pictures that were shown, how long each was behind the gateway, and how far the
// beep was from the flash; or, with exit code 1, which forms did not start, and what they say of it.
import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

const [modules, address, seconds, screenshot, total] = process.argv.slice(2);
const START_TAKES = 240_000;
const { chromium } = createRequire(join(modules, 'package.json'))('playwright-core');

// Runs in the page: watches every player. The clip is scripts/serve_clip.py's.
async function watch({ seconds, total }) {
    const BITS = 12;
    const SQUARE = 16;
    const RATE = 25;

    const listener = `
        class Listener extends AudioWorkletProcessor {
            constructor() { super(); this.quiet = 0; }
            process([input]) {
                const samples = input[0];
                if (!samples) return true;
                for (let i = 0; i < samples.length; ++i) {
                    if (Math.abs(samples[i]) < 0.1) { ++this.quiet; continue; }
                    // A beep begins behind 0.3 s of silence.
                    if (this.quiet > 0.3 * sampleRate) this.port.postMessage(currentTime + i / sampleRate);
                    this.quiet = 0;
                }
                return true;
            }
        }
        registerProcessor('listener', Listener);`;
    const context = new AudioContext({ latencyHint: 'interactive' });
    await context.audioWorklet.addModule(URL.createObjectURL(new Blob([listener], { type: 'text/javascript' })));
    await context.resume();

    // The number of the picture that the gateway took in last, as it goes by the clock.
    let pictures = null;
    const ask = async () => {
        const before = performance.now();
        const { streams } = await (await fetch('/api/streams')).json();
        const at = (before + performance.now()) / 2;
        const head = streams[0].pictures - 1 - at * RATE / 1000;
        pictures = pictures === null ? head : Math.max(pictures, head);
    };
    await ask();
    const asking = setInterval(() => ask().catch(() => {}), 500);

    const figureOf = new Map();
    const watched = [...document.querySelectorAll('figure')].map((figure) => {
        const video = figure.querySelector('video');
        const seen = { form: figure.dataset.form, shown: [], latencies: [], beeps: [], offsets: [], wrongFlash: 0, stalls: 0 };
        figureOf.set(seen, figure);
        const canvas = new OffscreenCanvas(BITS + 1, 1);
        const painter = canvas.getContext('2d', { willReadFrequently: true });
        const look = (now, frame) => {
            painter.drawImage(video, 0, 0, (BITS + 1) * SQUARE, SQUARE, 0, 0, BITS + 1, 1);
            const { data } = painter.getImageData(0, 0, BITS + 1, 1);
            let number = 0;
            for (let bit = 0; bit < BITS; ++bit) number += (data[bit * 4] > 127) * 2 ** bit;
            if ((data[BITS * 4] > 127) !== (number % RATE < 3)) ++seen.wrongFlash;
            const at = frame.expectedDisplayTime;
            seen.shown.push({ number, at, rate: video.playbackRate, life: figure.dataset.starts });
            seen.latencies.push((((pictures + now * RATE / 1000 - number) % total) + total) % total / RATE);
            video.requestVideoFrameCallback(look);
        };
        video.requestVideoFrameCallback(look);
        video.addEventListener('waiting', () => ++seen.stalls);
        const node = new AudioWorkletNode(context, 'listener');
        context.createMediaElementSource(video).connect(node);
        const mute = context.createGain();
        mute.gain.value = 0;
        node.connect(mute).connect(context.destination);
        node.port.onmessage = ({ data }) => {
            const { contextTime, performanceTime } = context.getOutputTimestamp();
            seen.beeps.push(performanceTime + (data - contextTime) * 1000);
        };
        video.muted = false;
        return seen;
    });
    await new Promise((resolve) => setTimeout(resolve, seconds * 1000));
    clearInterval(asking);

    const median = (values) => values.toSorted((a, b) => a - b)[Math.floor(values.length / 2)] ?? null;
    return watched.map((seen) => {
        let back = 0;
        let missing = 0;
        for (let i = 1; i < seen.shown.length; ++i) {
            // A player that was started anew is another one.
            if (seen.shown[i].life !== seen.shown[i - 1].life) continue;
            // The clip may have come round: half of it ahead is far.
            const step = (seen.shown[i].number - seen.shown[i - 1].number + total * 1.5) % total - total / 2;
            if (step < 0) ++back;
            if (step > 1) missing += step - 1;
        }
        // Where the flash of the picture next to a beep stands in time.
        const offsets = seen.beeps.map((beep) => {
            const near = seen.shown.reduce((best, one) => (Math.abs(one.at - beep) < Math.abs(best.at - beep) ? one : best),
                { at: Infinity });
            if (Math.abs(near.at - beep) > 300) return null;
            const distance = near.number % RATE;
            const flash = near.at - (distance > RATE / 2 ? distance - RATE : distance) * 1000 / RATE / near.rate;
            return beep - flash;
        }).filter((offset) => offset !== null);
        return {
            form: seen.form, starts: Number(figureOf.get(seen).dataset.starts), pictures: seen.shown.length, back, missing, stalls: seen.stalls,
            first: seen.shown[0]?.number, last: seen.shown.at(-1)?.number, wrongFlash: seen.wrongFlash,
            latency: median(seen.latencies.slice(-RATE * 20)), latencyMost: Math.max(...seen.latencies.slice(RATE * 5)),
            beeps: seen.beeps.length, soundBehindPicture: median(offsets),
        };
    });
}

const profile = mkdtempSync(join(tmpdir(), 'muxora-page-'));
let browser;
try {
    browser = await chromium.launchPersistentContext(profile, {
        executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
        ignoreDefaultArgs: ['--headless', '--headless=old'],
        headless: true,
        bypassCSP: true,
        viewport: { width: 1500, height: 700 },
        args: ['--headless=new', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
            '--disable-background-networking', '--disable-component-update', '--disable-sync',
            '--autoplay-policy=no-user-gesture-required'],
    });
    const page = await browser.newPage();
    const errors = [];
    const foreign = [];
    page.on('pageerror', (error) => errors.push(error.message));
    page.on('console', (message) => message.type() === 'error' && errors.push(message.text()));
    page.on('request', (request) => {
        if (/^(https?|wss?):/.test(request.url()) && new URL(request.url()).host !== new URL(address).host) foreign.push(request.url());
    });
    await page.goto(`${address}/?forms=all`);
    const states = () => page.evaluate(() => [...document.querySelectorAll('figure')].map((figure) => {
        const video = figure.querySelector('video');
        return {
            form: figure.dataset.form, starts: Number(figure.dataset.starts), begun: video.readyState >= 2 && video.currentTime > 0,
            readyState: video.readyState, currentTime: video.currentTime, paused: video.paused, error: video.error?.message ?? null,
            buffered: Array.from(video.buffered, (_, i) => [video.buffered.start(i), video.buffered.end(i)]),
            trouble: figure.querySelector('.trouble').textContent,
        };
    }));
    const end = Date.now() + START_TAKES;
    let players = await states();
    while (players.length < 4 || players.some((player) => !player.begun)) {
        if (Date.now() > end) {
            await page.screenshot({ path: screenshot });
            console.log(JSON.stringify({
                notStarted: players.filter((player) => !player.begun), players: players.length, errors, foreign,
                summary: await page.textContent('#summary'),
            }));
            process.exitCode = 1;
            break;
        }
        await new Promise((resolve) => setTimeout(resolve, 250));
        players = await states();
    }
    if (process.exitCode !== 1) {
        const forms = await page.evaluate(watch, { seconds: Number(seconds), total: Number(total) });
        const texts = await page.evaluate(() => ({
            about: document.querySelector('.about').textContent,
            latencies: [...document.querySelectorAll('figure')].map((figure) => figure.dataset.latency),
            troubles: [...document.querySelectorAll('.trouble')].filter((one) => !one.hidden).map((one) => one.textContent),
        }));
        await page.screenshot({ path: screenshot });
        console.log(JSON.stringify({ forms, ...texts, errors, foreign }));
    }
} finally {
    await browser?.close();
    rmSync(profile, { recursive: true, force: true });
}
