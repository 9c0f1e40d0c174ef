"""HLS and DASH on demand: what `muxora pack -o DIR/index.m3u8` and `-o DIR/manifest.mpd` write, read by ffmpeg, hls.js
and shaka-player, and held against RFC 8216 and ISO/IEC 23009-1 line by line."""

import json
import math
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree

TOOL = os.environ['MUXORA_TOOL']
MODULES = os.environ['BROWSER_MODULES']
SCRIPT = pathlib.Path(__file__).parent / 'browser' / 'numbers.mjs'
MPD = {'d': 'urn:mpeg:dash:schema:mpd:2011'}
PICTURES, RATE = 72, 24000 / 1001
NUMBERS = "geq=lum='if(lt(Y,64),16+219*mod(floor(N/pow(2,floor(X/32))),2),128)':cb=128:cr=128"


def run(*words, check=True, limit=240):
    done = subprocess.run([str(word) for word in words], capture_output=True, timeout=limit, check=False)
    if check and done.returncode != 0:
        raise AssertionError(f'{words[:3]}: {done.stderr.decode(errors="replace")}')
    return done


def pack(*words, check=True):
    return run(TOOL, 'pack', *words, check=check)


def ffmpeg(*words):
    run('ffmpeg', '-v', 'error', '-nostdin', '-y', *words)


def hashes(source, stream):
    """One hash for each decoded picture, or each block of sound, in order."""
    text = run('ffmpeg', '-v', 'error', '-nostdin', '-i', source, '-map', f'0:{stream}', '-fps_mode', 'passthrough',
               '-f', 'framemd5', '-').stdout.decode()
    return [line.split(',')[-1].strip() for line in text.splitlines() if not line.startswith('#')]


def sound(source, stream):
    """The decoded samples."""
    return run('ffmpeg', '-v', 'error', '-nostdin', '-i', source, '-map', f'0:{stream}', '-f', 's16le', '-').stdout


def probe(source, stream, entries):
    text = run('ffprobe', '-v', 'error', '-select_streams', stream, '-show_entries', entries, '-of', 'csv=p=0',
               source).stdout.decode()
    return [line.rstrip(',') for line in text.split()]


def attributes(line):
    """The attribute list of a playlist's line (RFC 8216 4.2)."""
    found = re.findall(r'([A-Z0-9-]+)=("[^"]*"|[^",]*)(?:,|$)', line.split(':', 1)[1])
    return {name: value.strip('"') for name, value in found}


class MediaPlaylist:
    def __init__(self, path):
        self.folder = pathlib.Path(path).parent
        self.lines = pathlib.Path(path).read_text(encoding='utf-8').splitlines()
        self.target = int(self.value('TARGETDURATION'))
        self.segments = []  # (init, file, duration)
        init = duration = None
        for line in self.lines:
            if line.startswith('#EXT-X-MAP:'):
                init = self.folder / attributes(line)['URI']
            elif line.startswith('#EXTINF:'):
                duration = float(line[8:].rstrip(','))
            elif line and not line.startswith('#'):
                self.segments.append((init, self.folder / line, duration))

    def value(self, tag):
        return [line for line in self.lines if line.startswith(f'#EXT-X-{tag}:')][0].split(':', 1)[1]

    def tags(self):
        return [line.split(':')[0] for line in self.lines if line.startswith('#')]


def variants(path):
    lines = pathlib.Path(path).read_text(encoding='utf-8').splitlines()
    return [(attributes(line), pathlib.Path(path).parent / lines[i + 1]) for i, line in enumerate(lines)
            if line.startswith('#EXT-X-STREAM-INF:')]


def sounds(path):
    return [attributes(line) for line in pathlib.Path(path).read_text(encoding='utf-8').splitlines()
            if line.startswith('#EXT-X-MEDIA:')]


class Presentation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory(prefix='muxora-presentation-')
        cls.work = pathlib.Path(cls.scratch.name)
        # The same three seconds twice, key frames each second, pictures with their number along the top.
        film = ['-f', 'lavfi', '-i', 'color=s=320x128:r=24000/1001:d=3.003', '-f', 'lavfi', '-i', 'sine=r=44100:d=3']
        coder = ['-c:v', 'libx264', '-pix_fmt', 'yuv420p', '-x264-params', 'keyint=24:min-keyint=24:scenecut=0:bframes=2']
        cls.low, cls.high = cls.work / 'low.mp4', cls.work / 'high film.mp4'
        ffmpeg(*film, '-vf', NUMBERS, *coder, '-crf', 30, '-c:a', 'aac', '-b:a', '64k', cls.low)
        ffmpeg(*film, '-vf', NUMBERS + ',scale=640:256:flags=neighbor', *coder, '-crf', 18, '-c:a', 'aac', cls.high)

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    def assert_same_sound(self, ours, theirs):
        # ffmpeg's readers of playlists let the encoder's priming be heard: a frame of 1024 samples.
        self.assertIn(len(ours) - len(theirs), (0, 2048))
        self.assertEqual(ours[len(ours) - len(theirs):], theirs)

    def folder(self):
        return pathlib.Path(tempfile.mkdtemp(dir=self.work))

    def ladder(self, name):
        path = self.folder() / name
        report = json.loads(pack(self.high, self.low, '-o', path, '--segment', '1s', '--json').stdout)
        self.assertEqual(report['notes'],
                         ['the sound of low.mp4 is left out: that of high film.mp4 goes with all renditions'])
        return path

    # ---------------------------------------------------------------------------------------- HLS

    def test_hls_is_as_the_standard_has_it(self):
        path = self.ladder('index.m3u8')
        lines = path.read_text(encoding='utf-8').splitlines()
        self.assertEqual(lines[0], '#EXTM3U')
        self.assertIn('#EXT-X-INDEPENDENT-SEGMENTS', lines)
        tracks = [MediaPlaylist(uri) for _, uri in variants(path)]
        tracks.append(MediaPlaylist(path.parent / sounds(path)[0]['URI']))
        for track in tracks:
            tags = track.tags()
            self.assertEqual((tags[0], tags[-1]), ('#EXTM3U', '#EXT-X-ENDLIST'))
            self.assertEqual(track.value('PLAYLIST-TYPE'), 'VOD')
            self.assertEqual(track.value('MEDIA-SEQUENCE'), '0')
            self.assertGreaterEqual(int(track.value('VERSION')), 6)  # EXT-X-MAP
            self.assertLess(tags.index('#EXT-X-MAP'), tags.index('#EXTINF'))
            self.assertEqual(track.target, tracks[0].target)
            for init, file, duration in track.segments:
                self.assertTrue(init.exists() and file.exists())
                self.assertLessEqual(round(duration), track.target)
        # True durations: by the presentation times that ffprobe finds in each segment.
        for track, stream in ((tracks[0], 'v:0'), (tracks[2], 'a:0')):
            starts, end = [], 0
            for init, file, _ in track.segments:
                whole = self.folder() / 'whole.mp4'
                whole.write_bytes(init.read_bytes() + file.read_bytes())
                rows = [row.split(',') for row in probe(whole, stream, 'packet=pts_time,duration_time')]
                last = max(rows, key=lambda row: float(row[0]))
                starts.append(max(min(float(row[0]) for row in rows), 0))
                end = float(last[0]) + float(last[1])
            for (_, _, duration), begin, after in zip(track.segments, starts, starts[1:] + [end]):
                # ffprobe takes the last frame of sound for a whole one; the film says where in it the sound ends.
                frame = 1024 / 44100 if stream == 'a:0' and after == end else 0
                self.assertAlmostEqual(duration, after - begin, delta=frame + 0.0001)
        self.assertEqual([round(duration, 3) for _, _, duration in tracks[0].segments], [1.001] * 3)

    def test_hls_names_codecs_sizes_and_rates(self):
        path = self.ladder('index.m3u8')
        self.assertEqual([(v['RESOLUTION'], v['FRAME-RATE'], v['AUDIO']) for v, _ in variants(path)],
                         [('640x256', '23.976', 'audio'), ('320x128', '23.976', 'audio')])
        group, = sounds(path)
        self.assertEqual((group['TYPE'], group['GROUP-ID'], group['NAME'], group['DEFAULT'], group['CHANNELS']),
                         ('AUDIO', 'audio', 'high film', 'YES', '1'))
        audio = MediaPlaylist(path.parent / group['URI'])
        audio_peak = max(os.path.getsize(file) * 8 / duration for _, file, duration in audio.segments
                         if duration >= 0.5 * audio.target)
        for (variant, uri), film in zip(variants(path), (self.high, self.low)):
            level, = probe(film, 'v:0', 'stream=level')
            self.assertEqual(variant['CODECS'], f'avc1.6400{int(level):02x},mp4a.40.2')  # High
            track = MediaPlaylist(uri)
            peak = max(os.path.getsize(file) * 8 / duration for _, file, duration in track.segments)
            self.assertLess(abs(int(variant['BANDWIDTH']) - (peak + audio_peak)), 4)
            self.assertLess(int(variant['AVERAGE-BANDWIDTH']), int(variant['BANDWIDTH']))

    def test_ffmpeg_decodes_every_picture_and_sample(self):
        for name in ('index.m3u8', 'manifest.mpd'):
            path = self.ladder(name)
            for number, film in enumerate((self.high, self.low)):
                self.assertEqual(hashes(path, f'v:{number}'), hashes(film, 'v:0'), name)
            self.assert_same_sound(sound(path, 'a:0'), sound(self.high, 'a:0'))

    # ---------------------------------------------------------------------------------------- DASH

    def test_dash_is_as_the_standard_has_it(self):
        path = self.ladder('manifest.mpd')
        root = ElementTree.parse(path).getroot()
        self.assertEqual((root.get('type'), root.get('profiles')), ('static', 'urn:mpeg:dash:profile:isoff-live:2011'))
        self.assertEqual(root.get('mediaPresentationDuration'), 'PT3.003S')
        sets = root.findall('d:Period/d:AdaptationSet', MPD)
        self.assertEqual([(s.get('contentType'), s.get('segmentAlignment'), s.get('startWithSAP')) for s in sets],
                         [('video', 'true', '1'), ('audio', 'true', '1')])
        video = sets[0].findall('d:Representation', MPD)
        self.assertEqual([(r.get('width'), r.get('height'), r.get('frameRate')) for r in video],
                         [('640', '256', '24000/1001'), ('320', '128', '24000/1001')])
        for one in root.iter('{%s}Representation' % MPD['d']):
            template = one.find('d:SegmentTemplate', MPD)
            scale = int(template.get('timescale'))
            self.assertTrue((path.parent / template.get('initialization')).exists())
            clock, number = 0, int(template.get('startNumber'))
            for element in template.findall('d:SegmentTimeline/d:S', MPD):
                self.assertEqual(int(element.get('t')), clock)
                for _ in range(int(element.get('r', '0')) + 1):
                    clock += int(element.get('d'))
                    self.assertTrue((path.parent / template.get('media').replace('$Number$', str(number))).exists())
                    number += 1
            self.assertAlmostEqual(clock / scale, 3.0, delta=0.05)
            self.assertEqual(number, 3)

    # ---------------------------------------------------------------------------------------- browsers

    def watch(self, path, how):
        self.assertTrue((pathlib.Path(MODULES) / 'node_modules' / 'shaka-player').exists(),
                        'scripts/setup.sh installs what this test needs')
        seen = json.loads(run('node', SCRIPT, MODULES, path, how, RATE, PICTURES, 0).stdout)
        self.assertEqual(seen['errors'], [])
        self.assertEqual(seen['stepped'], list(range(PICTURES)))
        self.assertEqual(seen['played'], sorted(seen['played']))
        self.assertEqual(len(seen['sought']), 20)
        for pair in seen['sought']:
            self.assertEqual(pair['got'], pair['wanted'])
        # Every picture of the large one, and after the switch those of the small one.
        self.assertEqual(seen['widths'], [640, 320])

    def test_hls_js_shows_every_picture_in_its_place(self):
        self.watch(self.ladder('index.m3u8'), 'hls')

    def test_shaka_shows_every_picture_in_its_place(self):
        self.watch(self.ladder('manifest.mpd'), 'shaka')

    # ---------------------------------------------------------------------------------------- other inputs

    def test_sound_alone_and_sound_beside_a_film(self):
        german, english = self.work / 'german.m4a', self.work / 'english.m4a'
        for path, tone in ((german, 300), (english, 600)):
            ffmpeg('-f', 'lavfi', '-i', f'sine={tone}:d=3', '-c:a', 'aac', path)
        path = self.folder() / 'index.m3u8'
        pack(german, '-o', path)
        (variant, _), = variants(path)
        self.assertEqual(variant['CODECS'], 'mp4a.40.2')
        self.assertNotIn('RESOLUTION', variant)
        self.assert_same_sound(sound(path, 'a:0'), sound(german, 'a:0'))
        silent = self.work / 'silent.mp4'
        ffmpeg('-i', self.low, '-an', '-c', 'copy', silent)
        pack(silent, german, english, '-o', path)
        self.assertEqual([s['NAME'] for s in sounds(path)], ['german', 'english'])
        self.assertEqual([s.get('DEFAULT') for s in sounds(path)], ['YES', None])
        for number, film in enumerate((german, english)):
            self.assert_same_sound(sound(path, f'a:{number}'), sound(film, 'a:0'))

    def test_a_change_of_coding_is_told_or_refused(self):
        other = self.work / 'other.mp4'
        changing = self.work / 'changing.ts'
        ffmpeg('-f', 'lavfi', '-i', 'testsrc2=s=160x96:r=24000/1001:d=2', '-c:v', 'libx264', '-pix_fmt', 'yuv420p', other)
        streams = []
        for number, film in enumerate((self.low, other)):
            streams.append(self.work / f'{number}.ts')
            ffmpeg('-i', film, '-an', '-c', 'copy', '-output_ts_offset', 10 * number, streams[-1])
        changing.write_bytes(b''.join(stream.read_bytes() for stream in streams))
        path = self.folder() / 'index.m3u8'
        pack(changing, '-o', path)
        track = MediaPlaylist(variants(path)[0][1])
        self.assertEqual(len({init for init, _, _ in track.segments}), 2)
        self.assertEqual(track.tags().count('#EXT-X-DISCONTINUITY'), 1)
        refused = pack(changing, '-o', path.with_name('manifest.mpd'), check=False)
        self.assertEqual(refused.returncode, 1)
        self.assertIn(b'write HLS', refused.stderr)

    def test_open_groups_are_not_called_independent(self):
        film = self.work / 'open.mp4'
        ffmpeg('-f', 'lavfi', '-i', 'testsrc2=s=160x96:r=25:d=4', '-c:v', 'libx264', '-pix_fmt', 'yuv420p',
               '-x264-params', 'open-gop=1:keyint=24:min-keyint=24:bframes=2:b-adapt=0:scenecut=0', film)
        path = self.folder() / 'index.m3u8'
        pack(film, '-o', path, '--segment', '0.8s')
        self.assertNotIn('INDEPENDENT', path.read_text(encoding='utf-8'))
        self.assertNotIn('INDEPENDENT', variants(path)[0][1].read_text(encoding='utf-8'))
        self.assertEqual(hashes(path, 'v:0'), hashes(film, 'v:0'))
        manifest = path.with_suffix('.mpd')
        pack(film, '-o', manifest, '--segment', '0.8s')
        self.assertIn('startWithSAP="3"', manifest.read_text(encoding='utf-8'))
        self.assertEqual(hashes(manifest, 'v:0'), hashes(film, 'v:0'))

    def test_what_players_do_not_take_is_refused(self):
        film = self.work / 'mpeg2.mpg'
        ffmpeg('-f', 'lavfi', '-i', 'testsrc2=s=160x96:r=25:d=1', '-c:v', 'mpeg2video', film)
        folder = self.folder()
        for words, code, reason in (([film], 1, 'do not take'), ([self.low, '--segment', '5MB'], 2, 'is a duration'),
                                    ([self.low, '--realtime'], 2, 'muxora serve'),
                                    ([self.low, '--backup', '1'], 2, '--backup'),
                                    ([self.low, self.high, '--video', '0'], 2, 'each is a rendition'),
                                    ([self.high, self.low, '--strict'], 1, 'is left out')):
            refused = pack(*words, '-o', folder / 'index.m3u8', check=False)
            self.assertEqual(refused.returncode, code, refused.stderr)
            self.assertIn(reason, refused.stderr.decode())
            self.assertEqual(list(folder.iterdir()), [])

    # ---------------------------------------------------------------------------------------- files

    def test_a_second_run_takes_the_place_of_the_first(self):
        path = self.folder() / 'index.m3u8'
        pack(self.high, '-o', path)
        first = sorted(path.parent.iterdir())
        stranger = [entry for entry in first if entry.is_dir()][0] / 'notes.txt'
        pack(self.low, '-o', path)
        second = sorted(path.parent.iterdir())
        self.assertEqual(len(second), 2)
        self.assertNotEqual(first, second)
        self.assertEqual(hashes(path, 'v:0'), hashes(self.low, 'v:0'))
        # Files of others stay where they are.
        folder, = [entry for entry in second if entry.is_dir()]
        (folder / stranger.name).write_text('mine', encoding='utf-8')
        pack(self.high, '-o', path)
        self.assertEqual([entry.name for entry in folder.iterdir()], ['notes.txt'])

    def test_a_killed_run_leaves_the_playlist_that_was_there(self):
        path = self.folder() / 'index.m3u8'
        pack(self.low, '-o', path)
        before = path.read_bytes()
        # An input that never ends: a pipe that is not closed.
        with subprocess.Popen([TOOL, 'pack', '-', '-o', str(path), '--segment', '1s'], stdin=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            stream = self.work / 'pipe.ts'
            ffmpeg('-i', self.high, '-c', 'copy', stream)
            process.stdin.write(stream.read_bytes())
            process.stdin.flush()
            until = time.monotonic() + 120
            while not list(path.parent.glob('*/*-0.m4s')) and time.monotonic() < until:
                time.sleep(0.02)
            while len(list(path.parent.glob('index-hls-*'))) < 2 and time.monotonic() < until:
                time.sleep(0.02)
            busy = pack(self.low, '-o', path, check=False)
            self.assertEqual(busy.returncode, 1)
            self.assertIn(b'is being written by process', busy.stderr)
            process.send_signal(signal.SIGKILL)
            process.wait(60)
        self.assertEqual(path.read_bytes(), before)
        self.assertEqual(hashes(path, 'v:0'), hashes(self.low, 'v:0'))
        pack(self.low, '-o', path)
        self.assertEqual(len(list(path.parent.iterdir())), 2)
        self.assertEqual(math.ceil(MediaPlaylist(variants(path)[0][1]).target), 3)


if __name__ == '__main__':
    unittest.main(verbosity=2)
