#!/usr/bin/env python3
"""Makes the clip that the gateway's demo and tests play: a running clock, a flash and a beep at every full second, and each
picture's number in black and white squares, so that a program can tell which picture it sees.

    scripts/serve_clip.py FILE [SECONDS]
"""

import subprocess
import sys

WIDTH, HEIGHT, RATE = 640, 360, 25
BITS, SQUARE = 12, 16  # the number's squares stand at the upper left edge, lowest bit first
FLASH = 3              # pictures


def number_filters():
    """Paint each picture's number."""
    return [f'drawbox=x=0:y=0:w={(BITS + 2) * SQUARE}:h={SQUARE}:color=black:t=fill',
            *(f"drawbox=x={bit * SQUARE}:y=0:w={SQUARE}:h={SQUARE}:color=white:t=fill:enable='mod(floor(n/{2 ** bit}),2)'"
              for bit in range(BITS))]


def filters():
    steps = number_filters()
    # The flash: a square behind the number, and a large one that people see.
    for x, y, size in ((BITS * SQUARE, 0, SQUARE), (WIDTH - 120, HEIGHT - 120, 100)):
        steps.append(f"drawbox=x={x}:y={y}:w={size}:h={size}:color=white:t=fill:enable='lt(mod(n,{RATE}),{FLASH})'")
    steps.append("drawtext=text='%{pts\\:hms}  %{n}':x=(w-tw)/2:y=h-70:fontsize=40:fontcolor=white:box=1:"
                 'boxcolor=black@0.6:boxborderw=10')
    return ','.join(steps)


def make(path, seconds=120, encoder=('libx264', '-preset', 'veryfast', '-tune', 'zerolatency')):
    """Writes the clip; gives its path."""
    beep = f'aevalsrc=0.6*sin(2*PI*1000*t)*lt(mod(t\\,1)\\,{FLASH / RATE}):s=48000:d={seconds}'
    subprocess.run(
        ['ffmpeg', '-v', 'error', '-y', '-f', 'lavfi', '-i', f'testsrc2=s={WIDTH}x{HEIGHT}:r={RATE}:d={seconds}',
         '-f', 'lavfi', '-i', beep, '-vf', filters(), '-c:v', *encoder, '-g', str(RATE), '-keyint_min', str(RATE),
         '-sc_threshold', '0', '-b:v', '900k', '-pix_fmt', 'yuv420p', '-c:a', 'aac', '-b:a', '96k', path],
        check=True)
    return path


if __name__ == '__main__':
    make(sys.argv[1], float(sys.argv[2]) if len(sys.argv) > 2 else 120)
