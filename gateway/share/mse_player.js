// Plays fragmented MP4 that comes over a WebSocket, with Media Source alone, close to the live edge.

const TARGET = 0.35; // seconds behind the newest picture
const TOO_FAR = 2;   // from there on it jumps
const KEPT = 10;     // seconds that stay behind

const hex = (byte) => byte.toString(16).padStart(2, '0');

function* boxes(view, start, end) {
    while (start + 8 <= end) {
        const size = view.getUint32(start);
        if (size < 8 || start + size > end) return;
        const type = String.fromCharCode(...new Uint8Array(view.buffer, view.byteOffset + start + 4, 4));
        yield { type, start: start + 8, end: start + size };
        start += size;
    }
}

function find(view, path, start = 0, end = view.byteLength) {
    for (const box of boxes(view, start, end)) {
        if (box.type === path[0]) return path.length === 1 ? box : find(view, path.slice(1), box.start, box.end);
    }
    return null;
}

// The codecs of an initialisation segment, in the words of RFC 6381.
export function codecsOf(data) {
    const view = new DataView(data.buffer, data.byteOffset, data.byteLength);
    const moov = find(view, ['moov']);
    if (!moov) return null;
    const codecs = [];
    for (const trak of boxes(view, moov.start, moov.end)) {
        if (trak.type !== 'trak') continue;
        const stsd = find(view, ['mdia', 'minf', 'stbl', 'stsd'], trak.start, trak.end);
        if (!stsd) continue;
        for (const entry of boxes(view, stsd.start + 8, stsd.end)) {
            const avcc = find(view, ['avcC'], entry.start + 78, entry.end);
            const hvcc = find(view, ['hvcC'], entry.start + 78, entry.end);
            const esds = find(view, ['esds'], entry.start + 28, entry.end);
            if (avcc) {
                codecs.push(entry.type + '.' + [1, 2, 3].map((i) => hex(view.getUint8(avcc.start + i))).join(''));
            } else if (hvcc) {
                codecs.push(hevc(entry.type, view, hvcc.start));
            } else if (esds) {
                codecs.push(mp4a(view, esds));
            } else {
                codecs.push(entry.type);
            }
        }
    }
    return codecs.length > 0 ? codecs : null;
}

function hevc(entry, view, at) {
    const head = view.getUint8(at + 1);
    let compatible = 0;
    for (let bit = 0; bit < 32; ++bit) compatible += ((view.getUint32(at + 2) >>> bit) & 1) * 2 ** (31 - bit);
    const parts = [entry, ['', 'A', 'B', 'C'][head >> 6] + (head & 31), compatible.toString(16).toUpperCase(),
        (head & 32 ? 'H' : 'L') + view.getUint8(at + 12)];
    const rest = [];
    for (let i = 6; i < 12; ++i) rest.push(view.getUint8(at + i).toString(16).toUpperCase());
    while (rest.length > 0 && rest.at(-1) === '0') rest.pop();
    return [...parts, ...rest].join('.');
}

function mp4a(view, box) {
    let at = box.start + 4;
    const length = () => { while (view.getUint8(at) & 0x80) ++at; ++at; };
    ++at; length(); at += 3;          // ES descriptor
    ++at; length();                   // decoder configuration
    const object = view.getUint8(at);
    at += 13;
    if (object !== 0x40) return 'mp4a.' + hex(object);
    ++at; length();                   // AudioSpecificConfig
    return 'mp4a.40.' + (view.getUint8(at) >> 3);
}

export class MsePlayer {
    constructor(video, address, onTrouble) {
        this.video = video;
        this.onTrouble = onTrouble;
        this.waiting = [];
        this.head = [];
        this.source = new MediaSource();
        video.src = URL.createObjectURL(this.source);
        this.source.addEventListener('sourceopen', () => this.connect(address), { once: true });
        this.clock = setInterval(() => this.follow(), 100);
    }

    connect(address) {
        if (this.closed) return;
        this.socket = new WebSocket(address);
        this.socket.binaryType = 'arraybuffer';
        this.socket.onmessage = (event) => this.take(new Uint8Array(event.data));
        this.socket.onclose = () => this.closed || this.onTrouble('the connection ended');
    }

    take(bytes) {
        if (!this.buffer) {
            this.head.push(bytes);
            const all = concat(this.head);
            const codecs = codecsOf(all);
            if (!codecs) return;
            const type = `video/mp4; codecs="${codecs.join(',')}"`;
            if (!MediaSource.isTypeSupported(type)) return this.onTrouble(`this browser does not play ${type}`);
            this.buffer = this.source.addSourceBuffer(type);
            this.buffer.addEventListener('updateend', () => this.feed());
            this.buffer.addEventListener('error', () => this.onTrouble('the media cannot be read'));
            this.waiting.push(all);
        } else {
            this.waiting.push(bytes);
        }
        this.feed();
    }

    feed() {
        if (this.closed || !this.buffer || this.buffer.updating || this.source.readyState !== 'open') return;
        const { buffered, currentTime } = this.video;
        if (buffered.length > 0 && currentTime - buffered.start(0) > 2 * KEPT) {
            this.buffer.remove(0, currentTime - KEPT);
        } else if (this.waiting.length > 0) {
            try {
                this.buffer.appendBuffer(concat(this.waiting.splice(0)));
            } catch (error) {
                this.onTrouble(error.message);
            }
        }
    }

    // A new viewer begins at the last key frame, and a slow one falls behind: catch up gently, or jump.
    follow() {
        const { video } = this;
        if (video.buffered.length === 0) return;
        const last = video.buffered.length - 1;
        const behind = video.buffered.end(last) - video.currentTime;
        if (behind > TOO_FAR || video.currentTime < video.buffered.start(last) || !this.begun) {
            video.currentTime = Math.max(video.buffered.end(last) - TARGET, video.buffered.start(last));
            this.begun = true;
        }
        video.playbackRate = behind > TARGET + 0.25 ? 1.1 : behind < TARGET - 0.25 ? 0.95 : 1;
        if (video.paused) video.play().catch(() => {});
    }

    destroy() {
        this.closed = true;
        clearInterval(this.clock);
        this.socket?.close();
        this.video.removeAttribute('src');
        this.video.load();
    }
}

function concat(parts) {
    if (parts.length === 1) return parts[0];
    const all = new Uint8Array(parts.reduce((size, part) => size + part.byteLength, 0));
    let at = 0;
    for (const part of parts) {
        all.set(part, at);
        at += part.byteLength;
    }
    return all;
}
