#!/usr/bin/env python3
"""The speed of the whole process: `muxora pack` against `ffmpeg -c copy`, same input, same format.

    bench/process_speed.py build/release/bin/muxora [--sizes 1,18,317,2000] [--pairs 5] [--formats mp4,ts] [--limit 0.8]

Runs the two in turn, PAIRS times each behind one pair that does not count, and prints the medians of wall time and of CPU
time (user and system), and ours over ffmpeg's: below 1 we are faster. Sizes are megabytes of an MP4 file with H.264 at
100 Mbit/s and AAC; 2000 takes 4 GB of room. --limit makes a ratio above it an error. Files go to memory (/dev/shm) where
there is room, so that the disk is not what is measured; --work chooses another folder.
"""

import argparse
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

# Our key, and ffmpeg's words for the same form.
FORMATS = {
    'mp4': (['-f', 'mp4'], 'mp4'),
    'hmp4': (['-f', 'mp4'], 'mp4'),
    'fmp4': (['-f', 'mp4', '-movflags', '+frag_keyframe+empty_moov+default_base_moof'], 'mp4'),
    'mov': (['-f', 'mov'], 'mov'),
    'mkv': (['-f', 'matroska'], 'mkv'),
    'xmkv': (['-f', 'matroska'], 'mkv'),
    'flv': (['-f', 'flv'], 'flv'),
    'xflv': (['-f', 'flv'], 'flv'),
    'ts': (['-f', 'mpegts'], 'ts'),
    'xts': (['-f', 'mpegts'], 'ts'),
    'avi': (['-f', 'avi', '-bsf:v', 'h264_mp4toannexb'], 'avi'),
    'ps': (['-f', 'vob'], 'mpg'),
}
DEFAULT = ['mp4', 'hmp4', 'fmp4', 'xmkv', 'flv', 'xflv', 'xts', 'ts']
MEGABYTE = 1000000


def ffmpeg(*words):
    subprocess.run(['ffmpeg', '-v', 'error', '-nostdin', '-y', *map(str, words)], check=True)


def make_inputs(folder, sizes):
    """One short film at a high bit rate, repeated or cut to each size."""
    film = folder / 'film.mp4'
    ffmpeg('-f', 'lavfi', '-i', 'testsrc2=s=1280x720:r=25:d=4,noise=alls=60:allf=t', '-f', 'lavfi', '-i',
           'sine=r=48000:d=4', '-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-g', 50, '-b:v', '100M',
           '-minrate', '100M', '-maxrate', '100M', '-bufsize', '20M', '-c:a', 'aac', film)
    rate = film.stat().st_size / 4
    inputs = {}
    for size in sizes:
        path = folder / f'{size}.mp4'
        ffmpeg('-stream_loop', int(size * MEGABYTE / film.stat().st_size) + 1, '-i', film, '-c', 'copy', '-t',
               size * MEGABYTE / rate, path)
        inputs[size] = path
    film.unlink()
    return inputs


def run(words, output):
    """Wall and CPU seconds of one process."""
    output.unlink(missing_ok=True)
    begin = time.perf_counter()
    process = subprocess.Popen(list(map(str, words)), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE)
    error = process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - begin
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise SystemExit(f'{words}: {error.decode(errors="replace")}')
    return wall, usage.ru_utime + usage.ru_stime


def compare(tool, source, key, pairs, folder):
    words, extension = FORMATS[key]
    mine, theirs = folder / f'ours.{extension}', folder / f'theirs.{extension}'
    results = []
    for _ in range(pairs + 1):
        ours = run([tool, 'pack', source, '-f', key, '-o', mine, '--quiet'], mine)
        ffs = run(['ffmpeg', '-v', 'error', '-nostdin', '-y', '-i', source, '-map', '0:v:0', '-map', '0:a:0', '-c', 'copy',
                   *words, theirs], theirs)
        results.append((ours, ffs))
    sizes = [path.stat().st_size for path in (mine, theirs)]
    if abs(sizes[0] - sizes[1]) > 0.1 * sizes[1]:
        raise SystemExit(f'{key}: {sizes[0]} bytes of ours and {sizes[1]} of ffmpeg\'s are not the same work')
    for path in (mine, theirs):
        path.unlink()
    median = {}
    for which, name in ((0, 'wall'), (1, 'CPU')):
        ours = statistics.median(pair[0][which] for pair in results[1:])
        ffs = statistics.median(pair[1][which] for pair in results[1:])
        ratio = statistics.median(pair[0][which] / pair[1][which] for pair in results[1:])
        median[name] = (ours, ffs, ratio)
    return median


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('tool', type=pathlib.Path)
    parser.add_argument('--sizes', default='1,18,317,2000')
    parser.add_argument('--formats', default=','.join(DEFAULT))
    parser.add_argument('--pairs', type=int, default=5)
    parser.add_argument('--limit', type=float, default=0)
    parser.add_argument('--work', type=pathlib.Path)
    arguments = parser.parse_args()
    sizes = [int(size) for size in arguments.sizes.split(',')]
    work = arguments.work
    if work is None and os.path.isdir('/dev/shm') and shutil.disk_usage('/dev/shm').free > 3.5 * max(sizes) * MEGABYTE:
        work = pathlib.Path('/dev/shm')
    worst = 0
    with tempfile.TemporaryDirectory(prefix='muxora-speed-', dir=work) as name:
        folder = pathlib.Path(name)
        print(f'medians of {arguments.pairs} pairs in {folder.parent}, load {os.getloadavg()[0]:.1f}')
        print(f'{"MB":>5} {"format":<6} {"wall ours":>10} {"ffmpeg":>9} {"ratio":>6} {"CPU ours":>10} {"ffmpeg":>9} {"ratio":>6}')
        for size, source in make_inputs(folder, sizes).items():
            for key in arguments.formats.split(','):
                found = compare(arguments.tool.resolve(), source, key, arguments.pairs, folder)
                cells = ''.join(f' {ours:9.3f}s {ffs:8.3f}s {ratio:6.2f}' for ours, ffs, ratio in found.values())
                print(f'{size:>5} {key:<6}{cells}', flush=True)
                worst = max([worst] + [ratio for _, _, ratio in found.values()])
            source.unlink()
    if arguments.limit and worst > arguments.limit:
        print(f'{worst:.2f} is above {arguments.limit}')
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
