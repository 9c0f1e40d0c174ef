#!/usr/bin/env python3
"""Odd inputs times every format of the tool.

    MUXORA_TOOL=build/release/bin/muxora tests/players/matrix.py [--part 0] [--inputs a,b] [--formats x,y] [--jobs 2]

Each cell is a right output (ok), in which every picture and all sound decode as those of the input, or a refusal with a
reason that leaves nothing behind (-). Anything else is an error. What an output lacks against its input (further tracks, a
turn, the lower bits of samples) must be told in its notes. --part takes a fixed part of the cells, without those of RTP.
"""

import argparse
import array
import collections
import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import zlib

TOOL = os.environ.get('MUXORA_TOOL', 'muxora')
PARTS = 9  # one cell of so many in a part

FILM = ['-f', 'lavfi', '-i', 'testsrc2=s=192x144:r=25:d=2']
TONE = ['-f', 'lavfi', '-i', 'sine=440:r=48000:d=2']
X264 = ['-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-g', '25']
B_PICTURES = ['-bf', '2', '-x264-params', 'b-adapt=0:keyint=25:min-keyint=25:scenecut=0']
# Without the noise that a decoder makes up: a frame sounds the same wherever the decoder began.
AAC = ['-c:a', 'aac', '-aac_pns', '0']


class Trouble(Exception):
    """What is wrong with a cell."""


def run(*words, limit=300):
    return subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL, capture_output=True, timeout=limit,
                          check=False)


def ffmpeg(*words):
    done = run('ffmpeg', '-v', 'error', '-nostdin', '-y', *words)
    if done.returncode != 0:
        raise Trouble('ffmpeg: ' + (done.stderr.decode(errors='replace').splitlines() or ['failed'])[0])
    return done.stdout


class Input:
    """A file, how to decode what is in it, and what must be told of it."""

    def __init__(self, path, told='', words=(), raw=(), sound=None, video=True, inputs=None):
        self.path = path
        self.told = told          # a part of a note that every output of it has
        self.words = list(words)  # for the tool
        self.raw = list(raw)      # for ffmpeg, ahead of the file
        self.sound = sound        # None: there is none; else the bare sound's file type
        self.video = video
        self.inputs = inputs or [path]
        self.stated = path        # what ffprobe reads of it
        self.pictures, self.samples = [], b''

    def decode(self, folder):
        if self.video:
            self.pictures = pictures(*self.raw, '-i', self.path)
        if self.sound:
            # The bare frames: a container may say that some samples are not to be heard.
            bare = folder / f'{self.path.name}.{self.sound}'
            if self.sound == 's16':
                self.samples = samples('-i', self.path)
            else:
                ffmpeg('-i', self.path, '-map', '0:a:0', '-c', 'copy', bare)
                self.samples = samples('-i', bare)


def pictures(*source):
    text = ffmpeg(*source, '-map', '0:v:0', '-fps_mode', 'passthrough', '-f', 'framemd5', '-').decode()
    return [line.split(',')[-1].strip() for line in text.splitlines() if line and not line.startswith('#')]


def samples(*source):
    return ffmpeg(*source, '-map', '0:a:0', '-f', 's16le', '-')


def make_inputs(folder):
    def film(name, *words, **about):
        path = folder / name
        ffmpeg(*FILM, *TONE, *words, path)
        return Input(path, **about)

    made = {}
    made['h264b'] = film('h264b.mp4', *X264, *B_PICTURES, *AAC, sound='aac')
    made['ntsc'] = film('ntsc.mp4', '-r', '30000/1001', *X264, *AAC, sound='aac')
    made['vfr'] = film('vfr.mkv', *X264, '-vf', "select='not(eq(mod(n,5),3))'", '-fps_mode', 'vfr', *AAC, sound='aac')
    made['hevc'] = film('hevc.mp4', '-c:v', 'libx265', '-preset', 'ultrafast', '-x265-params', 'log-level=none', *AAC,
                        sound='aac')
    made['mpeg4'] = film('mpeg4.avi', '-c:v', 'mpeg4', '-bf', '0', '-g', '25', '-c:a', 'libmp3lame', sound='mp3')
    made['mpeg4b'] = film('mpeg4b.mp4', '-c:v', 'mpeg4', '-bf', '2', '-g', '25', *AAC, sound='aac')
    made['mpeg2'] = film('mpeg2.ts', '-c:v', 'mpeg2video', '-g', '12', '-c:a', 'mp2', sound='mp2')
    made['m4a'] = film('sound.m4a', '-map', '1', *AAC, sound='aac', video=False)
    made['aac51'] = film('aac51.mp4', *X264, *AAC, '-ac', '6', sound='aac')
    made['mulaw'] = film('mulaw.mov', *X264, '-c:a', 'pcm_mulaw', '-ar', '8000', sound='s16')
    made['pcm16'] = film('pcm16.wav', '-map', '1', '-c:a', 'pcm_s16le', '-ar', '8000', '-ac', '1', sound='s16', video=False)
    made['pcm24'] = film('pcm24.mov', *X264, '-c:a', 'pcm_s24le', sound='s16', told='narrowed')
    made['pcmf32'] = film('pcmf32.mkv', *X264, '-c:a', 'pcm_f32le', sound='s16', told='narrowed')
    made['ac3'] = film('ac3.mp4', *X264, '-c:a', 'ac3')
    made['opus'] = film('opus.mkv', *X264, '-c:a', 'libopus')
    made['ac3silent'] = Input(made['ac3'].path, words=['--no-audio'])
    made['rotated'] = film('rotated.mp4', *X264, *AAC, sound='aac', told='turned')
    turned = folder / 'turned.mp4'
    ffmpeg('-i', made['rotated'].path, '-c', 'copy', '-metadata:s:v:0', 'rotate=90', turned)
    made['rotated'].path, made['rotated'].inputs, made['rotated'].raw = turned, [turned], ['-noautorotate']
    words = folder / 'words.srt'
    words.write_text('1\n00:00:00,000 --> 00:00:01,000\nwords\n', encoding='utf-8')
    subtitles = folder / 'subtitles.mp4'
    ffmpeg('-i', made['h264b'].path, '-i', words, '-c', 'copy', '-c:s', 'mov_text', subtitles)
    made['subtitles'] = Input(subtitles, sound='aac', told='left out')
    tracks = folder / 'tracks.mkv'
    ffmpeg('-i', made['ntsc'].path, '-i', made['mpeg4b'].path, '-map', '0', '-map', '1', '-c', 'copy', tracks)
    made['tracks'] = Input(tracks, sound='aac', told='left out')
    raw = folder / 'raw.h264'
    ffmpeg('-i', made['h264b'].path, '-an', '-c', 'copy', raw)
    made['rawh264'] = Input(raw, words=['--fps', '25'])
    # As cameras and image libraries write it: two DQT segments, with a table each.
    jpeg = folder / 'pictures.mov'
    ffmpeg(*FILM, '-frames:v', '10', folder / 'picture%03d.png')
    shots = sorted(folder.glob('picture*.png'))
    for shot in shots:
        done = run('convert', shot, '-sampling-factor', '2x2,1x1,1x1', '-quality', '85', '-strip', shot.with_suffix('.jpg'))
        if done.returncode != 0 or shot.with_suffix('.jpg').read_bytes().count(b'\xff\xdb') != 2:
            raise Trouble('ImageMagick makes no JPEG with two DQT segments')
    ffmpeg('-framerate', '25', '-i', folder / 'picture%03d.jpg', '-c', 'copy', jpeg)
    made['mjpeg'] = Input(jpeg)
    ovx = folder / 'native.ovx'
    done = run(TOOL, 'pack', made['h264b'].path, '-o', ovx)
    if done.returncode != 0:
        raise Trouble(done.stderr.decode())
    made['ovx'] = Input(ovx, sound='aac')
    made['ovx'].stated = made['h264b'].path
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        list(pool.map(lambda name: made[name].decode(folder), [name for name in made if name != 'ovx']))
    made['ovx'].pictures, made['ovx'].samples = made['h264b'].pictures, made['h264b'].samples
    return made


# ------------------------------------------------------------------------------------------------ what readers find


def program_stream(path, stream):
    """What the PES packets of a stream carry (ISO/IEC 13818-1 2.4.3.7)."""
    data, carried, at = path.read_bytes(), bytearray(), 0
    while at + 6 <= len(data):
        if data[at:at + 3] != b'\0\0\1':
            raise Trouble(f'no start code at byte {at}')
        if data[at + 3] == 0xBA:
            at += 14 + (data[at + 13] & 7)
            continue
        size = int.from_bytes(data[at + 4:at + 6], 'big')
        if data[at + 3] == stream:
            carried += data[at + 9 + data[at + 8]:at + 6 + size]
        at += 6 + size
    return bytes(carried)


def transport_stream_sound(path):
    """What the PES packets of stream C0 carry, in packets of 188 bytes (ISO/IEC 13818-1 2.4.3)."""
    data, carried, pid = path.read_bytes(), bytearray(), None
    for at in range(0, len(data), 188):
        packet = data[at:at + 188]
        body = packet[5 + packet[4]:] if packet[3] & 0x20 else packet[4:]
        number = int.from_bytes(packet[1:3], 'big') & 0x1FFF
        if packet[1] & 0x40 and body[:4] == b'\0\0\1\xc0':
            pid = number
            body = body[9 + body[8]:]
        if number == pid and packet[3] & 0x10:
            carried += body
    return bytes(carried)


def enhanced_flv_pictures(path):
    """H.265 out of FLV as Enhanced RTMP has it, behind start codes: an ffmpeg of before 6.1 does not read it."""
    data, stream, at = path.read_bytes(), bytearray(), 13
    while at + 11 <= len(data):
        size = int.from_bytes(data[at + 1:at + 4], 'big')
        body = data[at + 11:at + 11 + size]
        if data[at] == 9:
            if not body[0] & 0x80 or body[1:5] != b'hvc1':
                raise Trouble('a video tag that is not of Enhanced RTMP')
            kind = body[0] & 15
            if kind == 0:
                # ISO/IEC 14496-15 8.3.3.1.2: arrays of parameter sets behind 22 bytes
                left = body[5 + 23:]
                for _ in range(body[5 + 22]):
                    count, left = int.from_bytes(left[1:3], 'big'), left[3:]
                    for _ in range(count):
                        length = int.from_bytes(left[:2], 'big')
                        stream += b'\0\0\0\1' + left[2:2 + length]
                        left = left[2 + length:]
            elif kind in (1, 3):
                units = body[8 if kind == 1 else 5:]
                while units:
                    length = int.from_bytes(units[:4], 'big')
                    stream += b'\0\0\0\1' + units[4:4 + length]
                    units = units[4 + length:]
        at += 15 + size
    return bytes(stream)


class Reader:
    """Gives the sources for ffmpeg in which pictures and sound of an output are found."""

    def __init__(self, source, key, out, folder):
        self.source, self.key, self.out, self.folder = source, key, out, folder

    def find(self):
        if self.key in ('ovx', 'ovxalt'):
            return self.from_ovx()
        video = sound = ['-i', self.out]
        # What ffmpeg does not know of these forms is taken out of them here.
        if self.key in ('gaysps', 'gdps') and self.source.sound == 's16':
            sound = self.bare_sound(program_stream(self.out, 0xC0))
        elif self.key == 'ts' and self.source.sound == 's16':
            sound = self.bare_sound(transport_stream_sound(self.out))
        codec = run('ffprobe', '-v', 'error', '-select_streams', 'v:0', '-show_entries', 'stream=codec_name', '-of',
                    'csv=p=0', self.source.stated).stdout.decode().strip() if self.source.video else ''
        if self.key == 'ovps' and codec == 'mjpeg':
            video = self.bare_pictures('mjpeg', program_stream(self.out, 0xE0))
        elif self.key == 'xflv' and codec == 'hevc':
            video = self.bare_pictures('hevc', enhanced_flv_pictures(self.out))
        return video, sound

    def bare_pictures(self, form, data):
        bare = self.folder / f'bare.{form}'
        bare.write_bytes(data)
        return ['-f', form, '-i', bare]

    def bare_sound(self, data):
        codec, rate, channels = about_sound(self.source.stated)
        bare = self.folder / 'bare.sound'
        bare.write_bytes(data)
        form = {'pcm_mulaw': 'mulaw', 'pcm_alaw': 'alaw'}.get(codec, 's16le')
        return ['-f', form, '-ar', rate, '-ac', channels, '-i', bare]

    def from_ovx(self):
        prefix = self.folder / 'unpacked'
        done = run(TOOL, 'unpack', self.out, '-o', prefix, '--quiet')
        if done.returncode != 0:
            raise Trouble('unpack: ' + done.stderr.decode())
        found = {path.suffix[1:]: path for path in self.folder.glob('unpacked.*')}
        video = [path for kind, path in found.items() if kind in ('h264', 'h265', 'm4v', 'm2v', 'mpeg2', 'mpeg4', 'mjpeg', 'mjpg')]
        sound = [path for path in found.values() if path not in video]
        words = []
        if sound and self.source.sound == 's16':
            about = about_sound(self.source.stated)
            form = {'pcm_mulaw': 'mulaw', 'pcm_alaw': 'alaw'}.get(about[0], 's16le')
            words = ['-f', form, '-ar', about[1], '-ac', about[2]]
        return (['-r', '25', '-i', video[0]] if video else None), ([*words, '-i', sound[0]] if sound else None)


def about_sound(path):
    """Codec, sample rate and channels, as stated."""
    text = run('ffprobe', '-v', 'error', '-select_streams', 'a:0', '-show_entries', 'stream=codec_name,sample_rate,channels',
               '-of', 'csv=p=0', path).stdout.decode()
    # A transport stream lists its streams twice, as its program's and by themselves.
    return text.split()[0].rstrip(',').split(',')


def check_pictures(expected, found, report):
    dropped = report['video']['dropped']
    if found != expected[dropped:]:
        same = sum(a == b for a, b in zip(found, expected[dropped:]))
        raise Trouble(f'{len(found)} pictures, {same} in their places, of {len(expected)} with {dropped} left out')


def nearly(found, expected):
    """Samples that were rounded from wider ones may differ by the last bit."""
    a, b = array.array('h', found), array.array('h', expected)
    return len(a) == len(b) and all(abs(x - y) <= 1 for x, y in zip(a, b))


def check_sound(source, found, report):
    whole, frame = source.samples, 4096
    if source.told == 'narrowed':
        if not nearly(found, whole[len(whole) - len(found):]) or len(found) < 0.9 * len(whole):
            raise Trouble('the sound is not the input\'s, rounded')
        return
    # MP4 has one name for all layers of MPEG audio, and ffmpeg another decoder for it, which rounds in its own way.
    if source.sound == 'mp2' and nearly(found, whole[len(whole) - len(found):]) and len(found) > 0.9 * len(whole):
        return
    # The first frames of a codec depend on where the decoder began; a container may say that they are not to be heard.
    coded = source.sound != 's16'
    settle = 8 * frame if coded else 0
    at = whole.find(found[settle:]) if len(found) > settle else -1
    if at < 0:
        raise Trouble(f'{len(found)} bytes of sound are not among the {len(whole)} of the input')
    missing_end = len(whole) - (at + len(found) - settle)
    missing_start = at - settle
    allowed = frame * 3 * (report['audio']['dropped'] + 2) if coded else 12800 * report['audio']['dropped']
    if missing_start > allowed or missing_end > (2 * frame * 3 if coded else 0):
        raise Trouble(f'{missing_start} bytes of sound are missing at its start, {missing_end} at its end')


def bound_ports():
    """The UDP ports of this host that a process listens on."""
    lines = pathlib.Path('/proc/net/udp').read_text(encoding='ascii').splitlines()[1:]
    return {int(line.split()[1].split(':')[1], 16) for line in lines}


def wait_until(condition, process, what):
    until = time.monotonic() + 60
    while not condition():
        if process.poll() is not None or time.monotonic() > until:
            raise Trouble(what)
        time.sleep(0.02)


def through_rtp(source, folder, port):
    """What a receiver makes of it, decoded as it comes. The sender starts when the receiver listens."""
    sdp, received = folder / 'x.sdp', folder / 'received.nut'
    words = [TOOL, 'send', *map(str, source.inputs), *source.words, '--to', f'rtp://127.0.0.1:{port}', '--sdp', str(sdp),
             '--json']
    quiet = {'stdin': subprocess.DEVNULL, 'stdout': subprocess.DEVNULL, 'stderr': subprocess.PIPE}
    with subprocess.Popen([*words, '--wait', '600'], **quiet) as describer:
        try:
            wait_until(sdp.exists, describer, 'send writes no description')
        finally:
            describer.kill()
    ports = [int(line.split()[1]) for line in sdp.read_text(encoding='ascii').splitlines() if line.startswith('m=')]
    with subprocess.Popen(['ffmpeg', '-v', 'error', '-nostdin', '-y', '-protocol_whitelist', 'file,udp,rtp', '-i', sdp,
                           '-map', '0', '-fps_mode', 'passthrough', '-c:v', 'rawvideo', '-c:a', 'pcm_s16le', received],
                          **quiet) as receiver:
        try:
            wait_until(lambda: bound_ports() >= {number + one for number in ports for one in (0, 1)}, receiver,
                       'the receiver does not listen')
            done = run(*words)
            error = receiver.communicate(timeout=120)[1].decode(errors='replace')
        finally:
            receiver.kill()
    if receiver.returncode != 0:
        raise Trouble('the receiver says: ' + (error.splitlines() or ['nothing'])[0])
    return done.returncode, done.stderr.decode(), received


def told_of(source, notes, out):
    """What an output lacks of its input is told, but for a turn that the form states."""
    if source.told != 'turned':
        return source.told in notes
    stated = run('ffprobe', '-v', 'error', '-select_streams', 'v:0', '-show_entries', 'stream_side_data=rotation', '-of',
                 'csv=p=0', out).stdout.decode().strip(' ,\n')
    return ('turned' in notes) == (stated in ('', '0')) and stated in ('', '0', '90', '-90')


def cell(source, key, port):
    """'right' or 'refused', and what was told; throws Trouble."""
    with tempfile.TemporaryDirectory(prefix='muxora-cell-') as name:
        folder = pathlib.Path(name)
        out = folder / 'out' / f'out.{key}'
        out.parent.mkdir()
        done = run(TOOL, 'pack', *source.inputs, *source.words, '-f', key, '-o', out, '--json')
        if done.returncode != 0:
            try:
                reason = json.loads(done.stderr)['error']
            except (ValueError, KeyError):
                raise Trouble(f'exit code {done.returncode} and no reason: {done.stderr[:200]}') from None
            if done.returncode not in (1, 2) or len(reason) < 20 or '\n' in reason:
                raise Trouble(f'exit code {done.returncode}: {reason}')
            if list(out.parent.iterdir()):
                raise Trouble('refused, and something is left behind')
            return 'refused', reason
        report = json.loads(done.stdout)
        notes = '; '.join(report['notes'])
        if not told_of(source, notes, out):
            raise Trouble(f'nothing is told of "{source.told}": {notes}')
        for kind in ('video', 'audio'):
            tally = report.get(kind)
            if tally and tally['given'] != tally['written'] + tally['dropped']:
                raise Trouble(f'{kind}: {tally}')
        if key == 'rtp':
            code, error, received = through_rtp(source, folder, port)
            if code != 0:
                raise Trouble('send: ' + error)
            video = sound = ['-i', received]
        else:
            video, sound = Reader(source, key, out, folder).find()
        if 'video' in report:
            check_pictures(source.pictures, pictures(*source.raw, *video) if video else [], report)
        if 'audio' in report:
            check_sound(source, samples(*sound) if sound else b'', report)
        if source.video != ('video' in report):
            raise Trouble('the pictures are missing')
        if bool(source.sound) != ('audio' in report):
            raise Trouble('the sound is missing')
        if 'audio' in report and sound[0] == '-i':
            stated, expected = about_sound(sound[-1])[1:], about_sound(source.stated)[1:]
            if stated != expected:
                raise Trouble(f'{stated} stated of sound that is {expected}')
        return 'right', notes


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--part', type=int, choices=range(PARTS), help='only a fixed part of the cells')
    parser.add_argument('--inputs', default='')
    parser.add_argument('--formats', default='')
    parser.add_argument('--jobs', type=int, default=os.cpu_count() or 2)
    parser.add_argument('--reasons', action='store_true', help='print every reason and note')
    arguments = parser.parse_args()
    keys = [row['key'] for row in json.loads(run(TOOL, 'formats', '--json').stdout)]
    keys = [key for key in keys if not arguments.formats or key in arguments.formats.split(',')]
    with tempfile.TemporaryDirectory(prefix='muxora-matrix-') as name:
        inputs = make_inputs(pathlib.Path(name))
        names = [one for one in inputs if not arguments.inputs or one in arguments.inputs.split(',')]
        cells = [(one, key) for one in names for key in keys]
        if arguments.part is not None:
            cells = [where for where in cells if zlib.crc32(' '.join(where).encode()) % PARTS == arguments.part]
            # Receivers of RTP want a machine that has time for them.
            cells = [where for where in cells if where[1] != 'rtp']
        results = {}

        def work(number):
            one, key = cells[number]
            try:
                # Even ports, four a cell, below those that the system gives away.
                return cells[number], cell(inputs[one], key, 10000 + 4 * ((os.getpid() * 64 + number) % 5000))
            except Trouble as trouble:
                return cells[number], ('WRONG', str(trouble))
            except Exception as error:  # an answer of another shape: the cell is not right
                return cells[number], ('WRONG', f'{type(error).__name__}: {error}')

        with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
            for where, result in pool.map(work, range(len(cells))):
                results[where] = result
                if result[0] == 'WRONG':
                    print('WRONG', *where, result[1], flush=True)
    width = max(map(len, names))
    print(' ' * width + ' ' + ' '.join(keys))
    marks = {'right': 'ok', 'refused': '-', 'WRONG': 'BAD'}
    for one in names:
        print(f'{one:<{width}} ' + ' '.join(f'{marks[results[one, key][0]] if (one, key) in results else ".":<{len(key)}}'
                                            for key in keys))
    for (one, key), (kind, text) in results.items():
        if arguments.reasons and text:
            print(f'{kind} {one} {key}: {text}')
    counts = collections.Counter(kind for kind, _ in results.values())
    print(', '.join(f'{count} {kind}' for kind, count in counts.items()))
    return 1 if counts['WRONG'] or not counts['right'] else 0


if __name__ == '__main__':
    sys.exit(main())
