// All streams of the gateway, each playing, with what is known of it.
import { MsePlayer } from '/page/mse_player.js';

const query = new URLSearchParams(location.search);
const secrets = ['token', 'expires', 'signature'].filter((name) => query.has(name))
    .map((name) => `${name}=${encodeURIComponent(query.get(name))}`).join('&');
const address = (path, scheme = location.protocol) =>
    `${scheme}//${location.host}${path}${secrets ? '?' + secrets : ''}`;
const socketScheme = location.protocol === 'https:' ? 'wss:' : 'ws:';

// How far the newest media of a player is ahead of the clock: from there on its latency is known.
class Edge {
    constructor(video) {
        this.video = video;
        this.samples = [];
    }
    latency() {
        const { buffered, currentTime } = this.video;
        if (buffered.length === 0) return null;
        const now = performance.now() / 1000;
        this.samples.push({ now, ahead: buffered.end(buffered.length - 1) - now });
        this.samples = this.samples.filter((sample) => now - sample.now < 5);
        return now + Math.max(...this.samples.map((sample) => sample.ahead)) - currentTime;
    }
}

function mpegtsPlayer(video, type, url, onTrouble) {
    const player = mpegts.createPlayer({ type, url, isLive: true }, {
        enableWorker: false, enableStashBuffer: false, liveSync: true, liveSyncMaxLatency: 0.8,
        liveSyncTargetLatency: 0.4, liveSyncPlaybackRate: 1.1, autoCleanupSourceBuffer: true,
    });
    player.on(mpegts.Events.ERROR, (kind, detail) => onTrouble(`${kind}: ${detail}`));
    player.attachMediaElement(video);
    player.load();
    Promise.resolve(player.play()).catch(() => {});
    return player;
}

function hlsPlayer(video, url, onTrouble) {
    const player = new Hls({ lowLatencyMode: true, backBufferLength: 10, enableWorker: false });
    player.on(Hls.Events.ERROR, (_, data) => {
        if (data.fatal) onTrouble(`${data.type}: ${data.details}`);
    });
    player.on(Hls.Events.MANIFEST_PARSED, () => video.play().catch(() => {}));
    player.loadSource(url);
    player.attachMedia(video);
    player.latencyNow = () => (player.playingDate ? (Date.now() - player.playingDate.getTime()) / 1000 : null);
    return player;
}

const forms = {
    ws: { title: 'MP4 over WebSocket', start: (video, name, trouble) => new MsePlayer(video, address(`/${name}.mp4`, socketScheme), trouble) },
    flv: { title: 'FLV over HTTP', start: (video, name, trouble) => mpegtsPlayer(video, 'flv', address(`/${name}.flv`), trouble) },
    ts: { title: 'TS over HTTP', start: (video, name, trouble) => mpegtsPlayer(video, 'mpegts', address(`/${name}.ts`), trouble) },
    hls: { title: 'Low-Latency HLS', start: (video, name, trouble) => hlsPlayer(video, address(`/${name}/index.m3u8`), trouble) },
};

class PlayerView {
    constructor(name, form) {
        this.name = name;
        this.element = document.getElementById('player').content.firstElementChild.cloneNode(true);
        this.video = this.element.querySelector('video');
        this.trouble = this.element.querySelector('.trouble');
        const select = this.element.querySelector('select');
        for (const [key, { title }] of Object.entries(forms)) select.add(new Option(title, key, false, key === form));
        select.addEventListener('change', () => this.start(select.value));
        this.element.querySelector('button').addEventListener('click', () => { this.video.muted = !this.video.muted; });
        this.start(form);
    }

    start(form) {
        this.stop();
        this.form = form;
        this.element.dataset.form = form;
        this.element.dataset.starts = Number(this.element.dataset.starts ?? 0) + 1;
        this.trouble.hidden = true;
        this.edge = new Edge(this.video);
        this.player = forms[form].start(this.video, this.name, (text) => this.failed(text));
    }

    // A player that broke is started anew: inputs come back.
    failed(text) {
        this.trouble.textContent = text;
        this.trouble.hidden = false;
        clearTimeout(this.again);
        this.again = setTimeout(() => this.start(this.form), 2000);
    }

    stop() {
        clearTimeout(this.again);
        this.player?.destroy();
        this.player = null;
    }

    update() {
        const latency = this.player?.latencyNow?.() ?? this.edge.latency();
        this.element.querySelector('.latency').textContent = latency === null ? '' : `${latency.toFixed(2)} s behind`;
        if (latency !== null) this.element.dataset.latency = latency.toFixed(3);
    }
}

class StreamView {
    constructor(stream, everyForm) {
        this.element = document.getElementById('stream').content.firstElementChild.cloneNode(true);
        this.element.querySelector('h2').textContent = stream.name;
        this.element.classList.toggle('wide', everyForm);
        const links = this.element.querySelector('.addresses');
        for (const path of ['.flv', '.ts', '.mp4', '.mkv', '/index.m3u8', '/manifest.mpd']) {
            const link = document.createElement('a');
            link.href = address(`/${stream.name}${path}`);
            link.textContent = path.replace('/', '');
            links.append(link);
        }
        this.players = (everyForm ? Object.keys(forms) : [query.get('form') ?? 'ws'])
            .map((form) => new PlayerView(stream.name, form));
        this.element.querySelector('.players').append(...this.players.map((player) => player.element));
    }

    update(stream) {
        const rate = (stream.bits_per_second / 1e6).toFixed(2);
        this.element.classList.toggle('lost', stream.state === 'lost');
        this.element.querySelector('.about').textContent = [
            stream.state === 'live' ? null : `${stream.state}${stream.trouble ? ': ' + stream.trouble : ''}`,
            stream.video, stream.audio, `${stream.pictures_per_second.toFixed(1)} pictures/s`, `${rate} Mbit/s`,
            `${stream.viewers} viewer${stream.viewers === 1 ? '' : 's'}`,
        ].filter(Boolean).join(' · ');
        for (const player of this.players) player.update();
    }

    remove() {
        for (const player of this.players) player.stop();
        this.element.remove();
    }
}

const views = new Map();
const all = document.getElementById('all');
all.checked = query.get('forms') === 'all';
all.addEventListener('change', () => {
    for (const view of views.values()) view.remove();
    views.clear();
    update();
});

async function update() {
    const answer = await fetch(address('/api/streams')).catch(() => null);
    const summary = document.getElementById('summary');
    if (!answer?.ok) {
        summary.textContent = answer ? `the list of streams was refused (${answer.status})` : 'the gateway does not answer';
        return;
    }
    const { streams } = await answer.json();
    summary.textContent = `${streams.length} stream${streams.length === 1 ? '' : 's'}`;
    document.getElementById('empty').hidden = streams.length > 0;
    for (const [name, view] of views) {
        if (!streams.some((stream) => stream.name === name)) {
            view.remove();
            views.delete(name);
        }
    }
    for (const stream of streams) {
        if (!views.has(stream.name)) {
            const view = new StreamView(stream, all.checked);
            views.set(stream.name, view);
            document.getElementById('streams').append(view.element);
        }
        views.get(stream.name).update(stream);
    }
}

await update();
setInterval(update, 1000);
