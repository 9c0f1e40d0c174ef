"""Recordings: files by time that play, also after a kill; old ones go; a full disk ends no stream."""

import glob
import os
import resource
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from gateway import Gateway, make_clip, packets

FOLDER = tempfile.mkdtemp(prefix='gateway-record-')
CLIP = make_clip(os.path.join(FOLDER, 'clip.mp4'), seconds=4)
B_CLIP = make_clip(os.path.join(FOLDER, 'b_clip.mp4'), seconds=4, video='h264b')


def tearDownModule():
    shutil.rmtree(FOLDER, ignore_errors=True)


def files(folder):
    return sorted(glob.glob(os.path.join(folder, 'film', '*.mp4')))


def wait_for(what, seconds=60):
    end = time.monotonic() + seconds
    while not what():
        assert time.monotonic() < end
        time.sleep(0.1)


def pictures(path):
    found = packets(path, seconds=1000)[1]
    return [one for one in found if one['codec_type'] == 'video']


def duration(path):
    """As a player shows it."""
    return float(subprocess.run(['ffprobe', '-v', 'error', '-show_entries', 'format=duration', '-of', 'csv=p=0', path],
                                check=True, capture_output=True, text=True).stdout)


class Recording(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(dir=FOLDER)

    def test_files_follow_one_another_without_a_gap(self):
        # Pictures that are shown as they are decoded, and with B pictures two or three later.
        for clip, shown_by in ((CLIP, 0.03), (B_CLIP, 0.13)):
            with self.subTest(clip=clip):
                folder = tempfile.mkdtemp(dir=FOLDER)
                with Gateway(f'film={clip}', '--record', folder, '--segment', '2s') as gateway:
                    wait_for(lambda there=folder: len(files(there)) >= 4)
                    # Sound comes behind the picture that a file begins with.
                    seen = gateway.streams()['film']['pictures']
                    gateway.wait_for(lambda s, before=seen: s['film']['pictures'] > before + 10)
                    self.assertEqual(gateway.stop(), 0)
                self.check_files(files(folder), shown_by)

    def check_files(self, paths, shown_by):
        counts = []
        for number, path in enumerate(paths):
            found = packets(path, seconds=1000)[1]
            video = [one for one in found if one['codec_type'] == 'video']
            self.assertIn('K', video[0]['flags'], path)
            counts.append(len(video))
            # Each plays from its own beginning, picture and sound together; sound may begin a frame earlier.
            sound = [one for one in found if one['codec_type'] == 'audio']
            self.assertLess(abs(float(video[0]['pts_time'])), shown_by, path)
            self.assertLess(abs(float(sound[0]['pts_time'])), 0.1, path)
            self.assertLess(duration(path), 2.3, path)
            if number > 0:
                # Nothing is hidden from players; the encoder's priming is, in the first file.
                self.assertEqual([one for one in found if 'D' in one['flags']], [], path)
        # Two seconds each but for the last, which the end of the gateway cut.
        self.assertEqual(set(counts[:-1]), {50})
        with open(paths[-1], 'rb') as last:
            self.assertIn(b'moov', last.read())

    def test_after_a_kill_what_was_recorded_plays(self):
        with Gateway(f'film={CLIP}', '--record', self.folder, '--segment', '1h') as gateway:
            gateway.wait_for(lambda s: s['film']['pictures'] > 150)
            before = gateway.streams()['film']['pictures']
            gateway.process.send_signal(signal.SIGKILL)
            gateway.process.wait()
        self.assertGreater(len(pictures(files(self.folder)[0])), before - 60)

    def test_old_files_go(self):
        size = 250000
        with Gateway(f'film={CLIP}', '--record', self.folder, '--segment', '1s', '--keep', '250K') as gateway:
            wait_for(lambda: 'film' in os.listdir(self.folder) and len(files(self.folder)) >= 2)
            first = files(self.folder)[0]
            wait_for(lambda: not os.path.exists(first))
            gateway.wait_for(lambda s: s['film']['pictures'] > 200)
            held = sum(os.path.getsize(path) for path in files(self.folder) if os.path.exists(path))
            self.assertLess(held, size + 200000)

    def test_a_disk_that_is_full_ends_no_stream(self):
        with Gateway(f'film={CLIP}', '--record', self.folder, '--segment', '1h') as gateway:
            resource.prlimit(gateway.process.pid, resource.RLIMIT_FSIZE, (150000, 150000))
            wait_for(lambda: 'recording stopped' in gateway.log_text())
            seen = gateway.streams()['film']['pictures']
            gateway.wait_for(lambda s: s['film']['pictures'] > seen + 25)
            self.assertGreater(len(packets(gateway.url('/film.ts'))[1]), 50)
            self.assertGreater(len(pictures(files(self.folder)[0])), 20)  # what was written before plays

    def test_wrong_spans(self):
        for words in (('--segment', '10x'), ('--keep', 'much'), ('--segment', '-1s')):
            done = subprocess.run([os.environ['MUXORA_SERVE'], *words], capture_output=True, text=True, check=False)
            self.assertEqual(done.returncode, 2, words)


if __name__ == '__main__':
    unittest.main(verbosity=2)
