"""Starts the gateway for the tests, and talks to it as its clients do."""

import http.client
import json
import os
import re
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.request

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'scripts'))
import serve_clip  # noqa: E402

SERVE = os.environ.get('MUXORA_SERVE', 'muxora-serve')
API_TOKEN = 'test-api-token'


def make_clip(path, seconds=6, video='h264', audio='aac', gop=25, size='320x180', rate=25, bitrate='300k'):
    """A small clip with a moving picture, the number of each painted into it, and a tone."""
    encoders = {'h264': ['-c:v', 'libx264', '-preset', 'ultrafast', '-bf', '0'],
                'h264b': ['-c:v', 'libx264', '-preset', 'ultrafast', '-bf', '2'],
                'hevc': ['-c:v', 'libx265', '-preset', 'ultrafast', '-x265-params', 'log-level=none'],
                'aac': ['-c:a', 'aac'], 'mulaw': ['-c:a', 'pcm_mulaw', '-ar', '8000'],
                'alaw': ['-c:a', 'pcm_alaw', '-ar', '8000']}
    command = ['ffmpeg', '-v', 'error', '-y', '-f', 'lavfi', '-i', f'testsrc2=s={size}:r={rate}:d={seconds}']
    if audio:
        command += ['-f', 'lavfi', '-i', f'sine=440:r=48000:d={seconds}']
    command += ['-vf', ','.join(serve_clip.number_filters())] + encoders[video] + ['-g', str(gop), '-keyint_min', str(gop), '-sc_threshold', '0', '-b:v', bitrate,
                                  '-pix_fmt', 'yuv420p']
    if audio:
        command += encoders[audio] + ['-ac', '1']
    subprocess.run(command + [path], check=True, timeout=300)
    return path


def make_certificate(certificate, key):
    subprocess.run(['openssl', 'req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-keyout', key, '-out', certificate, '-days', '2',
                    '-subj', '/CN=127.0.0.1', '-addext', 'subjectAltName=IP:127.0.0.1'], check=True, capture_output=True)


class Gateway:
    """A running gateway on a free port of the loopback."""

    def __init__(self, *words, tls=False, env=None, stdin=None):
        self.log = tempfile.NamedTemporaryFile(mode='w+', prefix='gateway-', suffix='.log')
        self.process = subprocess.Popen(
            [SERVE, '--port', '0', '--rtsp-port', '0', '--api-token', API_TOKEN, *map(str, words)],
            stdin=stdin, stdout=subprocess.PIPE, stderr=self.log, text=True, env={**os.environ, **(env or {})})
        self.addresses = []
        self.port = None
        line = self.process.stdout.readline()
        match = re.match(r'https?://[^/]*:(\d+)/', line)
        if match is None:
            self.process.wait(10)
            raise AssertionError('the gateway did not start: ' + line + self.log_text())
        self.port = int(match.group(1))
        self.addresses.append(line.strip())
        self.reading = threading.Thread(target=self._read_addresses, daemon=True)
        self.reading.start()
        self.tls = tls

    def _read_addresses(self):
        for line in self.process.stdout:
            self.addresses.append(line.strip())

    def log_text(self):
        self.log.flush()
        with open(self.log.name, encoding='utf-8', errors='replace') as log:
            return log.read()

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        self.stop()
        if kind is not None:
            print(self.log_text()[-4000:])

    def stop(self, number=signal.SIGTERM, seconds=30):
        """Ends it; gives the exit code."""
        if self.process.poll() is None:
            self.process.send_signal(number)
        try:
            code = self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise AssertionError('the gateway does not end')
        self.reading.join(5)
        self.process.stdout.close()
        self.log.flush()
        return code

    def url(self, path, scheme='http'):
        return f'{scheme}://127.0.0.1:{self.port}{path}'

    def ask(self, method, path, body=None, headers=None, token=None, timeout=60):
        """Gives status, headers and body."""
        if self.tls:
            # The tests' certificates are their own.
            connection = http.client.HTTPSConnection('127.0.0.1', self.port, timeout=timeout,
                                                     context=ssl._create_unverified_context())  # pylint: disable=protected-access
        else:
            connection = http.client.HTTPConnection('127.0.0.1', self.port, timeout=timeout)
        fields = dict(headers or {})
        if token:
            fields['Authorization'] = 'Bearer ' + token
        try:
            connection.request(method, path, body=body, headers=fields)
            answer = connection.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()
        finally:
            connection.close()

    def get(self, path, **more):
        status, _, body = self.ask('GET', path, **more)
        assert status == 200, f'{path}: {status} {body[:200]}'
        return body

    def streams(self):
        return {one['name']: one for one in json.loads(self.get('/api/streams'))['streams']}

    def wait_for(self, what, seconds=30, every=0.1):
        """Waits until what(streams) is true; gives the streams."""
        end = time.monotonic() + seconds
        while True:
            streams = self.streams()
            if what(streams):
                return streams
            assert time.monotonic() < end, f'not in {seconds} s: {json.dumps(streams)[:1000]}\n{self.log_text()[-2000:]}'
            time.sleep(every)

    def memory_kib(self):
        with open(f'/proc/{self.process.pid}/status', encoding='ascii') as status:
            return int(re.search(r'VmRSS:\s+(\d+)', status.read()).group(1))

    def cpu_seconds(self):
        with open(f'/proc/{self.process.pid}/stat', encoding='ascii') as stat:
            fields = stat.read().rsplit(')', 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf('SC_CLK_TCK')


def packets(url, seconds=3, more=(), timeout=60):
    """What ffprobe reads of a live address in so many seconds of media: a list of packets with their streams."""
    done = subprocess.run(
        ['ffprobe', '-v', 'error', *more, '-read_intervals', f'%+{seconds}', '-show_entries',
         'packet=stream_index,codec_type,dts_time,pts_time,flags,size:stream=index,codec_name,width,height,sample_rate',
         '-of', 'json', url],
        capture_output=True, text=True, timeout=timeout, check=False)
    assert done.returncode == 0, done.stderr
    answer = json.loads(done.stdout)
    return answer.get('streams', []), answer.get('packets', []), done.stderr


def numbers(url, count=75, more=(), timeout=240):
    """The numbers painted into so many pictures (make_clip) that ffmpeg decodes of a live address."""
    return numbers_of(url, ('-frames:v', str(count)), more, timeout)


def numbers_of(url, limit=(), more=(), timeout=240):
    """The numbers painted into the pictures of a file."""
    done = subprocess.run(
        ['ffmpeg', '-v', 'error', *more, '-i', url, '-map', '0:v:0', *limit, '-vf',
         f'crop={serve_clip.BITS * serve_clip.SQUARE}:{serve_clip.SQUARE}:0:0,scale={serve_clip.BITS}:1:flags=area,format=gray',
         '-fps_mode', 'passthrough', '-f', 'rawvideo', '-'],
        stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout, check=False)
    assert done.returncode == 0, done.stderr.decode(errors='replace')
    rows = [done.stdout[i:i + serve_clip.BITS] for i in range(0, len(done.stdout), serve_clip.BITS)]
    return [sum((value > 127) << bit for bit, value in enumerate(row)) for row in rows]


def missing(found, total):
    """Where pictures of a clip of so many, played again and again, are not followed by the next one: pairs of numbers."""
    return [(a, b) for a, b in zip(found, found[1:]) if b != (a + 1) % total]


def free_port(kind=socket.SOCK_STREAM):
    """A port of the loopback that nobody uses now."""
    with socket.socket(socket.AF_INET, kind) as free:
        free.bind(('127.0.0.1', 0))
        return free.getsockname()[1]
