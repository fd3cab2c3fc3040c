#!/usr/bin/env python3
"""Whether a batch of large captures keeps to its memory: two captures, their masks and one encoded image a thread.

    batch_peak_memory.py ORVEXA

Runs `orvexa batch` on three captures of ten 16-bit bands of 20 megapixels each and looks at the greatest resident
memory of the process. Exit code 1 when it is above the limit whose parts are printed. Needs 2 GB of disk below the
system's folder for temporary files, and a minute or two.
"""
import os
import pathlib
import random
import shutil
import struct
import subprocess
import sys
import tempfile

width, height, bands, captures = 5000, 4000, 10, 3
megabyte = 1e6
band = width * height * 2
mask = width * height
overlay = width * height * 3

WORKFLOW = """title: Peak memory
mask_operations:
  - op: threshold_auto
  - op: open
    params: {radius: 3}
result_operations:
  - op: area
  - op: band_statistics
"""


def write_tiff(file):
    """One strip of 16-bit grey without compression: bright discs on a dark ground, with noise."""
    noise = random.Random(1)
    rows = []
    for y in range(16):
        row = bytearray(noise.randbytes(width * 2))
        for x in range(width):
            row[2 * x + 1] = (160 if (x // 250) % 2 == 0 else 40) + row[2 * x + 1] % 8
        rows.append(bytes(row))
    tags = [(256, 4, width), (257, 4, height), (258, 3, 16), (259, 3, 1), (262, 3, 1), (273, 4, 8), (277, 3, 1),
            (278, 4, height), (279, 4, band)]
    with open(file, 'wb') as out:
        out.write(struct.pack('<2sHI', b'II', 42, 8 + band))
        for y in range(height):
            out.write(rows[(y * 7) % 16])
        out.write(struct.pack('<H', len(tags)))
        for tag, kind, value in tags:
            out.write(struct.pack('<HHII', tag, kind, 1, value))
        out.write(struct.pack('<I', 0))


def write_captures(folder):
    write_tiff(folder / 'band.tif')
    for number in range(captures):
        lines = ['[Capture]', f'Name = large_{number}', '[Measurement MSP]']
        for k in range(bands):
            name = f'large_{number}_B{k}.tif'
            os.link(folder / 'band.tif', folder / name)
            lines.append(f'Image B{k} = {name}')
        (folder / f'HDR_large_{number}.INF').write_text('\n'.join(lines) + '\n')


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    program = pathlib.Path(sys.argv[1])
    folder = pathlib.Path(tempfile.mkdtemp(prefix='orvexa_memory_'))
    try:
        write_captures(folder)
        (folder / 'peak.yaml').write_text(WORKFLOW)
        process = subprocess.Popen([program, 'batch', folder / 'peak.yaml', folder, '--captures', '--quiet',
                                    '-o', folder / 'out'], stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f'orvexa batch ended with {process.returncode}')
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    threads = os.cpu_count()
    parts = {
        'two captures': 2 * bands * band,
        'four masks: two steps, and the two that a step works on': 4 * mask,
        f'an encoded overlay for each of {threads} threads, twice while it is put together': 2 * threads * overlay,
        f'a file that is decoded by each of {threads} threads': threads * band,
        'the program and its libraries': 80 * megabyte,
    }
    peak = usage.ru_maxrss * 1024
    for name, size in parts.items():
        print(f'{size / megabyte:7.0f} MB  {name}')
    print(f'{sum(parts.values()) / megabyte:7.0f} MB  limit')
    print(f'{peak / megabyte:7.0f} MB  greatest resident memory; a third capture would be '
          f'{bands * band / megabyte:.0f} MB')
    sys.exit(0 if peak <= sum(parts.values()) else 1)


if __name__ == '__main__':
    main()
