#!/usr/bin/env python3
"""Ten million frames into one handle of each format: bench/long_recordings.py BUILD [FORMAT ...]

BUILD holds bin/muxora_long_bench. Prints what a frame costs behind the first 100,000, a million and ten million of them,
what the handle has allocated by then, and how long the tail takes. Fails where a frame at the end costs more than three
times what it did at the beginning, three times in a row, or takes more than 32 bytes of memory: something then grows that
should not.
"""

import json
import subprocess
import sys

MOST_TIMES = 3  # a table that is copied whole makes it tens
MOST_BYTES = 32
TRIES = 3  # a neighbour on the machine makes it 2.5 now and then, but not always


def run(build, names):
    out = subprocess.run([f'{build}/bin/muxora_long_bench', f'--benchmark_filter=/({names})/', '--benchmark_format=json'],
                         check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    return json.loads(out)['benchmarks']


def is_good(row):
    row['bytes'] = (row['MiB_at_10M'] - row['MiB_at_1M']) * (1 << 20) / 9e6
    return row['x_first'] <= MOST_TIMES and row['bytes'] <= MOST_BYTES


def main():
    build, formats = sys.argv[1], sys.argv[2:]
    rows = run(build, '|'.join(formats) if formats else '.*')
    failed = not rows
    print(f'{"":13}{"ns a frame: first":>18}{"at 1 M":>9}{"at 10 M":>9}{"ratio":>7}{"MiB at 1 M":>12}{"at 10 M":>9}'
          f'{"bytes a frame":>15}{"tail ms":>9}')
    for row in rows:
        name = row['name'].split('/')[1]
        if row.get('error_occurred'):
            print(f'{name:13}{row["error_message"]}')
            failed = True
            continue
        tries = 1
        while not is_good(row) and tries < TRIES:
            row = run(build, name)[0]
            tries += 1
        good = is_good(row)
        failed = failed or not good
        print(f'{name:13}{row["ns/frame"]:18.0f}{row["ns_at_1M"]:9.0f}{row["ns_at_10M"]:9.0f}{row["x_first"]:7.2f}'
              f'{row["MiB_at_1M"]:12.1f}{row["MiB_at_10M"]:9.1f}{row["bytes"]:15.1f}{row["tail_ms"]:9.1f}'
              f'{"" if tries == 1 else f"  try {tries}"}{"" if good else "  <--"}')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
