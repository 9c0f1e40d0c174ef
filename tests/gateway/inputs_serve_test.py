"""Every kind of input, with ffmpeg as the sender on the loopback: what comes in is what goes out, picture by picture."""

import json
import os
import shutil
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from gateway import API_TOKEN, Gateway, free_port, make_clip, missing, numbers, packets

FOLDER = tempfile.mkdtemp(prefix='gateway-inputs-')
CLIP = make_clip(os.path.join(FOLDER, 'clip.mp4'))
PICTURES = 150
KEY = 'key-of-the-sender'


def tearDownModule():
    shutil.rmtree(FOLDER, ignore_errors=True)


class Sender:
    """ffmpeg that sends the clip again and again; started anew while nobody listens yet."""

    def __init__(self, *output, stdout=subprocess.DEVNULL):
        self.command = ['ffmpeg', '-v', 'error', '-re', '-stream_loop', '-1', '-i', CLIP, *output]
        self.stdout = stdout
        self.stopped = threading.Event()
        self.process = self.start()
        self.thread = threading.Thread(target=self.keep, daemon=True)
        self.thread.start()

    def start(self):
        return subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=self.stdout, stderr=subprocess.DEVNULL)

    def keep(self):
        while not self.stopped.wait(0.3):
            if self.process.poll() is not None and self.stdout == subprocess.DEVNULL:
                self.process = self.start()

    def stop(self):
        self.stopped.set()
        self.thread.join()
        self.process.kill()
        self.process.wait()
        if self.process.stdout:
            self.process.stdout.close()


def even_port():
    while True:
        port = free_port(socket.SOCK_DGRAM)
        if port % 2 == 0 and port < 65000:
            return port


class Inputs(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        udp, srt, rtmp = free_port(socket.SOCK_DGRAM), free_port(socket.SOCK_DGRAM), free_port()
        video, audio = even_port(), even_port()
        while abs(video - audio) < 4:
            audio = even_port()
        description = os.path.join(FOLDER, 'clip.sdp')
        copy = ('-c', 'copy')
        pipe = Sender(*copy, '-f', 'mpegts', '-', stdout=subprocess.PIPE)
        cls.senders = [
            pipe,
            Sender(*copy, '-f', 'mpegts', f'udp://127.0.0.1:{udp}?pkt_size=1316'),
            Sender(*copy, '-f', 'mpegts', f'srt://127.0.0.1:{srt}?mode=caller'),
            Sender(*copy, '-f', 'flv', f'rtmp://127.0.0.1:{rtmp}/live/{KEY}'),
            Sender('-an', *copy, '-f', 'rtp', f'rtp://127.0.0.1:{video}?pkt_size=1200', '-vn', *copy, '-f', 'rtp',
                   f'rtp://127.0.0.1:{audio}?pkt_size=1200', '-sdp_file', description)]
        end = time.monotonic() + 120
        while True:
            try:
                with open(description, 'rb') as file:
                    if b'm=audio' in file.read():
                        break
            except FileNotFoundError:
                pass
            assert time.monotonic() < end
            time.sleep(0.1)
        cls.gateway = Gateway(
            f'film={CLIP}', 'pipe=-', f'udp=udp://127.0.0.1:{udp}', f'srt=srt://127.0.0.1:{srt}?mode=listener',
            f'rtmp=listen+rtmp://127.0.0.1:{rtmp}/live/{KEY}', f'sdp={description}', stdin=pipe.process.stdout)
        cls.gateway.wait_for(lambda s: s['film']['pictures'] > 60)
        # Of another gateway, or of a camera: by its address.
        rtsp = next(one for one in cls.gateway.addresses if one.startswith('rtsp://') and one.endswith('/film'))
        assert cls.gateway.ask('POST', '/api/streams', json.dumps({'name': 'rtsp', 'input': rtsp}), token=API_TOKEN)[0] == 201

    @classmethod
    def tearDownClass(cls):
        code = cls.gateway.stop(seconds=60)
        for sender in cls.senders:
            sender.stop()
        assert code == 0, cls.gateway.log_text()
        assert KEY not in cls.gateway.log_text(), cls.gateway.log_text()

    def comes_in(self, name):
        self.gateway.wait_for(lambda s: s[name]['state'] == 'live' and s[name]['pictures'] > 50 and s[name]['sounds'] > 50, seconds=180)
        one = self.gateway.streams()[name]
        self.assertEqual(one['video'], 'H.264 320x180')
        self.assertEqual(one['audio'], 'AAC 48000 Hz, 1 ch')
        found = numbers(self.gateway.url(f'/{name}.ts'))
        self.assertEqual(len(found), 75)
        self.assertEqual(missing(found, PICTURES), [])
        streams, read, _ = packets(self.gateway.url(f'/{name}.mkv'), seconds=2, timeout=120)
        self.assertEqual({one['codec_name'] for one in streams}, {'h264', 'aac'})
        self.assertGreater(sum(one['codec_type'] == 'audio' for one in read), 30)

    def test_pipe(self):
        self.comes_in('pipe')

    def test_udp(self):
        self.comes_in('udp')

    def test_srt(self):
        self.comes_in('srt')

    def test_rtmp_that_waits_for_its_sender(self):
        self.comes_in('rtmp')
        # The sender's key is its password: whoever sees the list or the log does not learn it.
        self.assertTrue(self.gateway.streams()['rtmp']['input'].startswith('listen+rtmp://127.0.0.1:'))
        for path in ('/api/streams', '/metrics', '/api/streams/rtmp'):
            self.assertNotIn(KEY.encode(), self.gateway.get(path))

    def test_sdp(self):
        self.comes_in('sdp')

    def test_rtsp(self):
        self.comes_in('rtsp')


class Times(unittest.TestCase):
    @staticmethod
    def leaping(name, ticks):
        """The clip, with so much added to all times behind the second second."""
        path = os.path.join(tempfile.mkdtemp(dir=FOLDER), name + '.nut')
        leap = f'setts=ts=if(gt(TS*TB\\,2)\\,TS+{ticks}\\,TS)'
        subprocess.run(['ffmpeg', '-v', 'error', '-i', CLIP, '-c', 'copy', '-bsf:v', leap, '-bsf:a', leap, path], check=True, timeout=60)
        return path

    def test_a_file_whose_times_leap_by_ages_goes_on_at_once(self):
        # By 31 years, and beyond all that is counted with.
        with Gateway('leap=' + self.leaping('leap', '1e9/TB'), 'far=' + self.leaping('far', '1e15')) as gateway:
            # Twice round.
            gateway.wait_for(lambda s: all(one['pictures'] > 320 for one in s.values()), seconds=120)
            for name, one in gateway.streams().items():
                with self.subTest(name):
                    self.assertGreater(one['repairs']['video']['jumps'], 0)
                    found = numbers(gateway.url(f'/{name}.ts'))
                    self.assertEqual(missing(found, PICTURES), [])
            found = packets(gateway.url('/leap.ts'), seconds=7, timeout=120)[1]
            times = [float(one['dts_time']) for one in found if one['codec_type'] == 'video']
            self.assertTrue(all(0 < b - a < 1 for a, b in zip(times, times[1:])), times)
            self.assertEqual(gateway.stop(), 0, gateway.log_text())


if __name__ == '__main__':
    unittest.main(verbosity=2)
