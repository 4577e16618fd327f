#!/usr/bin/env python3
# A real Prometheus collects from a living agent through the exporter, and what it computes is held against the shared
# records: through an agent that is killed, an exporter that ends, clears, a wrap and upsets. Exits with status 77 where
# there is no Prometheus.
#
#    prometheus-test.py ZELAGENT ZELCTL ZELEXPORTER READ_COUNTERS.PY PACKAGING/PROMETHEUS
#
# What a scrape found is known exactly only if nothing moved around it. So before each comparison the traffic stops,
# until all records have been read again and show the same; then comes another scrape. Scrapes are half a second apart
# and not 15 s, for the test to end soon; all else is as in the configuration that is installed.
import collections
import contextlib
import importlib.util
import json
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

if any(shutil.which(program) is None for program in ("prometheus", "promtool")):
    print("skipped: no Prometheus here; scripts/setup telemetry installs it")
    sys.exit(77)

agent_program, client, exporter_program, reader = sys.argv[1:5]
packaging = pathlib.Path(sys.argv[5])
scratch = pathlib.Path(tempfile.mkdtemp())
silo = scratch / "silo"
LIMIT = 60  # seconds to wait for anything

sys.dont_write_bytecode = True
spec = importlib.util.spec_from_file_location("read_counters", reader)
tables = importlib.util.module_from_spec(spec)
spec.loader.exec_module(tables)


def check(condition, *problem):
    if not condition:
        raise AssertionError(" ".join(str(part) for part in problem))


def await_(what, look):
    """What look() says, once that is not empty."""
    end = time.monotonic() + LIMIT
    while not (found := look()):
        check(time.monotonic() < end, "waited for", what)
        time.sleep(0.05)
    return found


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def fetch(port, path, **headers):
    request = urllib.request.Request(f"http://127.0.0.1:{port}{path}", headers=headers)
    with urllib.request.urlopen(request, timeout=LIMIT) as answer:
        return answer.read().decode()


# --- The programs

running = contextlib.ExitStack()


def start(name, command, **options):
    process = subprocess.Popen([str(word) for word in command], stdout=subprocess.DEVNULL,
                               stderr=open(scratch / (name + ".err"), "ab"), **options)
    running.callback(lambda: (process.kill(), process.wait()))
    return process


class Agent:
    """A scenario in real time, whose statements come while it lives."""

    def __init__(self):
        self.process = start("agent", [agent_program, "--ports", 4, "--polling", 0.2, "--silo", silo,
                                       "--hardware", scratch / "hardware", "--socket", scratch / "socket",
                                       "--scenario", "-", "--realtime"],
                             stdin=subprocess.PIPE, text=True)

    def does(self, *statements):
        """Returns when they are done: the last statement is one that is refused in a known way."""
        errors = scratch / "agent.err"
        before = errors.read_text().count("% no queues")
        self.process.stdin.write("\n".join(statements) + "\nqueues Nobody\n")
        self.process.stdin.flush()
        await_(f"the end of {statements}", lambda: errors.read_text().count("% no queues") > before)

    def is_killed(self):
        self.process.kill()
        self.process.wait()


exporter_port = free_port()
prometheus_port = free_port()


def start_exporter():
    process = start("exporter", [exporter_program, "--silo", silo, "--listen", f"127.0.0.1:{exporter_port}"])

    def answers():
        check(process.poll() is None, "the exporter ended:", (scratch / "exporter.err").read_text())
        with contextlib.suppress(urllib.error.URLError):
            return fetch(exporter_port, "/healthz")

    await_("the exporter", answers)
    return process


def start_prometheus():
    for rules in packaging.glob("zel-*.yml"):
        shutil.copy(rules, scratch)
    text = (packaging / "zel.yml").read_text()
    for pattern, change in ((r"(?<=_interval: )15s", "500ms"), (r"(?<=scrape_timeout: )10s", "500ms"),
                            (r"127\.0\.0\.1:9469", f"127.0.0.1:{exporter_port}")):
        text, found = re.subn(pattern, change, text)
        check(found, "the scrape configuration has no", pattern)
    (scratch / "zel.yml").write_text(text)
    start("prometheus", ["prometheus", "--config.file", scratch / "zel.yml", "--storage.tsdb.path", scratch / "tsdb",
                         "--web.listen-address", f"127.0.0.1:{prometheus_port}", "--log.level", "warn"])


Series = collections.namedtuple("Series", "name labels")  # labels but those of the target, sorted


def query(expression, at=None):
    """The values of an instant vector by series."""
    words = {"query": expression} | ({"time": f"{at:.3f}"} if at else {})
    try:
        answer = json.loads(fetch(prometheus_port, "/api/v1/query?" + urllib.parse.urlencode(words)))
    except urllib.error.HTTPError as error:
        check(error.code == 503, expression, error.read())
        return {}  # it is just starting
    except urllib.error.URLError:
        return {}  # or not even that
    values = {}
    for one in answer["data"]["result"]:
        labels = {name: value for name, value in one["metric"].items() if name not in ("job", "instance", "switch")}
        values[Series(labels.pop("__name__", ""), tuple(sorted(labels.items())))] = float(one["value"][1])
    return values


def number(expression, at=None):
    """The value of the only series, or None."""
    values = list(query(expression, at).values())
    check(len(values) <= 1, expression, "has", len(values), "series")
    return values[0] if values else None


def scrape_after(moment):
    """When the first scrape began that came after the moment, and had the agent's records."""
    return await_("a scrape", lambda: (at := number("timestamp(zel_agent_up)")) and at > moment and
                  number("zel_agent_up", at) == 1 and at)


# --- The records

RENAMED = {"octets": "bytes", "pkts": "packets", "drops": "dropped_packets"}


def series_of(interface, counter):
    """Where a counter of a record must be."""
    labels = {"interface": interface}
    if match := re.fullmatch(r"priority\.(\d)\.(in|out)-pfc-frames", counter):
        labels["priority"] = match[1]
        name = f"interface_{match[2]}_pfc_frames"
    elif match := re.fullmatch(r"(in|out)-frames-(.+)-octets", counter):
        labels["size"] = match[2].replace("or-more", "")
        name = f"interface_{match[1]}_frames_by_size"
    elif match := re.fullmatch(r"queue\.(\d+)\.(.+)", counter):
        labels["queue"] = match[1]
        name = "queue_" + RENAMED.get(match[2], match[2])
    else:
        name = "interface_" + "_".join(RENAMED.get(word, word) for word in counter.split("-"))
    return Series(f"zel_{name}_total", tuple(sorted(labels.items())))


def records():
    return [row for table in ("IntfCounters", "IntfQueueCounters") for row in tables.Table(silo, table).rows()]


def totals_read_after(moment):
    """Of all ports and queues by series, as soon as each was read after that moment of the tables' clock."""
    def look():
        rows = records()
        check(all(row.state == "ok" for row in rows), "a record is", [row.state for row in rows])
        return len(rows) == 8 and min(row.sample_time for row in rows) > moment and rows
    rows = await_("new records", look)
    return {series_of(row.name, name): total for row in rows for name, total in row.record.totals.items()}


Point = collections.namedtuple("Point", "at totals chip")


def compare(agent):
    """Stops the traffic, and holds the next scrape against the records, to the last digit."""
    agent.does("traffic off")
    totals = None
    while totals != (again := totals_read_after(time.clock_gettime(time.CLOCK_MONOTONIC))):
        totals = again
    at = scrape_after(time.time())
    seen = query('{__name__=~"zel_(interface|queue)_.+_total"}', at)
    for series, total in totals.items():
        check(seen.get(series) == total, series, "is", seen.get(series), "in Prometheus and", total, "in its record")
    # Health is published after a pass of its own.
    return Point(at, totals, {name: number(f"zel_chip_{name}_total", at) for name in ("wraps", "upsets")})


def counted(before, after):
    """By series, what was counted between; checks that Prometheus says the same."""
    steps = {series: total - before.totals[series] for series, total in after.totals.items()}
    offset = round((after.at - before.at) * 1000)
    for name in sorted({series.name for series in steps}):
        found = query(f"{name} - {name} offset {offset}ms", after.at)
        expected = {Series("", series.labels): step for series, step in steps.items() if series.name == name}
        check(found == expected, name, "since", offset, "ms: Prometheus has", found, "and the records", expected)
    return steps


def run():
    agent = Agent()
    agent.does("traffic on", "advance 1")
    exporter = start_exporter()
    start_prometheus()
    first = compare(agent)
    check(sum(first.totals.values()) > 0, "nothing was counted")

    # Traffic, and clears in its midst.
    agent.does("traffic on", "advance 2", "clear all", "counters clear", "advance 2")
    cleared = compare(agent)
    steps = counted(first, cleared)
    for name in ("zel_interface_in_bytes_total", "zel_interface_out_packets_total", "zel_queue_packets_total"):
        check(any(series.name == name and step > 0 for series, step in steps.items()), name, "did not rise")

    # A value that cannot be, from which the counter wraps: of the one nothing counts, of the other 1500. And a bit that
    # flips, and back.
    agent.does("rmon Ethernet1 4 0xfffffffffffffc18", "rmon Ethernet2 7 flip 60", "advance 1", "rmon Ethernet1 4 500",
               "rmon Ethernet2 7 flip 60", "advance 3")
    wrapped = compare(agent)
    steps = {series: step for series, step in counted(cleared, wrapped).items() if step}
    check(steps == {series_of("Ethernet1", "in-octets"): 1500}, "wrap and upsets counted", steps)
    check(wrapped.chip["wraps"] - cleared.chip["wraps"] == 1, "wraps:", cleared.chip, wrapped.chip)
    check(wrapped.chip["upsets"] - cleared.chip["upsets"] == 3, "upsets:", cleared.chip, wrapped.chip)

    # No agent: the exporter says so, and has no counters any more.
    agent.does("traffic on", "advance 1")
    agent.is_killed()
    killed = time.time()
    gone = await_("the agent's end", lambda: (at := number("timestamp(zel_agent_up == 0)")) and at > killed and at)
    check(not query('{__name__=~"zel_(interface|queue)_.+_total"}', gone), "counters without an agent")
    await_("its alert", lambda: number('ALERTS{alertname="ZelAgentGone",alertstate="pending"}'))
    agent = Agent()
    agent.does("traffic on", "advance 2")
    restarted = compare(agent)
    check(sum(counted(wrapped, restarted).values()) > 0, "nothing was counted after the restart")
    check(restarted.chip == wrapped.chip, "after the restart", restarted.chip, "instead of", wrapped.chip)

    # No exporter for some scrapes. What was counted meanwhile is not lost.
    exporter.terminate()
    check(exporter.wait(LIMIT) in (0, -15), "the exporter ended with", exporter.returncode)
    agent.does("traffic on", "advance 2")
    check(number('up{job="zel"}') == 0, "an exporter that ended is up")
    start_exporter()
    agent.does("advance 1")
    last = compare(agent)
    counted(restarted, last)

    # From end to end: no counter of any kind fell, and what Prometheus estimates is near.
    window = round((last.at - first.at) * 1000 + 500)
    names = json.loads(fetch(prometheus_port, "/api/v1/label/__name__/values"))["data"]
    counters = 0
    for name in filter(re.compile("zel_.+_total").fullmatch, names):
        resets = query(f"resets({name}[{window}ms])", last.at)
        counters += len(resets)
        check(not any(resets.values()), name, "fell:", {series: count for series, count in resets.items() if count})
    check(counters >= len(last.totals), "only", counters, "counters")
    steps = counted(first, last)
    for name in sorted({series.name for series in steps}):
        estimates = query(f"increase({name}[{window}ms])", last.at)
        for series, step in steps.items():
            if series.name == name:
                found = estimates.get(Series("", series.labels))
                check(found is not None and abs(found - step) <= 0.05 * step, series, "increased by", found,
                      "instead of", step)

    # Creation times come with OpenMetrics, which Prometheus asks for.
    for row in tables.Table(silo, "IntfCounters").rows():
        created = number(f'zel_interface_in_bytes_created{{interface="{row.name}"}}')
        begun = time.time() - time.clock_gettime(time.CLOCK_MONOTONIC) + row.record.times["created"]
        check(created and abs(created - begun) < 1, row.name, "was created at", created, "instead of", begun)

    # What the rules ask for is there, and so is what they record.
    rules = "".join(re.sub("#.*", "", path.read_text()) for path in packaging.glob("zel-*.yml"))
    names = set(re.findall(r"(?<![:\w])zel_\w*[a-z](?![\w:.])", rules))
    names |= set(re.findall(r"record: (\S+)", rules)) - {"switch_reason:zel_interface_dropped_packets:rate5m"}
    check(len(names) > 30, "rules have names", names)
    missing = sorted(name for name in names if not query(f"count(last_over_time({name}[{window}ms]))", last.at))
    check(not missing, "no series", missing)
    groups = json.loads(fetch(prometheus_port, "/api/v1/rules"))["data"]["groups"]
    unwell = [(rule["name"], rule.get("lastError")) for group in groups for rule in group["rules"]
              if rule["health"] != "ok"]
    check(not unwell, "rules that fail:", unwell)

    text = fetch(exporter_port, "/metrics", Accept="text/plain")
    linted = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, timeout=LIMIT)
    check(linted.returncode == 0 and not linted.stdout + linted.stderr, "promtool:", linted.stdout, linted.stderr)
    print(f"{len(last.totals)} counters over {last.at - first.at:.1f} s, {counters} series without a reset")


try:
    with running:
        run()
except BaseException:
    for log in sorted(scratch.glob("*.err")):
        print(f"--- {log.name}", log.read_text()[-2000:], sep="\n")
    raise
finally:
    shutil.rmtree(scratch, ignore_errors=True)
