"""Streams between gateways, over servers of NATS that die, from origins that die: no picture is lost at the viewers."""

import http.client
import os
import shutil
import subprocess
import tempfile
import threading
import time
import unittest

from gateway import SERVE, Gateway, make_certificate, make_clip, numbers_of, packets
from nats_cluster import Cluster

FOLDER = tempfile.mkdtemp(prefix='gateway-relay-')
# Longer than a test on a slow machine; its numbers have twelve bits.
PICTURES = 160 * 25
CLIP = make_clip(os.path.join(FOLDER, 'clip.mp4'), seconds=160, size='240x64', bitrate='100k')


def tearDownModule():
    shutil.rmtree(FOLDER, ignore_errors=True)


class Viewer(threading.Thread):
    """Takes the FLV of a stream as it comes, until it is told that it has enough."""

    def __init__(self, gateway, name):
        super().__init__(daemon=True)
        self.gateway = gateway
        self.name_of_stream = name
        self.bytes = bytearray()
        self.enough = threading.Event()
        self.trouble = None
        self.start()

    def run(self):
        try:
            connection = http.client.HTTPConnection('127.0.0.1', self.gateway.port, timeout=120)
            connection.request('GET', f'/{self.name_of_stream}.flv')
            answer = connection.getresponse()
            assert answer.status == 200, answer.status
            while not self.enough.is_set():
                piece = answer.read1(65536)
                assert piece, 'the stream ended'
                self.bytes += piece
            connection.close()
        except Exception as error:  # pylint: disable=broad-except
            self.trouble = error

    def tags(self, kind=9):
        """Type 9 are pictures, 8 is sound: their times in milliseconds and their bytes (FLV, E.4.1), as far as they are whole."""
        data, at, found = bytes(self.bytes), 13, []
        while at + 11 <= len(data):
            size = int.from_bytes(data[at + 1:at + 4], 'big')
            if at + 11 + size + 4 > len(data):
                break
            if data[at] == kind:
                ms = int.from_bytes(data[at + 4:at + 7], 'big') | data[at + 7] << 24
                found.append((ms, data[at + 11:at + 11 + size]))
            at += 11 + size + 4
        return found

    def pictures(self):
        """The times of the pictures: what begins with 01 in its second byte is one, and no parameter sets."""
        return [ms for ms, body in self.tags() if body[1] == 1]

    def wait_for_pictures(self, count, seconds=180):
        end = time.monotonic() + seconds
        while len(self.pictures()) < count:
            assert self.trouble is None, self.trouble
            assert time.monotonic() < end, f'{len(self.pictures())} of {count} pictures: {self.gateway.log_text()[-2000:]}'
            time.sleep(0.1)

    def numbers(self):
        """The numbers painted into the pictures that came."""
        self.enough.set()
        self.join(60)
        assert self.trouble is None, self.trouble
        path = os.path.join(FOLDER, f'{self.gateway.port}.flv')
        with open(path, 'wb') as out:
            out.write(self.bytes)
        return numbers_of(path)


class Relay(unittest.TestCase):
    def ended(self, gateway):
        self.assertEqual(gateway.stop(seconds=60), 0, gateway.log_text())
        self.assertNotIn('Sanitizer', gateway.log_text())
        self.assertNotIn('runtime error', gateway.log_text())

    def one_break(self, viewer, last):
        """Pictures go on one by one to the first origin's last, and from the other's first; their times go on as well."""
        seen = viewer.numbers()
        times = viewer.pictures()[:len(seen)]
        at = [i for i in range(1, len(seen)) if seen[i] != seen[i - 1] + 1]
        self.assertEqual(len(at), 1, seen)
        self.assertEqual(seen[at[0]], 0, seen)
        self.assertGreaterEqual(seen[at[0] - 1], last)
        steps = [b - a for a, b in zip(times, times[1:])]
        self.assertGreater(steps[at[0] - 1], 0)
        self.assertLess(steps[at[0] - 1], 500)
        del steps[at[0] - 1]
        self.assertEqual(set(steps), {40})

    def test_a_server_and_an_origin_die_and_no_picture_is_lost(self):
        with Cluster() as cluster, Gateway(f'cam={CLIP}', '--publish', cluster.url()) as origin, \
                Gateway('--from', cluster.url(1), '--no-rtsp') as one, Gateway(f'cam={cluster.url(2)}', '--no-rtsp') as two:
            for edge in (one, two):
                edge.wait_for(lambda s: 'cam' in s and s['cam']['pictures'] > 0, seconds=120)
            viewers = [Viewer(edge, 'cam') for edge in (one, two)]
            for viewer in viewers:
                viewer.wait_for_pictures(25)

            # The server dies that leads, once all three have everything.
            end = time.monotonic() + 120
            while cluster.copies_of('muxora-cam') < 3:
                self.assertLess(time.monotonic(), end, 'not on three servers')
                time.sleep(0.1)
            leader = cluster.leader_of('muxora-cam')
            leader.kill()
            at_least = max(len(viewer.pictures()) for viewer in viewers) + 50
            for viewer in viewers:
                viewer.wait_for_pictures(at_least)

            # The origin dies when the servers have all that it had, and another one begins.
            had = origin.wait_for(lambda s: s['cam']['relayed'] >= s['cam']['pictures'] + s['cam']['sounds'], every=0.01)['cam']
            origin.process.kill()
            origin.process.wait()
            self.assertLess(had['pictures'], PICTURES, 'the clip is too short for this machine')
            with Gateway(f'cam={CLIP}', '--publish', cluster.url()) as other:
                at_least = max(len(viewer.pictures()) for viewer in viewers) + 50
                for viewer in viewers:
                    viewer.wait_for_pictures(at_least)
                for viewer in viewers:
                    self.one_break(viewer, had['pictures'] - 1)
                self.ended(other)
            for edge in (one, two):
                self.assertEqual(edge.streams()['cam']['damaged'], 0)
                self.ended(edge)

    def test_times_and_frames_are_the_same_at_the_edge(self):
        """Pictures out of order, G.711, and messages so small that every key frame goes in pieces."""
        clip = make_clip(os.path.join(FOLDER, 'b.mkv'), seconds=20, video='h264b', audio='mulaw', bitrate='600k')
        with Cluster(size=1, more='max_payload: 8192\n') as server, \
                Gateway(f'film={clip}', '--publish', server.url()) as origin, \
                Gateway(f'same={server.url()}/film', '--no-rtsp') as edge:
            edge.wait_for(lambda s: s['same']['pictures'] > 25, seconds=120)
            sides = [{}, {}]

            def read(side, url):
                for packet in packets(url, 6)[1]:
                    if 'pts_time' in packet:
                        side[packet['codec_type'], packet['pts_time']] = packet['dts_time'], packet['size'], packet['flags']
            readers = [threading.Thread(target=read, args=(side, gateway.url(path)))
                       for side, gateway, path in zip(sides, (origin, edge), ('/film.mp4', '/same.mp4'))]
            for reader in readers:
                reader.start()
            for reader in readers:
                reader.join()
            common = sides[0].keys() & sides[1].keys()
            self.assertGreater(sum(kind == 'video' for kind, _ in common), 50)
            self.assertGreater(sum(kind == 'audio' for kind, _ in common), 50)
            for key in common:
                self.assertEqual(sides[0][key], sides[1][key], key)
            # More messages than frames: some went in pieces.
            told = origin.streams()['film']
            self.assertGreater(told['relayed'], told['pictures'] + told['sounds'])
            self.assertEqual(edge.streams()['same']['damaged'], 0)
            self.ended(edge)
            self.ended(origin)

    def test_the_only_server_comes_late_and_begins_anew(self):
        with Cluster(size=1) as server:
            server.servers[0].kill()
            with Gateway(f'cam={CLIP}', '--publish', server.url()) as origin, Gateway('--from', server.url(), '--no-rtsp') as edge:
                origin.wait_for(lambda s: s['cam']['pictures'] > 30)
                self.assertEqual(origin.streams()['cam']['relayed'], 0)
                self.assertEqual(edge.streams(), {})
                server.servers[0].start()
                edge.wait_for(lambda s: 'cam' in s and s['cam']['pictures'] > 30, seconds=120)
                self.assertEqual(edge.get('/health'), b'ok, 1 of 1 streams live\n')
                # With an empty memory, as after a new start of its machine.
                server.servers[0].kill()
                shutil.rmtree(os.path.join(server.folder, 'n0'))
                viewer = Viewer(edge, 'cam')
                server.servers[0].start()
                viewer.wait_for_pictures(100)
                seen = viewer.numbers()
                self.assertLessEqual(len([1 for a, b in zip(seen, seen[1:]) if b != a + 1]), 1, seen)
                self.assertEqual(sorted(seen), seen)
                self.ended(edge)
                self.ended(origin)

    def test_a_second_origin_stands_by(self):
        """Two origins of one name: the later one is followed, and when it dies the other one again."""
        with Cluster(size=1) as server, Gateway(f'cam={CLIP}', '--publish', server.url()) as first, \
                Gateway('--from', server.url(), '--no-rtsp') as edge:
            edge.wait_for(lambda s: 'cam' in s and s['cam']['pictures'] > 0, seconds=120)
            viewer = Viewer(edge, 'cam')
            viewer.wait_for_pictures(50)
            with Gateway(f'cam={CLIP}', '--publish', server.url()) as second:
                second.wait_for(lambda s: s['cam']['pictures'] > 50)
                viewer.wait_for_pictures(125)
                second.process.kill()
                second.process.wait()
            viewer.wait_for_pictures(len(viewer.pictures()) + 50)
            seen = viewer.numbers()
            breaks = [(a, b) for a, b in zip(seen, seen[1:]) if b != a + 1]
            self.assertEqual(len(breaks), 2, seen)
            self.assertEqual(breaks[0][1], 0)
            self.assertEqual(breaks[1][1] % 25, 0)
            self.assertGreater(breaks[1][1], breaks[0][0])
            self.ended(edge)
            self.ended(first)

    def test_tls_with_a_certificate_that_is_trusted_and_with_one_that_is_not(self):
        with tempfile.TemporaryDirectory(prefix='gateway-tls-') as folder:
            certificate, key = os.path.join(folder, 'cert.pem'), os.path.join(folder, 'key.pem')
            make_certificate(certificate, key)
            trusting = {'SSL_CERT_FILE': certificate}
            with Cluster(size=1, more=f'tls {{ cert_file: "{certificate}", key_file: "{key}" }}\n') as server:
                url = server.url().replace('nats://', 'tls://')
                with Gateway(f'cam={CLIP}', '--publish', url, env=trusting) as origin, \
                        Gateway('--from', url, '--no-rtsp', env=trusting) as edge, \
                        Gateway(f'other={CLIP}', '--publish', url, '--no-rtsp') as stranger:
                    edge.wait_for(lambda s: 'cam' in s and s['cam']['pictures'] > 0, seconds=120)
                    Viewer(edge, 'cam').wait_for_pictures(50)
                    stranger.wait_for(lambda s: s['other']['pictures'] > 50)
                    self.assertEqual(stranger.streams()['other']['relayed'], 0)
                    self.assertEqual(list(edge.streams()), ['cam'])
                    for one in (edge, origin, stranger):
                        self.ended(one)

    def test_words_that_are_no_relay(self):
        for words, why in ((('--publish', 'nats:4222'), 'an address of a relay is nats://HOST:PORT'),
                           (('--from', 'nats://h/a/b'), 'that is no name of a published stream'),
                           (('x=nats://h/%',), 'x: that is no name of a published stream')):
            done = subprocess.run([SERVE, '--port', '0', '--rtsp-port', '0', *words], capture_output=True, text=True, timeout=120, check=False)
            self.assertEqual(done.returncode, 1, words)
            self.assertEqual(done.stderr.strip().splitlines()[-1], f'muxora serve: {why}')


if __name__ == '__main__':
    unittest.main(verbosity=2)
