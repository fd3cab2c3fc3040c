#!/usr/bin/env python3
"""How fast a batch of 12-megapixel pictures is beside the scripts that people write for the same job.

    benchmarks/headline.py FOLDER_OF_THE_SCRIPTS [--pictures 8] [--rounds 3] [--only-fast]

The folder holds make_inputs.py DIR N, peer_skimage.py and peer_cv2.py (DIR OUT --jobs 2). They run with the system's
python3, which needs the packages python3-skimage and python3-opencv. Everything runs on the same pictures in one
run of this script, taking turns; a contender's time is its best round, and only ratios are worth quoting. Everything
is written below the system's folder for temporary files (set TMPDIR to measure another disk) and removed at the end.
"""
import argparse
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

root = pathlib.Path(__file__).resolve().parent.parent
python = '/usr/bin/python3'


def parsed():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('scripts', type=pathlib.Path, help='folder of make_inputs.py, peer_skimage.py and peer_cv2.py')
    parser.add_argument('--pictures', type=int, default=8)
    parser.add_argument('--rounds', type=int, default=3)
    parser.add_argument('--jobs', type=int, default=2, help='processes of the scripts')
    parser.add_argument('--only-fast', action='store_true', help='leave out the script that takes a minute')
    parser.add_argument('--build', type=pathlib.Path, default=root / 'build' / 'benchmark')
    return parser.parse_args()


def run(command):
    """Seconds of wall time and of processor time of all processes, and the greatest memory of one of them in MB."""
    begin = time.monotonic()
    process = subprocess.Popen([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    # Few lines are written, so that neither pipe fills up.
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - begin
    output, errors = process.stdout.read(), process.stderr.read()
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f'{command[0]} ended with {process.returncode}:\n{(errors or output).decode()}')
    return {'wall': wall, 'processor': usage.ru_utime + usage.ru_stime, 'memory': usage.ru_maxrss / 1024}


def regions_of_script(folder):
    return {file.parent.name: json.loads(file.read_text())['n'] for file in folder.glob('*/metrics.json')}


def regions_of_batch(folder):
    count = {}
    for file in folder.glob('batch_results_*/*/metrics.json'):
        results = json.loads(file.read_text())['results']
        errors = [result['error'] for result in results.values() if result.get('error')]
        if errors:
            sys.exit(f'{file}: {errors[0]}')
        count[file.parent.name] = results['region_count']['metrics'].get('region_count', 0)
    return count


def written_bytes(folder, pattern):
    return sum(file.stat().st_size for file in folder.rglob(pattern))


def main():
    arguments = parsed()
    folder = pathlib.Path(tempfile.mkdtemp(prefix='orvexa_headline_'))
    try:
        measure(arguments, folder)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def measure(arguments, folder):
    pictures = folder / 'pictures'
    print(f'Making {arguments.pictures} pictures of 4000 x 3000 pixels', flush=True)
    run([python, arguments.scripts / 'make_inputs.py', pictures, arguments.pictures])
    workflow = root / 'benchmarks' / 'headline.yaml'
    program = arguments.build / 'src' / 'orvexa' / 'orvexa'
    contenders = {
        'orvexa batch': lambda out: [program, 'batch', workflow, pictures, '--images', '--quiet', '-o', out],
        f'OpenCV script, {arguments.jobs} processes': lambda out: [
            python, arguments.scripts / 'peer_cv2.py', pictures, out, '--jobs', arguments.jobs],
        f'scikit-image script, {arguments.jobs} processes': lambda out: [
            python, arguments.scripts / 'peer_skimage.py', pictures, out, '--jobs', arguments.jobs],
    }
    if arguments.only_fast:
        contenders.popitem()
    slow = [name for name in contenders if 'scikit' in name]
    best, found, written = {}, {}, {}
    for round_number in range(arguments.rounds):
        for name, command in contenders.items():
            if name in slow and round_number > 0:
                continue  # a minute each; its time varies by a few percent
            out = folder / 'out'
            shutil.rmtree(out, ignore_errors=True)
            time_of_round = run(command(out))
            if name not in best or time_of_round['wall'] < best[name]['wall']:
                best[name] = time_of_round
            found[name] = (regions_of_batch if name == 'orvexa batch' else regions_of_script)(out)
            written[name] = written_bytes(out, '*') / 1e6
            print(f'  round {round_number + 1}: {name}: {time_of_round["wall"]:.2f} s', flush=True)

    own = best['orvexa batch']
    print(f'\nBest of {arguments.rounds} rounds, {arguments.pictures} pictures, {os.cpu_count()} cores\n')
    print('| who | s | s of processor | ratio of time | ratio of processor | MB in the largest process | regions '
          '| MB written |')
    print('|---|---:|---:|---:|---:|---:|---:|---:|')
    for name, spent in best.items():
        if len(found[name]) != arguments.pictures:
            sys.exit(f'{name} wrote results for {len(found[name])} of {arguments.pictures} pictures.')
        print(f'| {name} | {spent["wall"]:.2f} | {spent["processor"]:.2f} | {spent["wall"] / own["wall"]:.2f} '
              f'| {spent["processor"] / own["processor"]:.2f} | {spent["memory"]:.0f} | {sum(found[name].values())} '
              f'| {written[name]:.0f} |')
    idle = os.cpu_count() * own['wall'] - own['processor']
    print(f'\nOf {os.cpu_count()} cores x {own["wall"]:.2f} s, {idle:.2f} s were waiting: for the disk, or for the '
          'other core to finish.')
    stages = arguments.build / 'benchmarks' / 'orvexa_headline_stages'
    print('\nWhere the time goes, one picture after another without reading ahead:\n', flush=True)
    subprocess.run([stages, workflow, pictures, folder / 'stages'], check=True)


if __name__ == '__main__':
    main()
