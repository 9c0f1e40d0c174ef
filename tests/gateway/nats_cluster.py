"""Servers of NATS with JetStream for the tests: one, or a cluster of three, on free ports of the loopback."""

import json
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.request

PROGRAM = shutil.which('nats-server') or '/usr/sbin/nats-server'


def free_ports(count):
    """So many ports that nobody uses now, all of them different."""
    sockets = [socket.socket() for _ in range(count)]
    try:
        for one in sockets:
            one.bind(('127.0.0.1', 0))
        return [one.getsockname()[1] for one in sockets]
    finally:
        for one in sockets:
            one.close()


class Server:
    """One server: a process, its ports, and its folder."""

    def __init__(self, folder, name, port, monitor, more=''):
        self.name = name
        self.port = port
        self.monitor = monitor
        self.log = os.path.join(folder, f'{name}.log')
        config = os.path.join(folder, f'{name}.conf')
        with open(config, 'w', encoding='utf-8') as out:
            out.write(f'server_name: {name}\nlisten: "127.0.0.1:{port}"\nhttp: "127.0.0.1:{monitor}"\n'
                      f'jetstream {{ store_dir: "{folder}/{name}", max_memory_store: 1GB, max_file_store: 1GB }}\n{more}')
        self.command = [PROGRAM, '-c', config, '-l', self.log]
        self.process = None
        self.start()

    def start(self):
        self.process = subprocess.Popen(self.command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def ask(self, path):
        """What its monitoring address says; None when it does not answer."""
        try:
            with urllib.request.urlopen(f'http://127.0.0.1:{self.monitor}{path}', timeout=5) as answer:
                return json.load(answer)
        except OSError:
            return None

    def ready(self):
        with_meta = (self.ask('/jsz') or {}).get('meta_cluster')
        return bool(with_meta and with_meta.get('leader'))

    def kill(self):
        """As a machine dies: without a word to the others."""
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()

    def stop(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()


class Cluster:
    """Three servers that know each other. Another try with other ports where one of them was taken meanwhile."""

    def __init__(self, size=3, more='', tries=5):
        self.more = more
        for left in reversed(range(tries)):
            self.folder = tempfile.mkdtemp(prefix='nats-')
            self.servers = []
            try:
                self._start(size)
                return
            except AssertionError:
                self.stop()
                if left == 0:
                    raise

    def _start(self, size):
        ports = free_ports(3 * size)
        routes = ', '.join(f'"nats://127.0.0.1:{port}"' for port in ports[2 * size:])
        for i in range(size):
            more = self.more
            if size > 1:
                more += f'cluster {{ name: "test", listen: "127.0.0.1:{ports[2 * size + i]}", routes: [{routes}] }}\n'
            self.servers.append(Server(self.folder, f'n{i}', ports[i], ports[size + i], more))
        end = time.monotonic() + 120
        while not all(one.ready() if size > 1 else one.ask('/jsz') for one in self.servers):
            assert all(one.process.poll() is None for one in self.servers), 'a server ended: a port was taken'
            assert time.monotonic() < end, 'the servers find no leader'
            time.sleep(0.05)

    def url(self, first=0):
        """All servers, so that a client finds another when its own is gone; the first of them first."""
        order = self.servers[first:] + self.servers[:first]
        return ','.join(f'nats://127.0.0.1:{one.port}' for one in order)

    def leader_of(self, store):
        """The server that leads what keeps a stream's messages; None while there is none."""
        for server in self.servers:
            if server.process.poll() is not None:
                continue
            for account in (server.ask('/jsz?accounts=1&streams=1&raft=1') or {}).get('account_details') or []:
                for stream in account.get('stream_detail') or []:
                    if stream['name'] == store:
                        leader = (stream.get('cluster') or {}).get('leader')
                        return next((one for one in self.servers if one.name == leader), None)
        return None

    def copies_of(self, store):
        """The servers that keep a stream's messages and are up to date."""
        for server in self.servers:
            if server.process.poll() is not None:
                continue
            for account in (server.ask('/jsz?accounts=1&streams=1') or {}).get('account_details') or []:
                for stream in account.get('stream_detail') or []:
                    cluster = stream.get('cluster') or {}
                    if stream['name'] == store and cluster.get('leader') == server.name:
                        return 1 + sum(1 for one in cluster.get('replicas') or [] if one.get('current'))
        return 0

    def stop(self):
        for server in self.servers:
            server.stop()
        shutil.rmtree(self.folder, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        if kind is not None:
            for server in self.servers:
                with open(server.log, encoding='utf-8', errors='replace') as log:
                    print(f'--- {server.name}:\n' + log.read()[-3000:])
        self.stop()
