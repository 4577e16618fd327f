#!/usr/bin/env python3
"""Plants small faults in a copy of the tree, one at a time, and says which of them the tests catch.

The faults are in tests/mutation/*.mutants, as blocks with an empty line between them:

    platform/kiln/Numbers.cpp
    # what is planted, in a few words
    - the text that is replaced: whole lines, their indentation left out, or a part of one line
    + what takes its place; without such lines it is left out

The text must be found exactly once. Two more lines are possible: `= tests: REGEX` for the names of the tests to run
first, where those of the file's own folder are not the ones, and `= equivalent: why` for a fault that nobody could see.
Such a fault is not planted, and doesn't count.

Each fault meets the tests of its folder, the scenarios, and then a seed of the campaign, until one of them fails. What
fails without a fault stops everything. Results are kept in the work folder, and a next run goes on from there.
"""

import argparse
import collections
import hashlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

TREE = pathlib.Path(__file__).resolve().parents[2]
CAMPAIGN = "a seed of the campaign"
STEP_LIMIT = 420  # seconds, after which a step hangs, and has caught the fault


class Mutant:
    """One block of a list."""

    def __init__(self, block, origin):
        lines = block.split("\n")
        self.file = lines[0].strip()
        self.origin = origin
        self.what, self.old, self.new, self.tests, self.equivalent = "", [], [], "", ""
        for line in lines[1:]:
            mark, text = line[:1], line[2:].strip()
            if mark == "#":
                self.what = text
            elif mark == "-":
                self.old.append(text)
            elif mark == "+":
                self.new.append(text)
            elif line.startswith("= tests: "):
                self.tests = line[9:].strip()
            elif line.startswith("= equivalent: "):
                self.equivalent = line[14:].strip()
            else:
                sys.exit(f"{origin}: cannot read '{line}': expected it to begin with '#', '-', '+' or '='")
        if not self.what or not self.old or not (TREE / self.file).is_file():
            sys.exit(f"{origin}: expected a file of the tree, a line '# what', and lines '- text'")
        self.key = hashlib.sha1(block.encode()).hexdigest()[:12]

    def planted(self, text):
        """The file's text with the fault, or None if its place is not found exactly once."""
        lines = text.split("\n")
        stripped = [line.strip() for line in lines]
        count = len(self.old)
        at = [i for i in range(len(lines) - count + 1) if stripped[i : i + count] == self.old]
        if len(at) == 1:
            first = at[0]
            indent = lines[first][: len(lines[first]) - len(lines[first].lstrip())]
            lines[first : first + count] = [indent + line for line in self.new]
            return "\n".join(lines)
        if count == 1 and text.count(self.old[0]) == 1:
            return text.replace(self.old[0], "\n".join(self.new))
        return None


def readMutants():
    mutants = []
    for path in sorted((TREE / "tests/mutation").glob("*.mutants")):
        line = 1
        for block in re.split(r"\n\s*\n", path.read_text()):
            if block.strip():
                mutants.append(Mutant(block.strip("\n"), f"{path.relative_to(TREE)}:{line}"))
            line += block.count("\n") + 2
    if len({mutant.key for mutant in mutants}) != len(mutants):
        sys.exit("the same fault is planted twice")
    return mutants


def check(mutants):
    stale = [m for m in mutants if m.planted((TREE / m.file).read_text()) is None]
    for mutant in stale:
        print(f"{mutant.origin}: its text is not found exactly once in {mutant.file}: plant it anew, or take it out")
    return not stale


class Workshop:
    """A copy of the tree, with a build of its own."""

    def __init__(self, folder):
        self.tree, self.build, self.log = folder / "tree", folder / "build", folder / "log"
        self.digest = self.copy()
        linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"] if shutil.which("ld.lld") else []
        self.environment = dict(os.environ, BUILD_DIR=str(self.build), CCACHE_BASEDIR=str(self.tree))
        self.configure = ["-DZEL_TESTS=ON", "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG", *linker]

    def copy(self):
        """Takes over what has changed, and returns a digest of it all."""
        digest, known = hashlib.sha1(), set()
        for folder, folders, files in os.walk(TREE):
            folders[:] = sorted(f for f in folders if not f.startswith("build") and f not in (".git", ".cache"))
            for name in sorted(files):
                source = pathlib.Path(folder, name)
                path = source.relative_to(TREE)
                if source.suffix == ".mutants" or source.is_symlink():
                    continue
                known.add(path)
                content = source.read_bytes()
                digest.update(str(path).encode() + content)
                target = self.tree / path
                if not target.is_file() or target.read_bytes() != content:
                    target.parent.mkdir(parents=True, exist_ok=True)
                    shutil.copy(source, target)
        for target in [p for p in self.tree.rglob("*") if p.is_file() and p.relative_to(self.tree) not in known]:
            target.unlink()
        return digest.hexdigest()[:12]

    def run(self, *command):
        """Whether it ends well, in time."""
        with open(self.log, "ab") as log:
            process = subprocess.Popen(command, cwd=self.tree, env=self.environment, stdin=subprocess.DEVNULL,
                                       stdout=log, stderr=log, start_new_session=True)
            try:
                return process.wait(STEP_LIMIT * (10 if command[0] == "scripts/build" else 1)) == 0
            except subprocess.TimeoutExpired:
                return False
            finally:
                try:
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
                process.wait()

    def make(self, targets):
        return self.run("scripts/build", *self.configure, *targets)

    def passes(self, step):
        if step == CAMPAIGN:
            return self.run(str(self.build / "tests/campaign"), "--seed", "1", "--hours", "2")
        return self.run("ctest", "--test-dir", str(self.build), "--output-on-failure", "--stop-on-failure",
                        "--no-tests=error", "--timeout", "60", "-R", step)


def stepsOf(mutant, programs):
    """Pairs of what must be built and what must pass: names of tests, or the campaign."""
    folders = pathlib.PurePath(mutant.file).parts[:-1]
    room = "/".join(folders[:2])
    known = {name.removeprefix("test_").replace("_", "/") for name in programs}
    if mutant.tests:
        own = (["all"], mutant.tests)
    elif room in known:
        own = ([f"test_{room.replace('/', '_')}"], f"^{room}/")
    else:
        own = ([name for name in programs if name.startswith(f"test_{folders[0]}")], f"^{folders[0]}/")
    if folders[0] == "apps":
        own = (["all"], own[1])
    return [own, (["zelagent"], "^scenario/"), (["campaign"], CAMPAIGN)]


def report(mutants, results):
    columns = ["planted", "folder's tests", "scenarios", "campaign", "survived", "not run", "equivalent"]
    table = collections.defaultdict(collections.Counter)
    for mutant in mutants:
        outcome = "equivalent" if mutant.equivalent else results.get(mutant.key, "not run")
        for room in ("/".join(pathlib.PurePath(mutant.file).parts[:-1][:2]), "all"):
            table[room]["planted"] += not mutant.equivalent
            table[room][outcome] += 1
    print(f"\n{'':20}" + "".join(f"{column:>16}" for column in columns))
    for room in sorted(table, key=lambda name: (name == "all", name)):
        print(f"{room:20}" + "".join(f"{table[room][column]:16}" for column in columns))
    survivors = [m for m in mutants if not m.equivalent and results.get(m.key) == "survived"]
    for mutant in survivors:
        print(f"survived: {mutant.file}: {mutant.what} ({mutant.origin})")
    caught = sum(table["all"][column] for column in columns[1:4])
    tried = caught + len(survivors)
    if tried:
        print(f"Caught {caught} of {tried}: {100 * caught / tried:.1f} %")
    return not survivors


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutation", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("only", nargs="*", metavar="REGEX", help="faults in such files only")
    parser.add_argument("--seconds", type=int, default=5400, help="of the whole run, ninety minutes by default")
    parser.add_argument("--work", type=pathlib.Path, default=TREE / "build-mutation", help="the work folder")
    parser.add_argument("--survivors", action="store_true", help="tries those that survived once more")
    parser.add_argument("--check", action="store_true", help="only checks that each fault's text is found")
    parser.add_argument("--report", action="store_true", help="only prints the results so far")
    options = parser.parse_args()
    end = time.monotonic() + options.seconds
    mutants = readMutants()
    if not check(mutants):
        sys.exit(1)
    if options.check:
        print(f"{len(mutants)} faults have their place")
        return
    work = options.work.resolve()
    work.mkdir(parents=True, exist_ok=True)
    kept = work / "results"
    results = dict(line.split("\t")[:2] for line in kept.read_text().splitlines()) if kept.exists() else {}
    if not options.report:
        tryAll(mutants, results, options, work, kept, end)
    if not report(mutants, results):
        sys.exit(1)


def tryAll(mutants, results, options, work, kept, end):
    shop = Workshop(work)
    shop.log.write_bytes(b"")

    def keep(key, outcome, told=""):
        results[key] = outcome
        with open(kept, "a", encoding="utf-8") as file:
            file.write(f"{key}\t{outcome}\t{told}\n")

    programs = [f"test_{name}" for name in
                (m.replace("/", "_") for m in re.findall(r"^zel_test\((\S+)", (TREE / "tests/CMakeLists.txt").read_text(), re.M))]
    for mutant in mutants:
        isWanted = not options.only or any(re.search(pattern, mutant.file) for pattern in options.only)
        before = results.get(mutant.key)
        if mutant.equivalent or not isWanted or (before and not (options.survivors and before == "survived")):
            continue
        if time.monotonic() > end:
            print("The time is over; the next run goes on here.")
            return
        start = time.monotonic()
        steps = stepsOf(mutant, programs)
        for targets, step in steps:  # without a fault, once for each state of the tree
            whole = f"whole {shop.digest} {step}"
            if whole not in results:
                if not shop.make(targets) or not shop.passes(step):
                    sys.exit(f"without any fault, {step} fails: see {shop.log}")
                keep(whole, "passed")
        file = shop.tree / mutant.file
        text = file.read_text()
        outcome = "survived"
        try:
            file.write_text(mutant.planted(text))
            for (targets, step), name in zip(steps, ("folder's tests", "scenarios", "campaign")):
                if not shop.make(targets):
                    sys.exit(f"{mutant.origin}: it does not compile: see {shop.log}")
                if not shop.passes(step):
                    outcome = name
                    break
        finally:
            file.write_text(text)
        keep(mutant.key, outcome, f"{mutant.file}: {mutant.what}")
        told = "survived" if outcome == "survived" else f"caught ({outcome})"
        print(f"{told}: {mutant.file}: {mutant.what} ({time.monotonic() - start:.0f} s)", flush=True)


if __name__ == "__main__":
    main()
