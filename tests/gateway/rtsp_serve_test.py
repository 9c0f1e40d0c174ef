"""RTSP as players know it: over UDP and interleaved TCP, joining in the middle of a group of pictures."""

import os
import shutil
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from gateway import Gateway, make_clip, missing, numbers, packets

FOLDER = tempfile.mkdtemp(prefix='gateway-rtsp-')
PICTURES = 150  # of a clip


def setUpModule():
    clips = {'aac': make_clip(os.path.join(FOLDER, 'aac.mp4'), gop=50, size='640x360', bitrate='1500k'),
             'bees': make_clip(os.path.join(FOLDER, 'bees.mkv'), video='h264b', gop=50),
             'hevc': make_clip(os.path.join(FOLDER, 'hevc.mkv'), video='hevc', audio='mulaw', gop=50),
             'alaw': make_clip(os.path.join(FOLDER, 'alaw.mkv'), audio='alaw')}
    global GATEWAY
    GATEWAY = Gateway(*[f'{name}={path}' for name, path in clips.items()])
    GATEWAY.wait_for(lambda s: all(one['pictures'] > 60 for one in s.values()), seconds=60)


def tearDownModule():
    code = GATEWAY.stop()
    shutil.rmtree(FOLDER, ignore_errors=True)
    assert code == 0, GATEWAY.log_text()


def address(name):
    return next(one for one in GATEWAY.addresses if one.startswith('rtsp://') and one.endswith('/' + name))


class Rtsp(unittest.TestCase):
    def read(self, name, transport, codecs):
        streams, found, errors = packets(address(name), seconds=3, more=('-rtsp_transport', transport))
        self.assertEqual({one['codec_name'] for one in streams}, codecs)
        video = [one for one in found if one['codec_type'] == 'video']
        audio = [one for one in found if one['codec_type'] == 'audio']
        self.assertGreater(len(video), 50, errors)
        self.assertGreater(len(audio), 50, errors)
        self.assertIn('K', video[0]['flags'])
        shown = numbers(address(name), more=('-rtsp_transport', transport))
        self.assertEqual(len(shown), 75)
        self.assertEqual(missing(shown, PICTURES), [])

    def test_h264_and_aac(self):
        for transport in ('tcp', 'udp'):
            with self.subTest(transport):
                self.read('aac', transport, {'h264', 'aac'})

    def test_h265_and_mulaw(self):
        for transport in ('tcp', 'udp'):
            with self.subTest(transport):
                self.read('hevc', transport, {'hevc', 'pcm_mulaw'})

    def test_alaw(self):
        self.read('alaw', 'tcp', {'h264', 'pcm_alaw'})

    def test_b_pictures(self):
        self.read('bees', 'tcp', {'h264', 'aac'})

    def test_pictures_are_whole(self):
        """The decoder has no word to say, over either transport, with two clients at a time."""
        results = {}

        def decode(transport):
            results[transport] = subprocess.run(
                ['ffmpeg', '-v', 'error', '-rtsp_transport', transport, '-i', address('aac'), '-t', '3', '-f', 'framemd5', '-'],
                capture_output=True, text=True, timeout=120, check=False)
        threads = [threading.Thread(target=decode, args=(transport,)) for transport in ('tcp', 'udp')]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for transport, done in results.items():
            self.assertEqual((done.returncode, done.stderr), (0, ''), transport)
            self.assertGreater(done.stdout.count('\n0,'), 50, transport)

    def test_gstreamer(self):
        # Where many programs want the processor, loading its plugins alone takes it half a minute.
        for name, decoders in (('aac', ('avdec_h264', 'avdec_aac')), ('hevc', ('avdec_h265', 'mulawdec'))):
            for scheme in ('rtspt', 'rtspu'):  # its names for TCP and UDP
                with self.subTest(name, scheme=scheme):
                    done = subprocess.run(
                        ['timeout', '120', 'gst-launch-1.0', '-v', 'playbin', 'uri=' + address(name).replace('rtsp:', scheme + ':'),
                         'video-sink=fakesink num-buffers=50', 'audio-sink=fakesink num-buffers=50'],
                        capture_output=True, text=True, timeout=150, check=False)
                    self.assertEqual(done.returncode, 0, done.stderr)
                    for decoder in decoders:
                        self.assertRegex(done.stdout, decoder + r'[^ ]*src: caps = (video|audio)/x-raw')

    def talk(self, *requests):
        port = int(address('aac').split(':')[2].split('/')[0])
        answers = []
        with socket.create_connection(('127.0.0.1', port), timeout=20) as client:
            for request in requests:
                client.sendall(request.encode())
                answers.append(client.recv(65536).decode(errors='replace'))
        return answers

    def test_wrong_requests(self):
        base = 'rtsp://127.0.0.1/aac'
        expected = [
            (f'DESCRIBE rtsp://127.0.0.1/none RTSP/1.0\r\nCSeq: 1\r\n\r\n', '404'),
            (f'DESCRIBE rtsp://127.0.0.1/../etc RTSP/1.0\r\nCSeq: 1\r\n\r\n', '404'),
            (f'ANNOUNCE {base} RTSP/1.0\r\nCSeq: 1\r\n\r\n', '501'),
            (f'PLAY {base} RTSP/1.0\r\nCSeq: 1\r\nSession: x\r\n\r\n', '454'),
            (f'SETUP {base} RTSP/1.0\r\nCSeq: 1\r\nTransport: RTP/AVP/TCP\r\n\r\n', '459'),
            (f'SETUP {base}/trackID=9 RTSP/1.0\r\nCSeq: 1\r\nTransport: RTP/AVP/TCP\r\n\r\n', '459'),
            (f'SETUP {base}/trackID=0 RTSP/1.0\r\nCSeq: 1\r\nTransport: RAW\r\n\r\n', '461'),
            ('GET / HTTP/1.1\r\n\r\n', '400'),
        ]
        for request, status in expected:
            self.assertIn(f'RTSP/1.0 {status} ', self.talk(request)[0], request)
        options = self.talk('OPTIONS * RTSP/1.0\r\nCSeq: 7\r\n\r\n')[0]
        self.assertIn('CSeq: 7', options)

    def test_a_client_that_goes_away_is_forgotten(self):
        port = int(address('aac').split(':')[2].split('/')[0])
        with socket.create_connection(('127.0.0.1', port), timeout=20) as client:
            for request in ('SETUP rtsp://h/aac/trackID=0 RTSP/1.0\r\nCSeq: 1\r\nTransport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n',):
                client.sendall(request.encode())
                answer = client.recv(4096).decode()
            session = answer.split('Session: ')[1].split(';')[0]
            client.sendall(f'PLAY rtsp://h/aac RTSP/1.0\r\nCSeq: 2\r\nSession: {session}\r\n\r\n'.encode())
            data = b''
            while b'$\x01' not in data or len(data) < 20000:
                data += client.recv(65536)
            # The first thing behind the answer is a sender report on the second channel.
            self.assertEqual(data.split(b'\r\n\r\n', 1)[1][:2], b'$\x01')
            self.assertEqual(GATEWAY.streams()['aac']['clients']['rtsp'], 1)
        GATEWAY.wait_for(lambda s: s['aac']['clients']['rtsp'] == 0)


if __name__ == '__main__':
    unittest.main(verbosity=2)
