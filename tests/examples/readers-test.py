#!/usr/bin/env python3
# Runs the two example readers against agents that write, that have ended and that are killed while they write, and
# compares what they print with each other and with the client.
#
#    readers-test.py ZELAGENT ZELCTL READ-COUNTERS READ_COUNTERS.PY KILLS [SEED]
import array
import collections
import fcntl
import importlib.util
import itertools
import json
import os
import pathlib
import random
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time

agent, client, in_cpp, in_python = sys.argv[1:5]
kills = int(sys.argv[5])
seed = int(sys.argv[6]) if len(sys.argv) > 6 else os.getpid()
print("seed", seed)
rng = random.Random(seed)
scratch = pathlib.Path(tempfile.mkdtemp())
silo = scratch / "silo"

sys.dont_write_bytecode = True
spec = importlib.util.spec_from_file_location("read_counters", in_python)
python_reader = importlib.util.module_from_spec(spec)
spec.loader.exec_module(python_reader)

READERS = {"C++": [in_cpp], "Python": [sys.executable, "-B", in_python]}
TABLES = ("IntfCounters", "IntfClearCounters", "IntfQueueCounters", "IntfClearQueueCounters", "VlanIntfCounters",
          "VlanIntfClearCounters", "SubIntfCounters", "SubIntfClearCounters", "IntfNatCounters", "IntfPlaces",
          "IntfDropCounters", "IntfPdpCounters", "PipeStageCounters", "PipeDropCounters", "PipeTmCounters", "ChipHealth",
          "AgentHealth")
VIEWS = {"interfaces": "IntfCounters", "queues": "IntfQueueCounters", "vlans": "VlanIntfCounters",
         "subinterfaces": "SubIntfCounters", "nat": "IntfNatCounters", "drops": "IntfDropCounters",
         "classes": "IntfPdpCounters", "pipeline": "PipeStageCounters", "mau-drops": "PipeDropCounters",
         "traffic-manager": "PipeTmCounters", "health": "ChipHealth"}
RECORDER = {"IntfHistory": "rings", "IntfQueueHistory": "rings", "Events": "events"}  # and what is in the document
LIMIT = 20  # seconds: a reader that takes longer hangs, even on a machine that is busy


def check(condition, *problem):
    if not condition:
        raise AssertionError(" ".join(str(part) for part in problem))


def run(command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=LIMIT)


def read(reader, *options):
    return run([*READERS[reader], "--silo", silo, *options])


def document(command, statuses=(0,)):
    done = run(command)
    check(done.returncode in statuses and not done.stderr, command, "ended with", done.returncode, done.stderr)
    return json.loads(done.stdout)


def document_of(reader, table="IntfCounters", statuses=(0,)):
    return document([*READERS[reader], "--silo", silo, "--table", table, "--json"], statuses)


def rows_of(node):
    """The records, whatever they are of."""
    return next(node[subject] for subject in ("interfaces", "pipes", "chips", "agents") if subject in node)


def document_of_client(view):
    """What the client says of one table's records, without what it concludes from several numbers or tables."""
    node = document([client, "--silo", silo, view, "json"])
    node.pop("notes")
    for row in rows_of(node):
        for name in ("activity", "queue-activity", "activities", "in-use-per-mille", "out-use-per-mille",
                     "queue-drops-age-ms"):
            row.pop(name, None)
        row.get("totals", {}).pop("out-queue-drops", None)
    return node


def ages_out(node):
    """The document without what depends on when it was read; the ages in the order in which they were."""
    ages = []
    for row in rows_of(node):
        for name in [one for one in row if one.endswith("age-ms")]:
            ages.append(row.pop(name))
        row.pop("stale", None)
    return node, ages


class Agent:
    """A running agent, which is killed in the end however the test ends."""

    def __init__(self, *options, **arguments):
        self.process = subprocess.Popen([agent, "--silo", silo, "--socket", scratch / "socket", *options],
                                        stdout=subprocess.PIPE, **arguments)

    def __enter__(self):
        return self

    def kill(self):
        self.process.kill()
        self.process.wait()

    def __exit__(self, *_):
        self.kill()
        self.process.stdout.close()


def await_records(generation=0, count=1):
    """Waits for so many records of an agent, and for one that was written more often."""
    deadline = time.monotonic() + LIMIT
    while True:
        done = read("C++", "--json")
        rows = json.loads(done.stdout)["interfaces"] if done.returncode == 0 else []
        if len(rows) >= count and any(row.get("generation", 0) > generation for row in rows):
            return
        check(time.monotonic() < deadline, "nothing was published:", done.stderr)
        time.sleep(0.01)


# --- Every table, of an agent in simulated time that is alive and then ended

SCENARIO = """advance 3
l3 add Vlan20 20
l3 add Ethernet2.100 100
queue Ethernet1 3 1000 64000 100
advance 4
rmon Ethernet1 0 18446744073709551000
rmon Ethernet1 4 1000000
svi Zel0 20 ingress 0 0 10 1000
svi Zel0 20 ingress 0 1 5 500
svi Zel0 100 egress 0 0 7 700
queue Ethernet1 3 1001000 64064000 200
advance 4
clear all
rmon Ethernet1 4 1500000
rmon Ethernet1 7 flip 60
queue Ethernet1 3 1001001 64064064 205
svi Zel0 20 ingress 0 0 4 400
advance 24
interface Ethernet1
"""


def expect_same_of_all_tables(is_alive):
    for table in TABLES:
        documents = [document_of(reader, table) for reader in READERS]
        documents += [document_of_client(view) for view, name in VIEWS.items() if name == table]
        check(documents[0]["writer-alive"] == is_alive, table, "alive:", documents[0]["writer-alive"])
        check(rows_of(documents[0]), table, "is empty: nothing is compared")
        check(all(one == documents[0] for one in documents), table, *documents)
        if is_alive:
            continue
        for options in ([], [rows_of(documents[0])[0]["name"]]):
            texts = [read(reader, "--table", table, *options) for reader in READERS]
            check(texts[0].returncode == 0 and len(texts[0].stdout) > 40, texts[0])
            check(texts[0].stdout == texts[1].stdout, table, texts[0].stdout, "and", texts[1].stdout)


def expect_same_of_recorder(is_alive):
    """History and events, by both readers, and by what they must say after the scenario."""
    found = {}
    for table, member in RECORDER.items():
        documents = [document_of(reader, table) for reader in READERS]
        check(documents[0] == documents[1] and documents[0][member], table, *documents)
        check(documents[0]["writer-alive"] == is_alive, table, "alive:", documents[0]["writer-alive"])
        for options in ([], ["Ethernet1"]):
            texts = [read(reader, "--table", table, *options) for reader in READERS]
            check(texts[0].returncode == 0 and len(texts[0].stdout) > 40, texts[0])
            check(texts[0].stdout == texts[1].stdout, table, texts[0].stdout, "and", texts[1].stdout)
        found[table] = documents[0][member]

    ports = {row["name"]: row["totals"] for row in document_of("C++")["interfaces"]}
    for ring in found["IntfHistory"]:
        expect_order(ring["samples"], is_gapless=True)
        newest = ring["samples"][-1]["totals"]
        drops = newest.pop("out-queue-drops")
        check(drops == (205 if ring["name"] == "Ethernet1" else 0), ring["name"], drops)
        check(newest.items() <= ports[ring["name"]].items(), ring["name"], newest, "is not what is published")
    check(found["IntfQueueHistory"][0]["samples"][-1]["totals"]["queue.3.drops"] == 205, found["IntfQueueHistory"])
    told = {(event["kind"], event["where"], event["what"]): event for event in found["Events"]}
    flipped = told["upset", "Ethernet1", "in-unicast-pkts"]
    check(flipped["before"] ^ flipped["after"] == 1 << 60 and "60" in flipped["text"], flipped)
    check(("clear", "", "the console") in told and ("port-came", "Ethernet1", "Ethernet2") in told, *told)


def expect_order(samples, is_gapless):
    """Each sample once, oldest first, and totals that never fall."""
    for one, after in zip(samples, samples[1:]):
        step = after["number"] - one["number"]
        check(step == 1 if is_gapless else step > 0, one, "before", after)
        check(after["time-ms"] > one["time-ms"], one, "before", after)
        check(all(after["totals"][name] >= total for name, total in one["totals"].items()), one, "before", after)


def test_every_table():
    with Agent("--ports", "2", "--pipes", "1", "--scenario", "-", stdin=subprocess.PIPE) as running:
        running.process.stdin.write(SCENARIO.encode())
        running.process.stdin.flush()
        while not running.process.stdout.readline().startswith(b"generation "):  # the last line of a record
            pass
        expect_same_of_all_tables(is_alive=True)
        expect_same_of_recorder(is_alive=True)
        running.process.stdin.close()
        check(running.process.wait(LIMIT) == 0, "the scenario failed")
        expect_same_of_all_tables(is_alive=False)
        expect_same_of_recorder(is_alive=False)


# --- An agent that writes all the time


def totals_of(node):
    return {(node["table"], row["name"], row["generation"]): row["totals"]
            for row in node["interfaces"] if row["state"] == "ok"}


def expect_ages_that_fit(programs):
    """The agent is stopped: from one program to the next all ages must rise as time does, to the millisecond."""
    before = None
    for program in programs:
        begin = time.monotonic()
        ages = ages_out(program())[1]
        end = time.monotonic()
        check(None not in ages and len(ages) >= 3 * 16, ages)
        if before is not None:
            least, most = 1000 * (begin - before[2]) - 2, 1000 * (end - before[1]) + 2
            check(all(least <= age - old <= most for age, old in zip(ages, before[0])), ages, before, least, most)
        before = (ages, begin, end)


def test_living_agent():
    programs = {"C++": lambda: document_of("C++"), "Python": lambda: document_of("Python"),
                "client": lambda: document_of_client("interfaces")}
    seen = collections.defaultdict(dict)  # by record and generation, what each program said
    # Slow enough for three programs to meet between two writes, also in a build that checks everything.
    with Agent("--ports", "16", "--polling", "1") as running:
        await_records()
        wanted = [frozenset(pair) for pair in itertools.combinations(programs, 2)]
        met = collections.Counter()
        deadline = time.monotonic() + LIMIT
        while min(met[pair] for pair in wanted) < 48 or len(seen) < 5 * 16:
            check(time.monotonic() < deadline, "too few records were seen twice:", met, len(seen))
            for name, program in programs.items():
                for record, totals in totals_of(program()).items():
                    for other, said in seen[record].items():
                        check(said == totals, record, other, said, name, totals)
                        met[frozenset((name, other))] += 1
                    seen[record][name] = totals
        running.process.send_signal(signal.SIGSTOP)
        try:
            expect_ages_that_fit(programs.values())
        finally:
            running.process.send_signal(signal.SIGCONT)


# --- An agent that is killed


def expect_whole(row):
    """Each frame is counted by its size, and if it is good by its address, together with all frames: so only a record
    of one moment adds up."""
    totals = row["totals"]

    def total_of(*names):
        return sum(total for name, total in totals.items() if name.startswith(names))

    kinds = ("unicast", "multicast", "broadcast")
    good = [total_of(*(f"{way}-{kind}-pkts" for kind in kinds)) for way in ("in", "out")]
    sizes = total_of("in-frames-", "in-undersize-", "in-fragment-")
    check(totals["in-pkts"] == sizes == good[0] + totals["in-fcs-errors"] and totals["out-pkts"] == good[1],
          "not of one moment:", row)


class Killing:
    """What was seen over all kills."""

    def __init__(self):
        self.records = 0
        self.torn = 0
        self.newest = 0  # generation
        self.last = {}  # by interface, the generation and totals that were seen last

    def take(self, node, is_fresh):
        for row in node["interfaces"]:
            check(row["state"] in ("ok", "busy", "torn"), row)
            self.torn += row["state"] == "torn"
            if row["state"] != "ok":
                continue
            self.records += 1
            self.newest = max(self.newest, row["generation"])
            if is_fresh:
                expect_whole(row)
            generation, totals = self.last.get(row["name"], (0, {}))
            check(row["generation"] >= generation, row, "after generation", generation)
            if row["generation"] == generation:
                check(row["totals"] == totals, row, "and before", totals)
            check(all(row["totals"][name] >= total for name, total in totals.items()), row, "after", totals)
            self.last[row["name"]] = (row["generation"], row["totals"])


def test_killed_agent():
    seen = Killing()
    # Each with fresh tables and with those that were left.
    readers = itertools.cycle(("C++", "C++", "Python", "Python"))
    for turn in range(kills):
        # Every other agent finds what the one before it left. Its totals go on from there, field by field, so that they
        # no longer add up.
        is_fresh = turn % 2 == 0
        if is_fresh:
            shutil.rmtree(silo, ignore_errors=True)
            seen.last = {}
        # In simulated time an agent does nothing but count and write, so that some kills come in a record's middle.
        with Agent("--ports", "64", "--pipes", "1", "--polling", "0.001", "--scenario", "-",
                   stdin=subprocess.PIPE) as running:
            running.process.stdin.write(b"advance 4\ntraffic on\nadvance 1000000\n")
            running.process.stdin.close()
            await_records(100 if turn == 0 else 0, count=64)  # one at least has written a while, however slow it is
            seen.take(document_of("C++", statuses=(0, 2)), is_fresh)
            name = next(readers)
            reader = subprocess.Popen([*READERS[name], "--silo", silo, "--json"], stdout=subprocess.PIPE)
            time.sleep(rng.uniform(0, {"C++": 0.01, "Python": 0.2}[name]))  # about as long as it takes
            running.kill()
            out = reader.communicate(timeout=LIMIT)[0]
            check(reader.returncode in (0, 2), "status", reader.returncode)
            seen.take(json.loads(out), is_fresh)
        left = [document_of(reader, statuses=(0, 2)) for reader in READERS] + [document_of_client("interfaces")]
        seen.take(left[0], is_fresh)
        check(not left[0]["writer-alive"] and len(left[0]["interfaces"]) == 64, left[0])
        check(ages_out(left[0])[0] == ages_out(left[1])[0] == ages_out(left[2])[0], *left)
    check(seen.newest > 100, "the agents hardly wrote anything: generation", seen.newest)
    print(f"{kills} kills, {seen.records} records read, {seen.torn} left torn")


def samples_of_first_port(reader):
    return document([*READERS[reader], "--silo", silo, "--table", "IntfHistory", "--json", "Ethernet1"])[
        "rings"][0]["samples"]


def test_turning_ring():
    """A ring that turns faster than it is read: no sample is mixed of two, and none comes twice."""
    seen = {}
    with Agent("--ports", "2", "--pipes", "1", "--polling", "0.5", "--history", "0.5", "--scenario", "-",
               stdin=subprocess.PIPE) as running:
        running.process.stdin.write(b"advance 4\ntraffic on\nadvance 1000000\n")
        running.process.stdin.close()
        await_records(100)
        for reader in itertools.islice(itertools.cycle(READERS), 16):
            samples = samples_of_first_port(reader)
            check(len(samples) <= 61, len(samples), "of a ring of 61")
            expect_order(samples, is_gapless=False)
            for one in samples:
                check(seen.setdefault(one["number"], one) == one, one, "was", seen[one["number"]])
        check(running.process.poll() is None, "the agent has ended: nothing was written meanwhile")
        running.kill()
    check(len(seen) > 100, "the ring hardly turned:", len(seen))
    left = samples_of_first_port("C++")
    check(left == samples_of_first_port("Python"), "the readers differ on what is left")
    check(60 <= len(left) <= 61, len(left), "of a ring of 61 are left")
    expect_order(left, is_gapless=True)


# --- Damage

SLOT = 256 + 2 * (128 + 1952 + 32)  # the second slot: 1952 bytes are padded to 1984


class Damaged:
    """The table with words overwritten, and mended again. By its own descriptor, which may hold the writer's lock."""

    def __init__(self, changes, table="IntfCounters", is_locked=False):
        self.changes = changes
        self.file = open(silo / table, "r+b", buffering=0)
        if is_locked:
            fcntl.fcntl(self.file, fcntl.F_OFD_SETLK, struct.pack("@hhqqi4x", fcntl.F_WRLCK, os.SEEK_SET, 0, 0, 0))

    def swap(self):
        former = {at: os.pread(self.file.fileno(), 8, at) for at in self.changes}
        for at, word in self.changes.items():
            os.pwrite(self.file.fileno(), word if isinstance(word, bytes) else struct.pack("=Q", word), at)
        self.changes = former

    def __enter__(self):
        self.swap()

    def __exit__(self, *_):
        self.swap()
        self.file.close()


def word_at(at):
    with open(silo / "IntfCounters", "rb") as file:
        return struct.unpack("=Q", os.pread(file.fileno(), 8, at))[0]


def expect_state(state, name, changes, is_locked=False):
    with Damaged(changes, is_locked=is_locked):
        documents = [document_of(reader, statuses=(2,)) for reader in READERS] + [document_of_client("interfaces")]
        check(all(ages_out(one)[0] == ages_out(documents[0])[0] for one in documents), *documents)
        found = [(row["name"], row["state"]) for row in documents[0]["interfaces"] if row["state"] != "ok"]
        check(found == [(name, state)] and len(documents[0]["interfaces"]) == 2, "expected", state, "got", found)
        for reader in READERS:
            whole = read(reader, "Ethernet1")
            check(whole.returncode == 0 and "in-pkts" in whole.stdout, "the other record:", whole)
            if name:
                done = read(reader, name)
                check(done.returncode == 2 and done.stdout.startswith(f"{name}: {state}\n"), reader, done)


def expect_refusal(text, *options):
    for reader in READERS:
        done = run([*READERS[reader], *options])
        check(done.returncode == 1 and not done.stdout, reader, options, done)
        check(done.stderr.startswith("read-counters: ") and done.stderr.count("\n") == 1, reader, done.stderr)
        check(text in done.stderr, reader, "said", done.stderr, "expected", text)


def expect_header_refused(text, changes):
    with Damaged(changes):
        expect_refusal(text, "--silo", silo)


def changed(changes):
    """These changes of the second slot, with the checksums that make its record whole."""
    words = [changes.get(at, word_at(at)) for at in range(SLOT, SLOT + 128 + 1952, 8)]
    summed = [words[2], words[3], words[4], 0] + words[16:]
    return {**changes, SLOT + 8: python_reader.checksum(summed), SLOT + 40: python_reader.second_checksum(summed)}


def expect_unknown_age():
    """A sample time that is yet to come, of a record that is whole."""
    later = struct.unpack("=Q", struct.pack("=d", time.monotonic() + 1000))[0]
    with Damaged(changed({SLOT + 24: later})):
        for program in READERS:
            row = document_of(program)["interfaces"][1]
            check(row["state"] == "ok" and row["age-ms"] is None and row["stale"] is True, program, row)


class WordsBeingWritten:
    """A table's words, in which the second slot is written anew just when half of its payload has been copied."""

    def __init__(self, words, write):
        self.words = words
        self.write = write

    def __getitem__(self, at):
        if self.write is None or not isinstance(at, slice) or at.start != (SLOT + 128) // 8:
            return self.words[at]
        half = (at.start + at.stop) // 2
        first = self.words[at.start:half].tolist()
        self.write()
        self.write = None
        return array.array("Q", first + self.words[half:at.stop].tolist())


def expect_whole_while_written():
    table = python_reader.Table(silo, "IntfCounters")
    first, last = SLOT + 128 + 704, SLOT + 128 + 704 + 8 * 68  # of the totals
    writing = Damaged(changed({SLOT: word_at(SLOT) + 2, SLOT + 16: word_at(SLOT + 16) + 1, first: 123, last: 456}))
    table.words = WordsBeingWritten(table.words, writing.swap)
    row = table.rows()[1]
    totals = list(row.record.totals.values()) if row.record else []
    check(row.state == "ok" and totals[0] == 123 and totals[-1] == 456, row.state, totals)
    writing.swap()
    writing.file.close()


def leave_tables():
    with Agent("--ports", "2", "--pipes", "1", "--polling", "0.01") as running:
        await_records()
        running.process.terminate()
        check(running.process.wait(LIMIT) == 0, "the agent's end")


def test_damage():
    leave_tables()
    half_written = {SLOT: word_at(SLOT) | 1, SLOT + 128 + 704: 1, SLOT + 8: 2}
    expect_state("torn", "Ethernet2", half_written)
    expect_state("busy", "Ethernet2", half_written, is_locked=True)
    expect_state("corrupt", "Ethernet2", {SLOT + 128 + 1944: word_at(SLOT + 128 + 1944) ^ 1})
    expect_state("corrupt", "Ethernet2", {SLOT + 16: word_at(SLOT + 16) + 1})
    expect_state("corrupt", "", {SLOT + 64: b"Ether\x1bet"})
    expect_unknown_age()
    expect_whole_while_written()

    expect_header_refused("no header yet", {0: 0})
    expect_header_refused("overwritten", {0: b"ILOTABLF"})
    expect_header_refused("has format 3, expected 2", {8: 3})
    expect_header_refused("damaged header", {48: 2})
    expect_header_refused("damaged header", {152: 1})
    expect_header_refused("half-written header", {128: word_at(128) | 1})
    shutil.copy(silo / "IntfQueueCounters", silo / "IntfClearCounters")
    expect_refusal('holds records "IntfQueueCounters" version 2 of 864 bytes, expected records "IntfCounters"',
                   "--silo", silo, "--table", "IntfClearCounters")
    os.truncate(silo / "VlanIntfCounters", 4096)
    expect_refusal("was cut short", "--silo", silo, "--table", "VlanIntfCounters")
    os.truncate(silo / "VlanIntfCounters", 100)
    expect_refusal("100 bytes", "--silo", silo, "--table", "VlanIntfCounters")
    os.remove(silo / "VlanIntfCounters")
    expect_refusal("No such file", "--silo", silo, "--table", "VlanIntfCounters")
    os.mkfifo(silo / "VlanIntfCounters")
    expect_refusal("VlanIntfCounters", "--silo", silo, "--table", "VlanIntfCounters")
    expect_refusal("none", "--silo", scratch / "none")


def test_options():
    leave_tables()
    for reader, command in READERS.items():
        shown = run([*command, "--help"])
        check(shown.returncode == 0 and shown.stdout.startswith("usage: ") and "--table" in shown.stdout, reader, shown)
        check(read(reader, "--table=IntfCounters").stdout.startswith("Ethernet1: ok"), reader)
        with open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run([*command, "--silo", silo], stdout=full, stderr=subprocess.PIPE, text=True)
        check(done.returncode == 1 and done.stderr.endswith("No space left on device\n"), reader, done.stderr)
    expect_refusal("see --help", "--silo")
    expect_refusal("see --help", "--table", "Nothing")
    expect_refusal("see --help", "--jso")
    expect_refusal("see --help", "Ethernet1", "Ethernet2")
    expect_refusal("no such record; leave the name out", "--silo", silo, "Ethernet3")


try:
    for test in (test_every_table, test_living_agent, test_killed_agent, test_turning_ring, test_damage, test_options):
        started = time.monotonic()
        shutil.rmtree(silo, ignore_errors=True)
        test()
        print(f"{test.__name__}: passed in {time.monotonic() - started:.1f} s", flush=True)
finally:
    shutil.rmtree(scratch)
