"""Plants faults in src/ and says which of them no test notices. See docs/mutants.md."""
import argparse
import collections
import concurrent.futures
import hashlib
import itertools
import json
import os
import pathlib
import pickle
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

import sites

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / 'build/mutate'
TREE = WORK / 'tree'  # the project with changed sources
BUILD = WORK / 'build'
EQUIVALENT = ROOT / 'scripts/mutate/equivalent.txt'
NUMBERS_A_FILE = 2000  # so that a change in one source leaves the numbers of the others
JOBS = os.cpu_count()
SLOW_SECONDS = 1


# ---- The changes ------------------------------------------------------------------------------

def find_changes():
    everything = sorted((ROOT / 'src').rglob('*.*'))
    sources = [path for path in everything
               if path.suffix == '.cpp' and not path.stem.endswith('_windows')]
    stamp = hashlib.sha1(b''.join(path.read_bytes() for path in
                                  [*everything, pathlib.Path(sites.__file__)])).hexdigest()
    cache = WORK / 'changes.pickle'
    if cache.exists():
        cached_stamp, *cached = pickle.loads(cache.read_bytes())
        if cached_stamp == stamp:
            return cached
    with concurrent.futures.ProcessPoolExecutor(JOBS) as pool:
        found = {(change.file, change.begin, change.end, change.kind, change.after): change
                 for changes in pool.map(sites.find, sources, itertools.repeat(ROOT))
                 for change in changes}
    changes = sorted(found.values(), key=lambda change: (change.file, change.begin, change.end,
                                                         change.kind, change.after))
    files = [str(path.relative_to(ROOT / 'src')) for path in everything]
    seen = collections.Counter()
    used = collections.Counter()
    for change in changes:
        change.number = files.index(change.file) * NUMBERS_A_FILE + used[change.file]
        used[change.file] += 1
        # What it is called from one version of the source to the next.
        what = {'statement': 'left out', 'moved': change.after}.get(change.kind,
                                                                    f'-> {change.after}')
        name = f'{change.file} | {change.function} | {change.before} {what}'
        seen[name] += 1
        change.key = name if seen[name] == 1 else f'{name} #{seen[name]}'
    size = len(files) * NUMBERS_A_FILE
    write_if_changed(cache, pickle.dumps((stamp, changes, size)))
    return changes, size


def write_if_changed(path, data):
    path.parent.mkdir(parents=True, exist_ok=True)
    if not path.exists() or path.read_bytes() != data:
        path.write_bytes(data)


def write_tree(changes):
    """The project as it is, by links, and its sources with the changes in them."""
    TREE.mkdir(parents=True, exist_ok=True)
    for entry in ROOT.iterdir():
        link = TREE / entry.name
        if entry.name not in ('src', 'build', '.git') and not link.exists():
            link.symlink_to(entry)
    by_file = collections.defaultdict(list)
    for change in changes:
        by_file[change.file].append(change)
    for path in (ROOT / 'src').rglob('*.*'):
        name = str(path.relative_to(ROOT / 'src'))
        text = path.read_bytes()
        if name in by_file:
            text = sites.rewrite(text.decode('latin-1'), by_file[name]).encode('latin-1')
        write_if_changed(TREE / 'src' / name, text)


def build(changes):
    """Builds the tests of the rooms, the scenarios and the fuzz targets of the rooms, without the
    changes that don't compile; returns those that do."""
    excluded_file = WORK / 'excluded.json'
    excluded = set(json.loads(excluded_file.read_text())) if excluded_file.exists() else set()
    # What is undefined in a container is an end here, not a chance.
    flags = (f'-O1 -w -Wno-narrowing -DNDEBUG -D_GLIBCXX_ASSERTIONS '
             f'-include {ROOT}/scripts/mutate/mutant.h')
    targets = [f'tests/{path.name}/all' for path in (ROOT / 'src').iterdir() if path.is_dir()]
    targets += ['scenarios_test', 'fuzz_targets']
    while True:
        changes = [change for change in changes if change.key not in excluded]
        write_tree(changes)
        if not (BUILD / 'build.ninja').exists():
            subprocess.run(['cmake', '-S', TREE, '-B', BUILD, '-G', 'Ninja', '-DPERILINK_BENCH=OFF',
                            '-DPERILINK_REPLAY=ON', '-DCMAKE_BUILD_TYPE=None',
                            f'-DCMAKE_CXX_FLAGS={flags}'], check=True,
                           stdout=subprocess.DEVNULL)
        done = subprocess.run(['cmake', '--build', BUILD, '--parallel', str(JOBS), '--target',
                               *targets, '--', '-k', '0'],
                              capture_output=True, text=True)
        if done.returncode == 0:
            return changes
        lines = set(re.findall(r'\btree/src/(\S+?):(\d+):\d+:\s+(?:error|required from here)',
                               done.stdout))
        refused = {change.key for change in changes if (change.file, str(change.line)) in lines}
        if not refused:
            sys.exit(done.stdout[-5000:])
        print(f'{len(refused)} changes do not compile', flush=True)
        excluded |= refused
        excluded_file.write_text(json.dumps(sorted(excluded), indent=0))


# ---- The tests --------------------------------------------------------------------------------

class Test:
    def __init__(self, entry):
        properties = {item['name']: item['value'] for item in entry.get('properties', [])}
        self.name = entry['name']
        self.command = entry.get('command', [])
        self.labels = properties.get('LABELS', [])
        self.fails = properties.get('WILL_FAIL', False)
        self.real = 'real' in self.labels
        self.seconds = 0.0
        self.reached = frozenset()

    @property
    def slow(self):
        return self.real or self.seconds > SLOW_SECONDS

    # A process of its own, in a folder of its own, as long as it may take.
    def run(self, limit, **variables):
        with tempfile.TemporaryDirectory(dir=WORK / 'temporary') as folder:
            # What is read before it is written is not by chance what it should be.
            environment = os.environ | {'TMPDIR': folder, 'MALLOC_PERTURB_': '165'} | variables
            process = subprocess.Popen(self.command, cwd=folder, env=environment,
                                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, start_new_session=True)
            try:
                return process.wait(limit) == 0
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, 9)
                process.wait()
                return False

    def notices(self, change):
        limit = 1 + 10 * self.seconds
        # What a crowded processor does to real time is nobody's fault.
        return not any(self.run(limit, PERILINK_MUTANT=str(change.number))
                       for _ in range(2 if self.real else 1))


def list_tests():
    listing = subprocess.run(['ctest', '--test-dir', BUILD, '--show-only=json-v1'], check=True,
                             capture_output=True, text=True).stdout
    tests = [Test(entry) for entry in json.loads(listing)['tests']]
    return [test for test in tests if test.command and pathlib.Path(test.command[0]).exists() and
            {'real', 'virtual'} & set(test.labels) and not test.fails and
            not re.fullmatch(r'server_simulation\.[2-9].*|server_simulation\.1.+', test.name)]


def measure(test, size):
    """What the test comes by, and its time; false when it fails without a change."""
    with tempfile.NamedTemporaryFile(dir=WORK / 'temporary') as file:
        file.truncate(size)
        start = time.monotonic()
        passed = test.run(300, PERILINK_MUTANTS_REACHED=file.name)
        test.seconds = time.monotonic() - start
        reached = pathlib.Path(file.name).read_bytes()
    test.reached = frozenset(number for number, byte in enumerate(reached) if byte)
    return passed


def measure_all(tests, size):
    """As measure, for each test; as long as nothing was built the last figures hold."""
    cache_file = WORK / 'reached.json'
    stamp = max((path.stat().st_mtime for folder in ('bin', 'src') for path in
                 (BUILD / folder).rglob('*') if path.is_file()), default=0)
    cache = json.loads(cache_file.read_text()) if cache_file.exists() else {}
    if cache.get('stamp') != stamp:
        with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
            passed = list(pool.map(lambda test: measure(test, size), tests))
        cache = {'stamp': stamp, 'tests': {
            test.name: [test.seconds, sorted(test.reached), good]
            for test, good in zip(tests, passed)}}
        cache_file.write_text(json.dumps(cache))
    for test in tests:
        test.seconds, reached, good = cache['tests'][test.name]
        test.reached = frozenset(reached)
        if not good:
            print(f'left out, it fails without any change: {test.name}')
    return [test for test in tests if cache['tests'][test.name][2]]


# ---- Running ----------------------------------------------------------------------------------

class Kills:
    """Which tests have noticed what so far: the best go first."""

    def __init__(self):
        self.by_file = collections.Counter()
        self.lock = threading.Lock()

    def order(self, tests, change):
        with self.lock:
            rate = {test.name: (self.by_file[test.name, change.file] + 0.1) / (test.seconds + 0.01)
                    for test in tests}
        return sorted(tests, key=lambda test: (test.slow, -rate[test.name]))

    def add(self, test, change):
        with self.lock:
            self.by_file[test.name, change.file] += 1


def killers(change, tests, kills, all_of_them):
    """The tests that notice the change: the first one, or all."""
    found = []
    for test in kills.order([test for test in tests if change.number in test.reached], change):
        if test.notices(change):
            kills.add(test, change)
            found.append(test.name)
            if not all_of_them or test.slow:
                break
    return found


def sample(changes, count, seed):
    """The same ones each time, wherever the sources around them change; of each room its share."""
    def order(change):
        return hashlib.sha1(f'{seed} {change.key}'.encode()).digest()
    return sorted(changes, key=order)[:count]


def known_equivalent():
    lines = EQUIVALENT.read_text().splitlines() if EQUIVALENT.exists() else []
    return {line for line in lines if line and not line.startswith(('#', '  '))}


def write_needed(results, tests):
    """The fewest tests that notice all that is noticed, the quickest first among equals."""
    seconds = {test.name: test.seconds for test in tests}
    noticed = collections.defaultdict(set)
    for key, names in results.items():
        for name in names:
            noticed[name].add(key)
    left = {key for key, names in results.items() if names}
    alone = collections.Counter(names[0] for names in results.values() if len(names) == 1)
    lines = []
    while left:
        best = max(noticed, key=lambda name: (len(noticed[name] & left), -seconds.get(name, 0)))
        lines.append(f'{best}: {len(noticed[best] & left)} more, {alone[best]} alone')
        left -= noticed.pop(best)
    chosen = {line.split(': ')[0] for line in lines}
    spare = [f'{test.name}: {test.seconds:.3f} s, notices {len(noticed.get(test.name, ()))}, '
             f'alone {alone[test.name]}{", real" if test.real else ""}'
             for test in tests if test.name not in chosen]
    (WORK / 'needed.txt').write_text('\n'.join(lines) + '\n')
    (WORK / 'unneeded.txt').write_text('\n'.join(spare) + '\n')


def run_changes(chosen, tests, matrix):
    """Runs them, and remembers the results of a matrix for the next run."""
    results_file = WORK / 'matrix.jsonl'
    kills = Kills()
    results = {}
    if matrix and results_file.exists():
        results = dict(json.loads(line) for line in results_file.read_text().splitlines())
    log = open(results_file if matrix else WORK / 'last.jsonl', 'a' if matrix else 'w',
               encoding='utf-8')

    # What costs much comes last, and only where nothing else notices.
    for slow in (False, True):
        def run(change, some=[test for test in tests if test.slow == slow]):
            found = killers(change, some, kills, matrix)
            with kills.lock:
                results[change.key] = found
                log.write(json.dumps([change.key, found]) + '\n')
                log.flush()
        with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
            list(pool.map(run, [change for change in chosen if not results.get(change.key, slow)]))
    if matrix:
        write_needed(results, tests)
    return results


def report(chosen, results, tests, elapsed):
    reached = frozenset().union(*(test.reached for test in tests))
    equivalent = known_equivalent()
    rooms = collections.defaultdict(collections.Counter)
    for change in sorted(chosen, key=lambda change: change.number):
        outcome = ('caught' if results[change.key] else
                   'equivalent' if change.key in equivalent else 'survivors')
        rooms[change.room][outcome] += 1
        if outcome == 'survivors':
            never = '' if change.number in reached else '  (no test comes here)'
            print(f'src/{change.file}:{change.line}{never}\n{change.key}\n')
    total = sum(rooms.values(), collections.Counter())
    print(f'{"room":10} {"changes":>8} {"caught":>8} {"equivalent":>11} {"survivors":>10}')
    for room, counts in [*sorted(rooms.items()), ('all', total)]:
        print(f'{room:10} {counts.total():8} {counts["caught"]:8} {counts["equivalent"]:11} '
              f'{counts["survivors"]:10}')
    judged = total['caught'] + total['survivors']
    print(f'{100 * total["caught"] / max(judged, 1):.1f} % of {judged} caught '
          f'in {elapsed:.0f} s')
    return total['survivors']


def main():
    parser = argparse.ArgumentParser(prog='scripts/mutate.sh', description=__doc__)
    parser.add_argument('room', nargs='*', help='rooms or sources below src/ (default: all)')
    parser.add_argument('--sample', type=int, metavar='N', help='so many of the changes only')
    parser.add_argument('--seed', type=int, default=1, help='which ones (default: 1)')
    parser.add_argument('--only', metavar='TEXT', help='changes with this in their description')
    parser.add_argument('--matrix', action='store_true',
                        help='find every test that notices a change, and which tests are needed')
    parser.add_argument('--list', action='store_true', help='say what can be changed, run nothing')
    arguments = parser.parse_args()

    changes, size = find_changes()
    if not arguments.list:
        changes = build(changes)
    chosen = [change for change in changes
              if not arguments.room or any(f'{change.file}/'.startswith(f'{room}/') for room in
                                           arguments.room)]
    chosen = [change for change in chosen if (arguments.only or '') in change.key]
    if arguments.sample:
        chosen = sample(chosen, arguments.sample, arguments.seed)
    if arguments.list:
        print('\n'.join(f'{change.line}: {change.key}' for change in chosen))
        return 0
    shutil.rmtree(WORK / 'temporary', ignore_errors=True)
    (WORK / 'temporary').mkdir()
    tests = measure_all(list_tests(), size)
    print(f'{len(chosen)} changes of {len(changes)}, {len(tests)} tests', flush=True)
    start = time.monotonic()
    equivalent = known_equivalent()
    results = {change.key: [] for change in chosen if change.key in equivalent}
    results |= run_changes([change for change in chosen if change.key not in equivalent], tests,
                           arguments.matrix)
    return 1 if report(chosen, results, tests, time.monotonic() - start) else 0


if __name__ == '__main__':
    sys.exit(main())
