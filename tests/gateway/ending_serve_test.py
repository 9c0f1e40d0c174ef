"""How the gateway ends: with inputs that do not come back, clients that listen, streams that come and go; and how it does not begin."""

import glob
import json
import os
import shutil
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from gateway import API_TOKEN, SERVE, Gateway, free_port, make_clip

FOLDER = tempfile.mkdtemp(prefix='gateway-ending-')
CLIP = make_clip(os.path.join(FOLDER, 'clip.mp4'), seconds=4)


def tearDownModule():
    shutil.rmtree(FOLDER, ignore_errors=True)


class Ending(unittest.TestCase):
    def ended(self, gateway, code):
        self.assertEqual(code, 0, gateway.log_text())
        self.assertNotIn('Sanitizer', gateway.log_text())
        self.assertNotIn('runtime error', gateway.log_text())

    def test_inputs_that_do_not_come_back_hold_up_no_end(self):
        """A pipe that says nothing, and one that nobody opens for writing: the recording beside them gets its index."""
        fifo = os.path.join(FOLDER, 'fifo')
        os.mkfifo(fifo)
        with Gateway('pipe=-', f'mouth={fifo}', f'film={CLIP}', '--record', FOLDER, stdin=subprocess.PIPE) as gateway:
            gateway.wait_for(lambda s: s['film']['pictures'] > 60)
            # What is removed before does not hold it up either, nor does its removal wait.
            self.assertEqual(gateway.ask('DELETE', '/api/streams/mouth', token=API_TOKEN)[0], 200)
            self.ended(gateway, gateway.stop(seconds=60))
            self.assertIn('an input does not come back', gateway.log_text())
            gateway.process.stdin.close()
        with open(glob.glob(os.path.join(FOLDER, 'film', '*.mp4'))[0], 'rb') as recording:
            self.assertIn(b'moov', recording.read())

    def test_clients_of_every_kind_hear_of_the_end(self):
        with Gateway(f'film={CLIP}') as gateway:
            gateway.wait_for(lambda s: s['film']['pictures'] > 60)
            rtsp = next(one for one in gateway.addresses if one.startswith('rtsp://'))
            rtsp_port = int(rtsp.split(':')[2].split('/')[0])
            key = 'Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n'
            clients = []
            for port, request in (
                    (gateway.port, 'GET /film.ts HTTP/1.1\r\nHost: x\r\n\r\n'),
                    (gateway.port, f'GET /film.mp4 HTTP/1.1\r\nHost: x\r\n{key}\r\n'),
                    (gateway.port, 'GET /film/video.m3u8?_HLS_msn=3 HTTP/1.1\r\nHost: x\r\n\r\n'),
                    (gateway.port, 'GET /fi'),
                    (rtsp_port, 'SETUP rtsp://h/film/trackID=0 RTSP/1.0\r\nCSeq: 1\r\nTransport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n')):
                client = socket.create_connection(('127.0.0.1', port), timeout=60)
                self.addCleanup(client.close)
                client.sendall(request.encode())
                clients.append(client)
            answer = clients[-1].recv(4096).decode()
            session = answer.split('Session: ')[1].split(';')[0]
            clients[-1].sendall(f'PLAY rtsp://h/film RTSP/1.0\r\nCSeq: 2\r\nSession: {session}\r\n\r\n'.encode())
            gateway.wait_for(lambda s: {'ts': 1, 'mp4': 1, 'rtsp': 1}.items() <= s['film']['clients'].items())
            # All of it at the same time: the stream is removed, the gateway ends, the clients are told.
            removing = threading.Thread(target=lambda: self.try_to('DELETE', gateway, '/api/streams/film'))
            removing.start()
            self.ended(gateway, gateway.stop(seconds=60))
            removing.join()
            for client in clients:
                try:
                    while client.recv(65536):
                        pass
                except ConnectionResetError:
                    pass

    @staticmethod
    def try_to(method, gateway, path, body=None):
        try:
            return gateway.ask(method, path, body, token=API_TOKEN)[0]
        except OSError:
            return None  # it has ended

    def test_streams_come_and_go_from_many_sides(self):
        names = ('one', 'two')
        with Gateway('--record', FOLDER) as gateway:
            until = time.monotonic() + 3
            answers = []

            def change(index):
                add = {name: json.dumps({'name': name, 'input': f'udp://127.0.0.1:{free_port(socket.SOCK_DGRAM)}'}) for name in names}
                while time.monotonic() < until:
                    for name in names if index % 2 else reversed(names):
                        answers.append(self.try_to('POST', gateway, '/api/streams', add[name]))
                        self.try_to('GET', gateway, f'/{name}.none')
                        answers.append(self.try_to('DELETE', gateway, f'/api/streams/{name}'))
            threads = [threading.Thread(target=change, args=(index,)) for index in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            # 409, or 400 where both looked before one of them added.
            self.assertLessEqual(set(answers), {200, 201, 400, 404, 409})
            self.assertIn(201, answers)
            # Each was added as often as it was removed, and there is none too many now.
            self.assertEqual(answers.count(201), answers.count(200))
            self.assertEqual(gateway.streams(), {})
            self.ended(gateway, gateway.stop(seconds=60))

    def test_an_input_that_is_none_ends_what_was_begun(self):
        done = subprocess.run([SERVE, '--port', '0', '--rtsp-port', '0', f'film={CLIP}', f'none={FOLDER}/none.mp4'],
                              capture_output=True, text=True, timeout=120, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.strip().splitlines()[-1], f'muxora serve: none: {FOLDER}/none.mp4: there is no such file')

    def test_ports_that_are_taken(self):
        with socket.socket() as taken:
            taken.bind(('127.0.0.1', 0))
            taken.listen()
            port = str(taken.getsockname()[1])
            for words in (('--port', port, '--rtsp-port', '0'), ('--port', '0', '--rtsp-port', port)):
                done = subprocess.run([SERVE, *words, f'film={CLIP}'], capture_output=True, text=True, timeout=120, check=False)
                self.assertEqual(done.returncode, 1)
                self.assertIn(f'muxora serve: cannot listen on 127.0.0.1:{port}', done.stderr)
                self.assertEqual(len(done.stderr.strip().splitlines()), 1, done.stderr)


if __name__ == '__main__':
    unittest.main(verbosity=2)
