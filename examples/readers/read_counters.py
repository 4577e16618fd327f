#!/usr/bin/env python3
# Shows what an agent publishes in shared tables, counters, their history, and events, with nothing but Python's
# standard library. It is written from the byte layout in docs/published-records.md; a reader in another language looks
# much the same.
#
#    read_counters.py [--silo DIR] [--table TABLE] [--json] [INTF]
#
# Exit status: 0 if every record was whole, 2 if one was not (its state says why), 1 if nothing could be read.
import argparse
import fcntl
import itertools
import json
import mmap
import os
import re
import signal
import stat
import struct
import sys
import time

# --- Words and checksums

MASK = (1 << 64) - 1
START = (0x243F6A8885A308D3, 0x13198A2E03707344, 0xA4093822299F31D0, 0x082EFA98EC4E6C89)
MULTIPLIERS = (0x9E3779B97F4A7C15, 0xD6E8FEB86659FD93, 0xC2B2AE3D27D4EB4F, 0xA0761D6478BD642F)
WEIGHT = 0x452821E638D01377


def sums(words):
    """Of each lane of rows of four words each."""
    for lane in range(4):
        running = list(itertools.accumulate(words[lane::4], initial=START[lane]))
        yield running[-1] & MASK, sum(running[1:]) & MASK


def checksum(words):
    result = 0
    for (word, total), multiplier in zip(sums(words), MULTIPLIERS):
        result ^= (word + 2 * WEIGHT * total) * multiplier & MASK
    return result


def second_checksum(words):
    def exchanged(word):
        return word << 32 & MASK | word >> 32

    return sum(exchanged(word) * MULTIPLIERS[lane] + exchanged(total) * MULTIPLIERS[3 - lane]
               for lane, (word, total) in enumerate(sums(words))) & MASK | 1


def checksum_of_single(words):
    """The header's way: each word begins a row of its own."""
    return checksum([one for word in words for one in (word, 0, 0, 0)])


def hash_of(key_words):
    result = 0
    for word in key_words:
        result = (result ^ word) * 0x9E3779B97F4A7C15 & MASK
        result ^= result >> 32
    return result


def key_text(key_words):
    """The key's text; empty if the words are no key."""
    text, _, rest = struct.pack("=8Q", *key_words).partition(b"\0")
    return text.decode() if re.fullmatch(rb"[ -~]{1,63}", text) and not any(rest) else ""


def as_double(word):
    return struct.unpack("=d", struct.pack("=Q", word))[0]


# --- Records: what is in a table, and how to take a record's payload apart

ETH_FIELDS = [direction + "-" + name for direction in ("in", "out") for name in (
    "octets", "pkts", "unicast-pkts", "multicast-pkts", "broadcast-pkts", "8021q-frames", "mac-control-frames",
    "frames-64-octets", "frames-65-127-octets", "frames-128-255-octets", "frames-256-511-octets",
    "frames-512-1023-octets", "frames-1024-1518-octets", "frames-1519-2047-octets", "frames-2048-4095-octets",
    "frames-4096-8191-octets", "frames-8192-9215-octets", "frames-9216-or-more-octets")] + [
    "in-discards", "in-errors", "in-fcs-errors", "in-mac-pause-frames", "in-maxsize-exceeded", "in-undersize-frames",
    "in-oversize-frames", "in-fragment-frames", "in-jabber-frames", "in-crc-errors", "in-alignment-errors",
    "in-symbol-error", "in-mac-errors-rx", "out-discards", "out-errors", "out-mac-pause-frames",
    "out-mac-errors-tx"] + [
    f"priority.{priority}.{way}-pfc-frames" for way in ("in", "out") for priority in range(8)]
L3_FIELDS = ["in-octets", "in-pkts", "out-octets", "out-pkts"]


class Record:
    """A record taken apart: its totals by name, and its times by name, in seconds of the table's clock."""

    def __init__(self, totals, times, numbers=None):
        self.totals = totals
        self.times = times
        self.numbers = numbers or {}  # what only some have; also words


def read_intf(payload):
    totals = struct.unpack_from("=69Q", payload, 704)
    _, discontinuity, suspects, created, _, speed = struct.unpack_from("=ddQddQ", payload, 1904)
    return Record(dict(zip(ETH_FIELDS, totals)), {"discontinuity": discontinuity, "created": created},
                  {"speed": speed or None, "suspects": suspects})


def read_l3(payload):
    totals = struct.unpack_from("=4Q", payload, 32)
    discontinuity, _, created = struct.unpack_from("=dQd", payload, 112)
    return Record(dict(zip(L3_FIELDS, totals)), {"discontinuity": discontinuity, "created": created})


def read_queues(payload):
    present, = struct.unpack_from("=I", payload, 824)
    discontinuity, created = struct.unpack_from("=2d", payload, 840)
    totals = {}
    for queue in range(17):
        if present >> queue & 1:
            counts = struct.unpack_from("=3Q", payload, 24 * queue)
            names = (f"queue.{queue}.{name}" for name in ("packets", "bytes", "drops"))
            totals.update(zip(names, counts))
    return Record(totals, {"discontinuity": discontinuity, "created": created})


def read_nat(payload):
    creation, = struct.unpack_from("=q", payload, 64)
    last_update, packets, octets, discontinuity, created = struct.unpack_from("=d2Q2d", payload, 88)
    return Record({"packets": packets, "bytes": octets}, {"discontinuity": discontinuity, "created": created,
                                                          "creation": creation, "last-update": last_update})


POINTS = {
    "ingress": ["bad FCS", "invalid VLAN id", "VLAN not allowed", "group source address", "QoS policy", "ACL denied",
                "same port", "unknown unicast filtered", "no egress port"],
    "egress": ["queue congested", "VLAN not allowed", "ACL denied", "MTU exceeded"],
    "final": ["lost at the port", "lost at ingress", "lost in the queues", "lost at egress"]}
REASONS = [f"{point} {reasons[i] if i < len(reasons) else f'reason {i}'}"
           for point, reasons in POINTS.items() for i in range(16)]
STAGES = ["port-rx", "parser", "ingress", "ingress-deparser", "traffic-manager", "egress", "egress-deparser", "port-tx"]
DROP_PLACES = ["stage 0", "stage 1", "stage 2", "stage 3", "ingress deparser", "stage 4", "stage 5", "egress deparser"]
TM_COUNTERS = ["in from the pipe", "out to the pipe", "dropped", "multicast copies", "cut through"]
TM_LEVELS = ["cells in use", "cells of a port, peak"]
HEALTH = ["refused", "unanswered", "late", "wraps", "upsets"]
HEALTH_KINDS = ["mac", "tables", "queues", "traffic-manager"]
VERDICTS = ["ok", "degraded", "silent"]


class Places:
    """What all records of places begin with: arrays of so many places with so many values each."""

    def __init__(self, payload, places, values):
        count = places * values
        words = struct.unpack_from(f"={3 * count}Q{places + 2}d", payload)
        self.totals = [words[i:i + values] for i in range(0, count, values)]
        self.readings = [words[count + i:count + i + values] for i in range(0, count, values)]
        self.read_times = words[3 * count:3 * count + places]
        self.times = dict(zip(("discontinuity", "created"), words[-2:]))
        self.end = 8 * (3 * count + places) + 32

    def named(self, place, prefix, names, is_level=False):
        """A place's values, by their names, unless it was never read."""
        values = (self.readings if is_level else self.totals)[place]
        return {prefix + name: value for name, value in zip(names, values) if value or self.read_times[place]}


def read_drops(payload):
    places = Places(payload, 48, 1)
    totals = {}
    for place, name in enumerate(REASONS):
        if " reason " not in name or places.totals[place][0]:
            totals.update(places.named(place, f"drops.{name}.", ["packets"]))
    return Record(totals, places.times)


def read_classes(payload):
    places = Places(payload, 32, 1)
    totals = {}
    for place in range(32):
        name = printable(payload[places.end + 64 * place:places.end + 64 * place + 64].split(b"\0")[0])
        if name or places.totals[place][0]:
            totals.update(places.named(place, f"class.{name or f'class {place}'}.", ["packets"]))
    return Record(totals, places.times)


def reader_of_pipes(kind, names, values):
    def read(payload):
        places = Places(payload, len(names), len(values))
        totals = {}
        for place, name in enumerate(names):
            totals.update(places.named(place, f"{kind}.{name}.", values))
        return Record(totals, places.times)
    return read


def read_tm(payload):
    places = Places(payload, 7, 2)
    totals = {}
    for place, name in enumerate(TM_COUNTERS):
        totals.update(places.named(place, f"tm.{name}.", ["packets", "bytes"]))
    for place, name in enumerate(TM_LEVELS, len(TM_COUNTERS)):
        totals.update(places.named(place, f"tm.{name}.", ["cells"], True))
    return Record(totals, places.times)


def read_health(payload):
    places = Places(payload, 5, 1)
    verdict, _, up, *rest = struct.unpack_from("=2Id4d6Q", payload, places.end)
    totals = {}
    for place, name in enumerate(HEALTH):
        totals.update(places.named(place, "", [name]))
    totals.update({"outstanding": rest[8], "pending-vlans": rest[9]})
    times = places.times | {"up": up} | {kind + "-read": moment for kind, moment, is_polled
                                         in zip(HEALTH_KINDS, rest, rest[4:]) if is_polled}
    return Record(totals, times, {"verdict": VERDICTS[verdict] if verdict < len(VERDICTS) else "unknown"})


def read_place(payload):
    chip, device, port, speed = struct.unpack_from("=64s2IQ", payload)
    return Record({"device": device, "device-port": port, "speed": speed}, {},
                  {"chip": printable(chip.split(b"\0")[0])})


def read_agent(payload):
    version, started, _, dead, *times = struct.unpack_from("=32s2dQ3d", payload)
    microseconds = (int(time * 1e6 + 0.5) for time in times)
    bounds = [f"holds-{10 ** i}-us" for i in range(1, 6)] + ["holds-longer"]
    return Record({"dead-objects": dead, **dict(zip(["longest-hold-us", "longest-wait-us", "held-us"], microseconds)),
                   **dict(zip(bounds, struct.unpack_from("=6Q", payload, 80)))}, {"started": started},
                  {"version": printable(version.split(b"\0")[0])})


class Event:
    def __init__(self, payload):
        (self.number, self.time, self.unix_time, self.count, self.last_time, self.last_unix_time, self.has_values,
         self.before, self.after, self.others, *texts) = struct.unpack("=Q2dQ2d4Q24s64s64s256s", payload[:488])
        self.kind, self.where, self.what, self.text = (printable(text.split(b"\0")[0]) for text in texts)


def printable(text):
    return re.sub(b"[^ -~]", b"?", text).decode()


HISTORY_FIELDS = ["in-octets", "out-octets", "in-pkts", "out-pkts", "in-errors", "out-errors", "in-discards",
                  "out-discards", "out-queue-drops"]


class Layout:
    def __init__(self, name, version, size, read=None, subject="interfaces"):
        self.subject = subject  # what its records are of
        self.name = name
        self.version = version
        self.size = size
        self.read = read

    def __str__(self):
        return f'records "{self.name}" version {self.version} of {self.size} bytes'


INTF = Layout("IntfCounters", 3, 1952, read_intf)
L3 = Layout("L3IntfCounters", 2, 160, read_l3)
QUEUES = Layout("IntfQueueCounters", 2, 864, read_queues)
NAT = Layout("NatCounter", 2, 136, read_nat)
TABLES = {"IntfCounters": INTF, "IntfClearCounters": INTF, "IntfQueueCounters": QUEUES,
          "IntfClearQueueCounters": QUEUES, "VlanIntfCounters": L3, "VlanIntfClearCounters": L3,
          "SubIntfCounters": L3, "SubIntfClearCounters": L3, "IntfNatCounters": NAT,
          "IntfPlaces": Layout("IntfPlace", 1, 80, read_place),
          "IntfDropCounters": Layout("IntfDropCounters", 1, 1568, read_drops),
          "IntfPdpCounters": Layout("IntfPdpCounters", 1, 3104, read_classes),
          "PipeStageCounters": Layout("PipeStageCounters", 1, 672,
                                      reader_of_pipes("stage", STAGES, ["in", "out", "dropped"]), "pipes"),
          "PipeDropCounters": Layout("PipeDropCounters", 1, 288, reader_of_pipes("drops", DROP_PLACES, ["packets"]),
                                     "pipes"),
          "PipeTmCounters": Layout("PipeTmCounters", 1, 424, read_tm, "pipes"),
          "ChipHealth": Layout("ChipHealth", 1, 288, read_health, "chips"),
          "AgentHealth": Layout("AgentHealth", 2, 128, read_agent, "agents"),
          "Events": Layout("Event", 1, 488, Event)}
HISTORIES = {"IntfHistory": Layout("IntfHistory", 1, 72), "IntfQueueHistory": Layout("IntfQueueHistory", 1, 192)}

# --- Tables

MAGIC = 0x454C4241544F4C49
FORMAT_VERSION = 2
HEADER_BYTES = 256
HEAD_BYTES = 128  # of a slot, and of the journal, before the payload


class TableError(Exception):
    """Says in one line why a table cannot be read, and what to do."""


class Patience:
    """How long to wait for what is being written: 50 ms in all, and not at all for a dead writer."""

    def __init__(self, table):
        self.table = table
        self.deadline = None
        self.is_writer_dead = False
        self.is_exhausted = False

    def wait(self):
        """True if another look may help."""
        if self.is_exhausted:
            return False
        if self.deadline is None:
            self.deadline = time.monotonic() + 0.05
        if not self.table.is_writer_alive():
            # Once more: it may have finished and gone since the last look.
            self.is_writer_dead = self.is_exhausted = True
            return True
        self.is_exhausted = time.monotonic() >= self.deadline
        if not self.is_exhausted:
            time.sleep(0.00005)
        return not self.is_exhausted


class Row:
    def __init__(self, name, state, generation=0, sample_time=float("-inf"), record=None):
        self.name = name  # empty: lost
        self.state = state  # "ok", or why there is no record
        self.generation = generation
        self.sample_time = sample_time
        self.record = record


def open_table(path, owners):
    """Neither through a symbolic link nor waiting at a pipe, and only what nobody else could have put there."""
    file = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC)
    status = os.fstat(file)
    if not stat.S_ISREG(status.st_mode) or status.st_uid not in owners or status.st_mode & 0o022:
        os.close(file)
        raise TableError(f"{path} is no file of {' or '.join('user ' + str(one) for one in sorted(owners))} "
                         "that nobody else may write to")
    return file


def has_writer(file):
    """A writer holds a lock of the file, which ends with its process, however that ends."""
    anybody = struct.pack("@hhqqi4x", fcntl.F_RDLCK, os.SEEK_SET, 0, 0, 0)
    return struct.unpack("@hhqqi4x", fcntl.fcntl(file, fcntl.F_OFD_GETLK, anybody))[0] != fcntl.F_UNLCK


def path_in_memory(name):
    """This user's table, or root's: the first that an agent writes, or else the first that is there."""
    user = os.geteuid()
    paths = ([f"/dev/shm/zelagent.{user}.{name}"] if user else []) + ["/dev/shm/zelagent." + name]
    there = []
    for path in paths:
        try:
            file = open_table(path, {user, 0})
        except (OSError, TableError):
            continue
        there.append(path)
        is_written = has_writer(file)
        os.close(file)
        if is_written:
            return path
    return (there + paths)[0]


class Table:
    """A table as it was found under its name. Made anew for each reading: the agent may replace the file."""

    def __init__(self, folder, name):
        self.path = os.path.join(folder, name) if folder else path_in_memory(name)
        self.layout = (TABLES | HISTORIES)[name]
        try:
            self.file = open_table(self.path, {os.geteuid(), 0} | ({os.stat(folder).st_uid} if folder else set()))
            size = os.fstat(self.file).st_size
            self.require(size >= HEADER_BYTES,
                         f"has only {size} bytes: no table, or its agent is just starting; try again")
            # Word by word: taken from this view, each word is one load of the processor.
            self.words = memoryview(mmap.mmap(self.file, size, prot=mmap.PROT_READ))[:size // 8 * 8].cast("Q")
        except OSError as error:
            raise TableError(f"cannot open {self.path}: {error.strerror}; is an agent running, "
                             "and does it keep its tables there?") from error
        self.check_identity()
        self.read_state()
        self.measure(size)
        needed = self.first_slot + self.capacity * self.stride
        self.require(size >= needed, f"was cut short: {size} bytes, expected {needed}; start its agent again")

    def measure(self, _):
        payload = -(-self.layout.size // 64) * 64
        self.stride = HEAD_BYTES + payload
        self.first_slot = HEADER_BYTES + HEAD_BYTES + payload

    def require(self, condition, problem):
        if not condition:
            raise TableError(f"{self.path} {problem}")

    def check_identity(self):
        magic, version = self.words[0:2].tolist()
        self.require(magic != 0, "has no header yet: its agent is just starting, or died on its way; try again")
        self.require(magic == MAGIC, "is no table, or was overwritten; start its agent again")
        self.require(version == FORMAT_VERSION,
                     f"has format {version}, expected {FORMAT_VERSION}: use the reader of the agent's release")
        identity = self.words[1:8].tolist()
        self.require(self.words[8] == checksum_of_single(identity[1:5] + identity[0:1] + identity[5:7]),
                     "has a damaged header; start its agent again")
        name = struct.pack("=4Q", *identity[1:5]).split(b"\0")[0]
        found = Layout(re.sub("[^ -~]", "?", name.decode("ascii", "replace")), identity[5], identity[6], None)
        self.require(str(found) == str(self.layout),
                     f"holds {found}, expected {self.layout}: use the reader of the agent's release")

    def read_state(self):
        patience = Patience(self)
        while True:
            sequence = self.words[16]
            state_checksum, *state = self.words[18:26].tolist()
            if sequence and not sequence & 1 and self.words[16] == sequence:
                break
            self.require(patience.wait(), "has a half-written header; start its agent again")
        self.require(state_checksum == checksum_of_single(state), "has a damaged header; start its agent again")
        self.capacity = state[0]
        self.polling_interval = as_double(state[3])
        self.is_simulated = state[4] != 0
        self.clock_id = (state[5], state[6])

    def is_writer_alive(self):
        return has_writer(self.file)

    def has_our_clock(self):
        """Whether its times are those of this machine's monotonic clock since it was last started."""
        with open("/proc/sys/kernel/random/boot_id", encoding="ascii") as file:
            digits = file.read().strip().replace("-", "")
        return not self.is_simulated and self.clock_id == (int(digits[:16], 16), int(digits[16:], 16))

    def try_read(self, at):
        """One look at a slot, by the index of its first word. None: it is being written."""
        sequence = self.words[at]
        if sequence & 1:
            return None
        head = self.words[at:at + 16].tolist()
        rows = -(-self.layout.size // 32) * 4
        payload = self.words[at + 16:at + 16 + rows].tolist()
        if self.words[at] != sequence:
            return None
        _, expected, generation, sample_time, key_hash, second = head[:6]
        if not any(head[8:]):
            return Row("", "absent")
        name = key_text(head[8:])
        if not name or hash_of(head[8:]) != key_hash:
            return Row("", "corrupt")
        summed = [generation, sample_time, key_hash, 0] + payload
        if checksum(summed) != expected or second not in (0, second_checksum(summed)):
            return Row(name, "corrupt")
        record = self.layout.read(struct.pack(f"={rows}Q", *payload))
        return Row(name, "ok", generation, as_double(sample_time), record)

    def read_slot(self, at, patience):
        while (row := self.try_read(at)) is None and patience.wait():
            pass
        if row is None:
            # Its key, if that is whole, says at least whose record this was.
            key = self.words[at + 8:at + 16].tolist()
            name = key_text(key) if hash_of(key) == self.words[at + 4] else ""
            row = Row(name, "torn" if patience.is_writer_dead else "busy")
        return row

    def rows(self):
        """All records. Each is whole, but they are not all of one moment."""
        patience = Patience(self)
        for _ in range(3):
            version = self.words[17]
            slots = [self.read_slot((self.first_slot + i * self.stride) // 8, patience) for i in range(self.capacity)]
            found = [row for row in slots if row.state != "absent"]
            if self.words[17] == version:
                return found
        # Keys were added all the time: one may have moved to another slot and been met twice.
        return list({row.name or id(row): row for row in found}.values())


class Sample:
    def __init__(self, mark, time_word, values):
        self.number = mark >> 8
        self.marks = [name for flag, name in ((2, "begun"), (1, "discontinuity")) if mark & flag]
        self.time = as_double(time_word)
        self.values = values


BANK_RINGS = 16


class Ring:
    def __init__(self, name, samples):
        self.name = name
        self.samples = samples  # whole ones, oldest first


class History(Table):
    """A table of rings instead of slots. Nothing of it is worth waiting for: what is being written is left out."""

    def measure(self, size):
        self.require(size >= HEADER_BYTES + 64, f"has only {size} bytes: no history; start its agent again")
        self.depth, expected = self.words[32:34].tolist()
        self.require(expected == checksum_of_single([self.depth]) and 1 <= self.depth <= 1_000_000,
                     "has a damaged header; start its agent again")
        self.sample_words = 3 + self.layout.size // 8
        self.stride = 128 + self.depth * 8 * self.sample_words  # of a ring; capacity is in whole banks
        self.first_slot = HEADER_BYTES + 64

    def try_read_sample(self, at):
        """The sample at this word; None if there is none, or none that is whole."""
        mark, time_word, expected, *values = self.words[at:at + self.sample_words].tolist()
        padding = [0] * (-len(values) % 4)
        if mark == 0 or self.words[at] != mark or checksum([mark, time_word, 0, 0] + values + padding) != expected:
            return None
        return Sample(mark, time_word, values)

    def samples(self, bank, k):
        """Those of ring k of the bank at this word."""
        found = []
        for i in range(self.depth):
            sample = self.try_read_sample(bank + 16 * BANK_RINGS + (i * BANK_RINGS + k) * self.sample_words)
            if sample and sample.number % self.depth == i:
                found.append(sample)
        # The ring may have turned meanwhile: what was met before the newest ones came is too old.
        newest = max((sample.number for sample in found), default=0)
        return sorted((one for one in found if one.number + self.depth > newest), key=lambda one: one.number)

    def rings(self, is_wanted):
        """Of all keys that are wanted and have samples."""
        found = {}
        for i in range(self.capacity):
            k = i % BANK_RINGS
            bank = (self.first_slot + (i - k) * self.stride) // 8
            at = bank + 16 * k
            sequence = self.words[at]
            key = self.words[at + 8:at + 16].tolist()
            name = key_text(key)
            if not name or hash_of(key) != self.words[at + 1] or sequence & 1 or not is_wanted(name):
                continue
            samples = self.samples(bank, k)
            if self.words[at] == sequence and samples:  # else it was given to another key meanwhile
                found.setdefault(name, Ring(name, samples))
        return sorted(found.values(), key=natural)


# --- Output

def natural(row):
    """Orders Ethernet2 before Ethernet10."""
    return [(0, int(part), "") if part.isdigit() else (1, 0, part) for part in re.split(r"(\d+)", row.name) if part]


def milliseconds(seconds):
    return None if seconds is None else int(seconds * 1e3 + 0.5)


class View:
    """What is shown of a table, and what follows from the time of the reading."""

    def __init__(self, table, name, shown):
        self.name = name
        self.shown = shown
        self.is_writer_alive = table.is_writer_alive()
        self.polling_interval = table.polling_interval
        self.has_our_clock = table.has_our_clock()
        self.now = time.clock_gettime(time.CLOCK_MONOTONIC)  # last, so that nothing is younger than now

    def age(self, sample_time):
        """Seconds; None if the sample time is of another clock, or yet to come."""
        age = self.now - sample_time
        return max(age, 0.0) if self.has_our_clock and -0.001 <= age < float("inf") else None

    def age_text(self, sample_time):
        age = self.age(sample_time)
        return f"{age:.1f} s ago" if age is not None else "at an unknown time"

    def since(self, row, moment):
        seconds = self.now - moment
        return seconds if moment != 0 and self.age(row.sample_time) is not None and seconds >= 0 else None

    def is_stale(self, row):
        age = self.age(row.sample_time)
        return age is None or age > 3 * self.polling_interval

    def as_json(self, rest):
        return json.dumps({"table": self.name, "polling-interval-ms": milliseconds(self.polling_interval),
                           "writer-alive": self.is_writer_alive, **rest}, indent=2)

    def as_text(self, lines, empty):
        return "\n".join((lines or [empty]) + (
            [] if self.is_writer_alive else ["No agent is running, so nothing newer is published."]))


def as_json(view):
    """The same document as that of the client's commands."""
    interfaces = []
    for row in view.shown:
        shown = {"name": row.name, "state": row.state}
        if row.state == "ok":
            shown.update({"age-ms": milliseconds(view.age(row.sample_time)), "stale": view.is_stale(row),
                          "generation": row.generation})
            for name, moment in row.record.times.items():
                shown[name + "-age-ms"] = milliseconds(view.since(row, moment))
            shown.update(row.record.numbers)
            shown["totals"] = row.record.totals
        interfaces.append(shown)
    return view.as_json({TABLES[view.name].subject: interfaces})


def summary(totals):
    """What a list has room for: of queues, their sums; of places, those that count."""
    sums = {name: total for name, total in totals.items()
            if total and "." in name and not name.startswith(("queue.", "priority."))}
    for name, total in totals.items():
        column = name.split(".")[-1] if name.startswith("queue.") else name
        if column in L3_FIELDS + ["packets", "bytes", "drops"]:
            sums[column] = sums.get(column, 0) + total
    return sums


def as_text(view, is_whole):
    lines = []
    for row in view.shown:
        line = f"{row.name or '(name lost)'}: {row.state}"
        if row.state == "ok":
            line += (", stale" if view.is_stale(row) else "") + ", sampled " + view.age_text(row.sample_time)
            line += "".join(f", {name} {word}" for name, word in row.record.numbers.items() if isinstance(word, str))
            totals = row.record.totals if is_whole else summary(row.record.totals)
            separator = "\n   " if is_whole else ", "
            line += "".join(f"{separator}{name} {total}" for name, total in totals.items())
        lines.append(line)
    return view.as_text(lines, "no records")


def show_records(options):
    table = Table(options.silo, options.table)
    rows = sorted((row for row in table.rows() if options.intf in (None, row.name)), key=natural)
    view = View(table, options.table, rows)
    if options.intf is not None and not rows:
        raise TableError(f"{options.table} has no such record; leave the name out to list all")
    print(as_json(view) if options.json else as_text(view, options.intf is not None), flush=True)
    return all(row.state == "ok" for row in rows)


# --- Output of histories

def totals_of(table, ring, sample):
    if table == "IntfHistory":
        return dict(zip(HISTORY_FIELDS, sample.values))
    more = re.fullmatch(".* ([0-9]+)", ring.name)  # the ring's first queue, where that isn't 0
    names = (f"queue.{queue + (int(more[1]) if more else 0)}.{name}"
             for queue in range(8) for name in ("packets", "bytes", "drops"))
    return dict(zip(names, sample.values))


def history_as_json(view, depth):
    rings = [{"name": ring.name, "age-ms": milliseconds(view.age(ring.samples[-1].time)),
              "samples": [{"number": one.number, "time-ms": milliseconds(one.time), "marks": one.marks,
                           "totals": totals_of(view.name, ring, one)} for one in ring.samples]}
             for ring in view.shown]
    return view.as_json({"depth": depth, "rings": rings})


def history_as_text(view, is_whole):
    lines = []
    for ring in view.shown:
        lines.append(f"{ring.name}: {len(ring.samples)} samples, the newest {view.age_text(ring.samples[-1].time)}")
        for one in ring.samples if is_whole else []:
            totals = totals_of(view.name, ring, one)
            words = one.marks + [f"{name} {total}" for name, total in totals.items()]
            lines.append(f"   {one.number} at {one.time:.3f} s: " + ", ".join(words))
    return view.as_text(lines, "no samples")


def show_history(options):
    table = History(options.silo, options.table)
    keys = (options.intf, f"{options.intf} 8", f"{options.intf} 16")
    rings = table.rings(lambda name: options.intf is None or name in keys)
    view = View(table, options.table, rings)
    if options.intf is not None and not rings:
        raise TableError(f"{options.table} has no samples of it; leave the name out to list all")
    print(history_as_json(view, table.depth) if options.json else history_as_text(view, options.intf is not None),
          flush=True)
    return True


# --- Output of events

def events_as_json(view):
    events = []
    for row in view.shown:
        shown = {"state": row.state}
        if row.state == "ok":
            event = row.record
            shown.update({"number": event.number, "time-ms": milliseconds(event.time),
                          "unix-time-ms": milliseconds(event.unix_time), "count": event.count,
                          "last-time-ms": milliseconds(event.last_time),
                          "last-unix-time-ms": milliseconds(event.last_unix_time), "kind": event.kind,
                          "where": event.where, "what": event.what,
                          "before": event.before if event.has_values else None,
                          "after": event.after if event.has_values else None, "others": event.others,
                          "text": event.text})
        events.append(shown)
    return view.as_json({"events": events})


def event_as_text(event):
    def date(seconds):
        known = 0 <= seconds < 253402300800  # the year 10000
        return time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(seconds)) if known else "(unknown time)"

    words = [str(event.number), date(event.unix_time), event.kind, event.where, event.what]
    words += [str(event.before), "->", str(event.after)] if event.has_values else []
    words += [f"and {event.others} others"] if event.others else []
    words += [f"{event.count} times until {date(event.last_unix_time)}"] if event.count > 1 else []
    return " ".join(word for word in words if word) + (f": {event.text}" if event.text else "")


def show_events(options):
    table = Table(options.silo, options.table)
    rows = [row for row in table.rows() if row.state != "ok" or options.intf in (None, row.record.where)]
    rows.sort(key=lambda row: (row.state == "ok", row.record.number if row.record else 0))
    view = View(table, options.table, rows)
    lines = [event_as_text(row.record) if row.record else f"an event is {row.state}" for row in rows]
    print(events_as_json(view) if options.json else view.as_text(lines, "no events"), flush=True)
    return all(row.state == "ok" for row in rows)




class Parser(argparse.ArgumentParser):
    def error(self, message):
        raise TableError(re.sub("[^ -~]", "?", message) + "; see --help")


def parse_arguments():
    tables = list(TABLES) + list(HISTORIES)
    parser = Parser(description="Shows what an agent publishes in shared tables.", allow_abbrev=False,
                    epilog="Exit status: 0 if every record was whole, 2 if one was not, 1 if nothing could be read.")
    parser.add_argument("--silo", metavar="DIR",
                        help="folder of the shared tables (this user's in shared memory, or root's)")
    parser.add_argument("--table", default="IntfCounters", choices=tables, metavar="TABLE",
                        help="one of " + ", ".join(tables) + " (IntfCounters)")
    parser.add_argument("--json", action="store_true", help="print one JSON document")
    parser.add_argument("intf", metavar="INTF", nargs="?",
                        help="only this interface, with all its counters, samples or events")
    return parser.parse_args()


def main():
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader of the output that leaves is no error
    try:
        options = parse_arguments()
        show = show_records if options.table in TABLES else show_history
        if options.table == "Events":
            show = show_events
        return 0 if show(options) else 2
    except TableError as error:
        print(f"read-counters: {error}", file=sys.stderr)
    except OSError as error:
        print(f"read-counters: cannot write the output: {error.strerror}", file=sys.stderr)
        os._exit(1)  # not sys.exit, which would try to write it again
    return 1


if __name__ == "__main__":
    sys.exit(main())
