#!/usr/bin/env python3
"""An MP4 file with two sample entries, whose pictures change their size half-way, into every format of the tool.

    MUXORA_TOOL=build/release/bin/muxora tests/players/two_sizes_test.py

What comes out decodes to the pictures of the two films that the file was made of, or is refused with what to do.
"""

import json
import pathlib
import sys
import tempfile

import matrix
from matrix import Trouble, ffmpeg, run

TABLE = (b'moov', b'trak', b'mdia', b'minf', b'stbl')
FILMS = {'small.mp4': 'testsrc2=s=192x144:r=25:d=1', 'large.mp4': 'mandelbrot=s=320x240:r=25'}


def number(*values):
    return b''.join(value.to_bytes(4, 'big') for value in values)


def numbers(data):
    return [int.from_bytes(data[at:at + 4], 'big') for at in range(0, len(data), 4)]


def box(name, body):
    return number(len(body) + 8) + name + body


def boxes(data):
    at = 0
    while at + 8 <= len(data):
        size = int.from_bytes(data[at:at + 4], 'big')
        yield data[at + 4:at + 8], data[at + 8:at + size]
        at += size


def inside(data, *path):
    for name in path:
        data = dict(boxes(data))[name]
    return data


def join(first, second):
    """One film behind the other in a track with two sample entries (ISO/IEC 14496-12 8.5.2, 8.7.4)."""
    films = [path.read_bytes() for path in (first, second)]
    tables = [dict(boxes(inside(film, *TABLE))) for film in films]
    sizes = [numbers(table[b'stsz'][12:]) for table in tables]
    media = []
    for film, table, of_film in zip(films, tables, sizes):
        start = numbers(table[b'stco'][8:12])[0]
        media.append(film[start:start + sum(of_film)])
    count = len(sizes[0]) + len(sizes[1])
    keys = numbers(tables[0][b'stss'][8:]) + [len(sizes[0]) + key for key in numbers(tables[1][b'stss'][8:])]
    step = numbers(tables[0][b'stts'][8:])[1]
    front = box(b'ftyp', inside(films[0], b'ftyp'))
    at = len(front) + 8
    table = b''.join((
        box(b'stsd', number(0, 2) + tables[0][b'stsd'][8:] + tables[1][b'stsd'][8:]),
        box(b'stts', number(0, 1, count, step)),
        box(b'stss', number(0, len(keys), *keys)),
        box(b'stsc', number(0, 2, 1, len(sizes[0]), 1, 2, len(sizes[1]), 2)),
        box(b'stsz', number(0, 0, count, *sizes[0], *sizes[1])),
        box(b'stco', number(0, 2, at, at + len(media[0])))))
    # Where the three boxes state their duration.
    durations = {b'mvhd': (16, 2000), b'tkhd': (20, 2000), b'mdhd': (16, count * step)}

    def rebuilt(data):
        out = b''
        for name, body in boxes(data):
            if name == b'stbl':
                body = table
            elif name in TABLE:
                body = rebuilt(body)
            elif name in durations:
                where, value = durations[name]
                body = body[:where] + number(value) + body[where + 4:]
            if name != b'edts':
                out += box(name, body)
        return out

    return front + box(b'mdat', media[0] + media[1]) + box(b'moov', rebuilt(inside(films[0], b'moov')))


def pictures(*source):
    text = ffmpeg(*source, '-map', '0:v:0', '-autoscale', '0', '-fps_mode', 'passthrough', '-f', 'framemd5', '-').decode()
    return [line.split(',')[-1].strip() for line in text.splitlines() if line and not line.startswith('#')]


def check(film, key, expected, folder):
    """'right' or 'refused'; throws Trouble."""
    folder.mkdir()
    out = folder / f'out.{key}'
    done = run(matrix.TOOL, 'pack', film, '-f', key, '-o', out, '--json')
    if done.returncode != 0:
        reason = json.loads(done.stderr)['error']
        if list(folder.iterdir()):
            raise Trouble('refused, and something is left behind')
        if key == 'wav' and 'wav does not take H.264 video' in reason:
            return 'refused'
        if key == 'fmp4' and 'change their parameter sets' in reason and '-f hmp4' in reason:
            return 'refused'
        raise Trouble(reason)
    # Packets of RTP in a file are no player's; matrix.py receives them.
    if key == 'rtp':
        return 'right'
    source = matrix.Input(film)
    video, _ = matrix.Reader(source, key, out, folder).find()
    if pictures(*video) != expected:
        raise Trouble('the pictures are not those of the two films')
    return 'right'


def main():
    wrong = 0
    kinds = []
    with tempfile.TemporaryDirectory(prefix='muxora-sizes-') as name:
        folder = pathlib.Path(name)
        films = [folder / film for film in FILMS]
        for film, source in zip(films, FILMS.values()):
            ffmpeg('-f', 'lavfi', '-i', source, '-t', '1', '-c:v', 'libx264', '-preset', 'veryfast', '-g', '12', '-bf', '0',
                   '-pix_fmt', 'yuv420p', film)
        film = folder / 'two.mp4'
        film.write_bytes(join(*films))
        expected = [picture for one in films for picture in pictures('-i', one)]
        if len(expected) != 50 or pictures('-i', film) != expected:
            raise SystemExit('ffmpeg does not read the film with two sample entries')
        for row in json.loads(run(matrix.TOOL, 'formats', '--json').stdout):
            try:
                kinds.append(check(film, row['key'], expected, folder / row['key']))
                print(kinds[-1], row['key'])
            except Trouble as trouble:
                wrong += 1
                print('WRONG', row['key'], trouble)
        # The summary states the size of the first entry's pictures, whatever the file says last.
        text = run(matrix.TOOL, 'pack', film, '-o', folder / 'x.mkv').stdout.decode()
        if 'H.264 192x144' not in text:
            wrong += 1
            print('WRONG size:', text)
    print(f'{kinds.count("right")} right, {kinds.count("refused")} refused, {wrong} wrong')
    return 1 if wrong or kinds.count('right') < 20 else 0


if __name__ == '__main__':
    sys.exit(main())
