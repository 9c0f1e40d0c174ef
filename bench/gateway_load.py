#!/usr/bin/env python3
"""What the gateway costs a gigabyte and a client, beside nginx that sends a file of the same bytes to as many.

    bench/gateway_load.py BUILD [SECONDS] [CLIENTS...]

BUILD holds bin/muxora-serve; nginx must be installed (Debian: nginx-light). Everything stays on the loopback and ends by itself. The figures are CPU seconds of the server's own
processes, so that what else the machine does matters less; compare the ratio.
"""

import json
import os
import socket
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, 'tests', 'gateway'))
BUILD = sys.argv[1]
SECONDS = float(sys.argv[2]) if len(sys.argv) > 2 else 10
COUNTS = [int(one) for one in sys.argv[3:]] or [100, 500, 2000]
os.environ.setdefault('MUXORA_SERVE', os.path.join(BUILD, 'bin', 'muxora-serve'))
import gateway  # noqa: E402

NGINX = """
daemon off; worker_processes 2; error_log stderr error; pid {folder}/pid;
events {{ worker_connections 8192; }}
http {{ access_log off; sendfile on; tcp_nopush on; client_body_temp_path {folder}/a; proxy_temp_path {folder}/b;
  fastcgi_temp_path {folder}/c; uwsgi_temp_path {folder}/d; scgi_temp_path {folder}/e;
  server {{ listen 127.0.0.1:{port}; root {folder}/www; {rate} }} }}
"""


def clients(port, path, count, stalled, seconds):
    done = subprocess.run([os.path.join(FOLDER, 'http_clients'), str(port), path, str(count), str(stalled), str(seconds)],
                          capture_output=True, text=True, check=True)
    return json.loads(done.stdout)


def cpu_of(pids):
    """Seconds on a processor, of all threads; to the nanosecond, where ticks would show nothing of a server that does little."""
    total = 0
    for pid in pids:
        for task in os.listdir(f'/proc/{pid}/task'):
            with open(f'/proc/{pid}/task/{task}/schedstat', encoding='ascii') as stat:
                total += int(stat.read().split()[0])
    return total / 1e9


def serve(clip, count, stalled):
    with gateway.Gateway(f'film={clip}', '--threads', '2') as server:
        server.wait_for(lambda s: s['film']['pictures'] > 50)
        clients(server.port, '/film.flv', 1, 0, 1)  # the output exists from here on
        pids = [server.process.pid]
        memory, cpu = server.memory_kib(), cpu_of(pids)
        process = subprocess.Popen([os.path.join(FOLDER, 'http_clients'), str(server.port), '/film.flv', str(count),
                                    str(stalled), str(SECONDS)], stdout=subprocess.PIPE, text=True)
        time.sleep(SECONDS * 0.8)
        most = server.memory_kib()
        seen = json.loads(process.communicate()[0])
        cpu = cpu_of(pids) - cpu
        skips = sum(float(line.split()[-1]) for line in server.get('/metrics').decode().splitlines()
                    if line.startswith('muxora_skips_total'))
        return seen, cpu, (most - memory) / (count + stalled), skips


def floor(size, count, paced):
    """nginx with a file of so many bytes: as fast as the clients read, or in the time that the live stream takes."""
    os.makedirs(os.path.join(FOLDER, 'www'), exist_ok=True)
    with open(os.path.join(FOLDER, 'www', 'film.flv'), 'wb') as out:
        out.write(os.urandom(min(size, 1 << 20)) * (size // (1 << 20) + 1))
        out.truncate(size)
    port = gateway.free_port()
    with open(os.path.join(FOLDER, 'nginx.conf'), 'w', encoding='ascii') as conf:
        conf.write('user root;' + NGINX.format(folder=FOLDER, port=port, rate=f'limit_rate {int(size / SECONDS)};' if paced else ''))
    process = subprocess.Popen(['nginx', '-p', FOLDER, '-c', os.path.join(FOLDER, 'nginx.conf')])
    try:
        for _ in range(100):
            try:
                socket.create_connection(('127.0.0.1', port)).close()
                break
            except OSError:
                time.sleep(0.1)
        with open(f'/proc/{process.pid}/task/{process.pid}/children', encoding='ascii') as children:
            pids = [process.pid, *map(int, children.read().split())]
        cpu = cpu_of(pids)
        seen = clients(port, '/film.flv', count, 0, 4 * SECONDS + 60)
        return seen, cpu_of(pids) - cpu
    finally:
        process.terminate()
        process.wait()


with tempfile.TemporaryDirectory(prefix='gateway-load-') as FOLDER:
    os.chmod(FOLDER, 0o755)
    subprocess.run(['g++', '-std=c++20', '-O2', '-o', os.path.join(FOLDER, 'http_clients'),
                    os.path.join(ROOT, 'bench', 'http_clients.cpp')], check=True)
    clip = gateway.make_clip(os.path.join(FOLDER, 'clip.mp4'), seconds=10, size='640x360', bitrate='1M')
    print('clients stalled   MB sent  gateway s/GB  nginx s/GB  at its pace  ratio to that  KiB/client  skips  least/most')
    for count in COUNTS:
        for stalled in (0, 200):
            if stalled and count != COUNTS[-1]:
                continue
            seen, cpu, memory, skips = serve(clip, count, stalled)
            gigabytes = seen['bytes'] / 1e9
            ours = cpu / gigabytes
            theirs = []
            for paced in (False, True):
                below, below_cpu = floor(int(seen['bytes'] / max(count, 1)), count, paced)
                theirs.append(below_cpu / (below['bytes'] / 1e9))
            print(f"{count:7} {stalled:7} {gigabytes * 1000:9.0f} {ours:13.3f} {theirs[0]:11.3f} {theirs[1]:12.3f} {ours / theirs[1]:14.2f} "
                  f"{memory:11.1f} {'-' if stalled else int(skips):>6} {seen['least'] / max(seen['most'], 1):11.2f}", flush=True)
