#!/usr/bin/env python3
# Lets an agent live beside a killer, a filler of its disk, a remover of its tables, hostile clients and four readers, and
# checks that no total is ever wrong, that the agent never ends by itself, and that nothing is left behind.
#
#    soak.py ZELAGENT ZELCTL READ_COUNTERS.PY SECONDS [SEED]
#
# A total is right if it exceeds the hardware's own count, which no fault touches, by the same amount as long as its
# record counts: the hardware's counts are in a file of their own, on another disk. As root, the tables are on a small
# file system of their own, which the filler fills; elsewhere it rests.
import importlib.util
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

FIELDS = 69
DISK_BYTES = 64 << 20  # three times what the tables take


def load(path):
    sys.dont_write_bytecode = True
    spec = importlib.util.spec_from_file_location("read_counters", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def print_records(tables, folder):
    """A line of JSON for each look at the ports' table, for ever."""
    read_intf = tables.INTF.read

    def read(payload):
        record = read_intf(payload)
        record.readings = struct.unpack_from(f"={FIELDS}Q", payload)
        record.created_unix, = struct.unpack_from("=d", payload, 1936)
        return record

    tables.INTF.read = read
    while True:
        time.sleep(0.005)
        try:
            rows = tables.Table(folder, "IntfCounters").rows()
        except (tables.TableError, ValueError, IndexError):
            rows = []  # a line all the same: whoever takes it looks then whether all is over
        print(json.dumps([(row.name, row.record.created_unix, list(row.record.totals.values()), row.record.readings, "ok")
                          if row.state == "ok" else (row.name, 0, [], [], row.state) for row in rows]), flush=True)


if sys.argv[1] == "--reader":
    print_records(load(sys.argv[2]), sys.argv[3])

agent, client, reader = sys.argv[1:4]
duration = float(sys.argv[4])
seed = int(sys.argv[5]) if len(sys.argv) > 5 else os.getpid()
tables = load(reader)

scratch = pathlib.Path(tempfile.mkdtemp())
silo = scratch / "silo"
silo.mkdir(mode=0o700)
command_socket = scratch / "socket"
reading_socket = scratch / "read-socket"
over = threading.Event()
failures = []
counts = {}
counts_lock = threading.Lock()


def count(what, number=1):
    with counts_lock:
        counts[what] = counts.get(what, 0) + number


def fail(*problem):
    failures.append(" ".join(str(part) for part in problem))
    over.set()


def part(function):
    """A part of the soak in a thread of its own; whatever it did not foresee is a failure."""

    def run(rng):
        try:
            function(rng)
        except Exception as error:  # pylint: disable=broad-except
            fail(function.__name__, "ended with", repr(error))

    thread = threading.Thread(target=run, args=(random.Random(rng.random()),))
    thread.start()
    return thread


# --- The agent and who kills it


class Agent:
    def __init__(self):
        self.log = open(scratch / "agent-log", "ab")
        self.start()

    def start(self):
        self.process = subprocess.Popen(
            [agent, "--silo", silo, "--socket", command_socket, "--read-socket", reading_socket, "--read-group",
             str(os.getgid()), "--hardware", scratch / "hardware", "--polling", "0.2", "--ports", "16"],
            stdout=self.log, stderr=self.log, stdin=subprocess.DEVNULL)

    def ended(self):
        return self.process.poll() is not None


def keep_alive(rng):
    """Kills the agent now and then and starts it again. A start may fail while the disk is full, never otherwise."""
    while not over.is_set():
        next_kill = time.monotonic() + rng.uniform(1, 6)
        while time.monotonic() < next_kill and not over.is_set():
            time.sleep(0.05)
            if running.ended():
                status = running.process.returncode
                if status < 0 or not disk_was_full(5):
                    fail("the agent ended by itself with status", status)
                    return
                count("starts refused by a full disk")
                time.sleep(0.2)
                running.start()
        if over.is_set():
            break
        running.process.kill()
        running.process.wait()
        count("kills")
        running.start()


# --- What happens to its files

full_until = [0.0]


def disk_was_full(seconds):
    return time.monotonic() < full_until[0] + seconds


def fill_disk(rng):
    filler = silo / "filler"
    while not over.wait(rng.uniform(2, 6)):
        full_until[0] = time.monotonic() + 3600
        with open(filler, "wb", buffering=0) as file:
            try:
                while file.write(bytes(1 << 16)):
                    pass
            except OSError:
                pass
            count("full disks")
            over.wait(rng.uniform(0.5, 2))
        filler.unlink()
        full_until[0] = time.monotonic()


def damage_tables(rng):
    while not over.wait(rng.uniform(1, 4)):
        files = [path for path in silo.iterdir() if path.name in tables.TABLES]
        if not files:
            continue
        path = rng.choice(files)
        way = rng.choice(("remove", "cut", "cut to nothing", "overwrite the beginning"))
        try:
            if way == "remove":
                path.unlink()
            elif way == "overwrite the beginning":
                with open(path, "r+b") as file:
                    file.write(rng.randbytes(64))
            else:
                os.truncate(path, 0 if way == "cut to nothing" else rng.randrange(path.stat().st_size + 1))
        except FileNotFoundError:
            continue
        count(f"tables: {way}")


# --- Who asks it


def be_hostile(rng):
    def connection(path):
        one = socket.socket(socket.AF_UNIX)
        one.settimeout(0.2)
        one.connect(str(path))
        return one

    held = []
    while not over.wait(0.02):
        try:
            one = connection(rng.choice((command_socket, reading_socket)))
            line = rng.choice((b"zel/2 counters show", b"zel/2 counters show drop json\n", b"zel/2 complete counters \n",
                               b"zel/9 counters\n", b"x" * 5000, b"zel/2 \0\0\0\n", rng.randbytes(200),
                               b"zel/2 counters show table " + rng.randbytes(30) + b"\n"))
            one.sendall(line)
            count("hostile requests")
            held.append(one)
            if len(held) > 40:
                held.pop(rng.randrange(len(held))).close()
        except OSError:
            pass
    for one in held:
        one.close()


def ask(rng):
    """A client that behaves. It may meet an agent that is dead, busy or being refused its disk, and says so."""
    while not over.wait(0.3):
        command = rng.choice((["counters", "show", "drop", "json"], ["counters", "show", "health"], ["interfaces"],
                              ["queues", "json"], ["log"]))
        done = subprocess.run([client, "--silo", silo, "--socket", command_socket, *command], capture_output=True,
                              text=True, timeout=60)
        count("questions")
        if done.returncode not in (0, 1) or (done.returncode == 1 and not done.stderr.startswith("% ")):
            fail("zelctl", *command, "ended with", done.returncode, done.stderr[:500])
        if done.returncode == 0 and "json" in command:
            json.loads(done.stdout)


def read_records(_):
    """Compares what a reader prints. A reader in Python ends when the table that it looks at is cut: another goes on."""
    excess = {}
    last = {}
    while not over.is_set():
        process = subprocess.Popen([sys.executable, __file__, "--reader", reader, silo], stdout=subprocess.PIPE, text=True)
        for line in process.stdout:
            for name, created, totals, readings, state in json.loads(line):
                count("records" if state == "ok" else f"records {state}")
                if state != "ok":
                    continue
                key = name, created
                now = [(total - reading) % 2**64 for total, reading in zip(totals, readings)]
                if excess.setdefault(key, now) != now:
                    fail(name, "counted wrongly since", created, ":", now, "expected", excess[key])
                if any(old > new for old, new in zip(last.get(key, totals), totals)):
                    fail(name, "counted backwards")
                last[key] = totals
            if over.is_set():
                process.terminate()
        if process.wait() not in (-signal.SIGBUS, -signal.SIGTERM):
            fail("a reader ended with status", process.returncode)
        count("readers that met a table being cut", process.returncode == -signal.SIGBUS)


# --- All of it

print("seed", seed, flush=True)
rng = random.Random(seed)
is_mounted = os.geteuid() == 0 and subprocess.run(
    ["mount", "-t", "tmpfs", "-o", f"size={DISK_BYTES},mode=700", "zel-soak", silo]).returncode == 0
if not is_mounted:
    print("the disk is not filled: that takes root", flush=True)
running = Agent()
try:
    hostile = [part(keep_alive), part(damage_tables), part(be_hostile)] + ([part(fill_disk)] if is_mounted else [])
    others = [part(ask)] + [part(read_records) for _ in range(4)]
    over.wait(duration)
    over.set()
    for thread in hostile + others:
        thread.join()
    # Peace: an agent that was left alone has all its tables again, fresh, and ends when it is told to.
    if running.ended():
        running.start()
    time.sleep(3)
    for name in ("IntfCounters", "IntfQueueCounters"):
        rows = tables.View(tables.Table(str(silo), name), name, None)
        if len(rows.rows) != 16 or any(row.state != "ok" or rows.is_stale(row) for row in rows.rows):
            fail(name, "is not whole and fresh after all:", [(row.name, row.state) for row in rows.rows])
    running.process.send_signal(signal.SIGTERM)
    if running.process.wait(20) != 0:
        fail("the agent ended with status", running.process.returncode)
    left = sorted(path.name for path in silo.iterdir() if path.name not in tables.TABLES)
    left += [path.name for path in (command_socket, reading_socket) if path.exists()]
    if left:
        fail("left behind:", left)
finally:
    running.process.kill()
    running.process.wait()
    if is_mounted:
        subprocess.run(["umount", "--lazy", silo], check=True)
for what, number in sorted(counts.items()):
    print(f"{number:10} {what}")
if failures:
    print("FAILED:", *dict.fromkeys(failures), sep="\n   ")
    print("The agent's log is in", scratch)
    sys.exit(1)
shutil.rmtree(scratch)
print("all totals were right, and nothing was left behind")
