"""HLS and DASH: players read them, parts and blocking reload do what RFC 8216bis asks for, segments stay what they are."""

import json
import os
import re
import shutil
import socket
import tempfile
import threading
import time
import unittest
import xml.etree.ElementTree as ElementTree

from gateway import Gateway, free_port, make_clip, packets

FOLDER = tempfile.mkdtemp(prefix='gateway-hls-')
CLIP = make_clip(os.path.join(FOLDER, 'clip.mp4'), seconds=20)


# Base64, as tokens often are: in an address it stands escaped.
TOKEN = 'se+en/=='
ESCAPED = 'se%2Ben%2F%3D%3D'


def wait_long(results):
    """A request for a segment of an input that gives nothing: eleven seconds three times over are more than a client may take for an
    answer, and it gets one all the same."""
    with Gateway(f'none=udp://127.0.0.1:{free_port(socket.SOCK_DGRAM)}', '--segment-seconds', 11) as gateway:
        began = time.monotonic()
        status = gateway.ask('GET', '/none/index.m3u8', timeout=200)[0]
        results.append((status, time.monotonic() - began))


def setUpModule():
    global GATEWAY, LONG, LONG_RESULTS
    LONG_RESULTS = []
    LONG = threading.Thread(target=wait_long, args=(LONG_RESULTS,))
    LONG.start()
    GATEWAY = Gateway(f'film={CLIP}', '--sign-key', 'key', '--view-token', TOKEN, '--segment-seconds', 1)
    GATEWAY.streams = lambda: {one['name']: one for one in
                               json.loads(GATEWAY.get('/api/streams', token=TOKEN))['streams']}
    GATEWAY.wait_for(lambda s: s['film']['pictures'] > 110)


def tearDownModule():
    LONG.join()
    code = GATEWAY.stop()
    shutil.rmtree(FOLDER, ignore_errors=True)
    assert code == 0, GATEWAY.log_text()


def get(path, status=200):
    found, headers, body = GATEWAY.ask('GET', path + ('&' if '?' in path else '?') + 'token=' + ESCAPED)
    assert found == status, (path, found, body[:200])
    return headers, body


def playlist(track='video', query=''):
    return get(f'/film/{track}.m3u8{query}')[1].decode()


def last_segment(text):
    return int(re.findall(r'-(\d+)\.m4s', text.split('PRELOAD')[0])[-1])


class Hls(unittest.TestCase):
    def test_ffmpeg_reads_both(self):
        for file in ('index.m3u8', 'manifest.mpd'):
            # A reader on a machine that is too slow loses segments, and its times jump: not three times over.
            for tries in range(3):
                streams, found, _ = packets(GATEWAY.url(f'/film/{file}?token={ESCAPED}'), seconds=4, timeout=120)
                times = {kind: [float(one['dts_time']) for one in found if one['codec_type'] == kind] for kind in ('video', 'audio')}
                if file == 'manifest.mpd':
                    # libavformat keeps its place in whole seconds where it fetches the manifest again, and reads the segment that it has a
                    # second time when it did so in the middle of a second: the same pictures again, and no others.
                    times = {kind: list(dict.fromkeys(all_of)) for kind, all_of in times.items()}
                if all(a < b for kind in times.values() for a, b in zip(kind, kind[1:])):
                    break
            else:
                self.fail(f'{file}: {times}')
            self.assertEqual({one['codec_name'] for one in streams}, {'h264', 'aac'})
            self.assertGreater(len(times['video']), 50)
            self.assertGreater(len(times['audio']), 80)

    def test_master_names_codecs_and_carries_the_token(self):
        text = get('/film/index.m3u8')[1].decode()
        self.assertRegex(text, r'CODECS="avc1\.[0-9a-f]{6},mp4a\.40\.2"')
        self.assertIn('RESOLUTION=320x180', text)
        self.assertIn(f'video.m3u8?token={ESCAPED}', text)
        self.assertIn(f'URI="audio.m3u8?token={ESCAPED}"', text)
        # What the playlists name is there without anything added.
        text = playlist()
        name = re.findall(r'^(video-\S+)', text, re.M)[-1]
        status, headers, body = GATEWAY.ask('GET', '/film/' + name)
        self.assertEqual(status, 200)
        self.assertEqual(GATEWAY.ask('GET', '/film/' + name.split('?')[0])[0], 401)
        # HEAD tells of it what GET does, and no more.
        head_status, head_headers, head_body = GATEWAY.ask('HEAD', '/film/' + name)
        self.assertEqual((head_status, head_headers, head_body), (200, headers, b''))
        self.assertEqual(int(headers['Content-Length']), len(body))

    def test_a_long_wait_has_an_answer(self):
        LONG.join()
        status, seconds = LONG_RESULTS[0]
        self.assertEqual(status, 503)
        self.assertGreater(seconds, 32)

    def test_playlist(self):
        for track in ('video', 'audio'):
            text = playlist(track)
            self.assertIn('#EXT-X-SERVER-CONTROL:CAN-BLOCK-RELOAD=YES', text)
            self.assertIn('#EXT-X-PRELOAD-HINT:TYPE=PART', text)
            target = int(re.search(r'TARGETDURATION:(\d+)', text).group(1))
            part_target = float(re.search(r'PART-TARGET=([\d.]+)', text).group(1))
            for duration in re.findall(r'#EXTINF:([\d.]+)', text):
                self.assertLessEqual(round(float(duration)), target)
            parts = [float(one) for one in re.findall(r'#EXT-X-PART:DURATION=([\d.]+)', text)]
            self.assertGreater(len(parts), 3)
            self.assertLessEqual(max(parts), part_target + 0.001)

    def test_segments_begin_with_key_frames_and_may_be_kept_for_ever(self):
        text = playlist()
        init = get('/film/' + re.search(r'MAP:URI="([^"?]+)', text).group(1))[1]
        for name in re.findall(r'^(video-[^?\n]+)', text, re.M)[-3:]:
            headers, body = get('/film/' + name)
            self.assertEqual(get('/film/' + name)[1], body)
            self.assertIn('immutable', headers['Cache-Control'])
            path = os.path.join(FOLDER, 'one.mp4')
            with open(path, 'wb') as out:
                out.write(init + body)
            found = packets(path, seconds=100)[1]
            self.assertEqual(len(found), 25)
            self.assertIn('K', found[0]['flags'])

    def test_sound_has_its_initialisation_segment(self):
        text = playlist('audio')
        self.assertIn(b'moov', get('/film/' + re.search(r'MAP:URI="([^"?]+)', text).group(1))[1])
        name = re.findall(r'^(audio-[^?\n]+)', text, re.M)[0]
        self.assertGreater(len(get('/film/' + name)[1]), 300)

    def test_parts_make_up_their_segment(self):
        text = playlist()
        names = re.findall(r'PART:DURATION=[\d.]+,URI="([^"?]+)', text)
        segment = re.match(r'(video-\w+-\d+)\.', names[0]).group(1)
        parts = b''.join(get('/film/' + name)[1] for name in names if name.startswith(segment + '.'))
        self.assertEqual(parts, get(f'/film/{segment}.m4s')[1])

    def test_blocking_reload_waits_for_what_it_names(self):
        text = playlist()
        wanted = last_segment(text) + 2
        began = time.monotonic()
        text = playlist(query=f'?_HLS_msn={wanted}&_HLS_part=1')
        self.assertIn(f'-{wanted}.1.m4s', text.split('PRELOAD')[0])
        self.assertLess(time.monotonic() - began, 10)
        get('/film/video.m3u8?_HLS_msn=999999', 400)
        get('/film/video.m3u8?_HLS_part=1', 400)
        get('/film/video.m3u8?_HLS_msn=x', 400)

    def test_the_hinted_part_comes_when_it_is_there(self):
        hint = re.search(r'PRELOAD-HINT:TYPE=PART,URI="([^"?]+)', playlist()).group(1)
        headers, body = get('/film/' + hint)
        self.assertGreater(len(body), 500)

    def test_what_is_not_there(self):
        for name in ('video-0-1.m4s', 'x', 'video.m3u8/..', 'video-99-init0.mp4', '../film.ts'):
            get('/film/' + name, 404)

    def test_manifest(self):
        root = ElementTree.fromstring(get('/film/manifest.mpd')[1])
        space = {'d': 'urn:mpeg:dash:schema:mpd:2011'}
        self.assertEqual(root.get('type'), 'dynamic')
        sets = root.findall('.//d:AdaptationSet', space)
        self.assertEqual([one.get('contentType') for one in sets], ['video', 'audio'])
        for one in sets:
            template = one.find('.//d:SegmentTemplate', space)
            number = int(template.get('startNumber'))
            end = None
            for entry in template.findall('.//d:S', space):
                if end is not None:
                    self.assertEqual(int(entry.get('t')), end)
                # ISO/IEC 23009-1 5.3.9.6: @r more of the same length follow.
                end = int(entry.get('t')) + int(entry.get('d')) * (1 + int(entry.get('r', 0)))
            get('/film/' + template.get('media').replace('$Number$', str(number + 1)).split('?')[0])


if __name__ == '__main__':
    unittest.main(verbosity=2)
