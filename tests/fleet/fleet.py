#!/usr/bin/env python3
# Runs a fleet of small switches on this machine and one Prometheus that collects from them. Fails if a scrape or a
# sample is missing, or a total fell; reports what it took.
#
#    fleet.py ZELAGENT ZELEXPORTER PACKAGING/PROMETHEUS SECONDS SWITCHES
#    fleet.py ZELAGENT ZELEXPORTER sizes
#
# With `sizes`, says what a scrape of a switch of 32, 456 and 2,048 ports has and costs, by collector.
#
# Prometheus' configuration is the installed one, rules and alerts included, with other targets and an interval of 5 s
# instead of 15: for two cores and a hundred switches, three times what a fleet of that size asks for.
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

agent_program, exporter_program = sys.argv[1:3]
INTERVAL = 5
PORTS = 4  # of a switch
COLLECTORS = ("interfaces", "queues", "vlans", "subinterfaces", "nat", "drops", "classes", "pipeline", "mau-drops",
              "traffic-manager", "health")
ACCEPT = {"Accept": "application/openmetrics-text; version=1.0.0"}
PACKED = ACCEPT | {"Accept-Encoding": "gzip"}
LIMIT = 120  # seconds to wait for anything
scratch = pathlib.Path(tempfile.mkdtemp(prefix="fleet.", dir="/dev/shm"))
signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))


def check(condition, *problem):
    if not condition:
        raise AssertionError(" ".join(str(part) for part in problem))


def await_(what, look):
    end = time.monotonic() + LIMIT
    while not (found := look()):
        check(time.monotonic() < end, "waited for", what)
        time.sleep(0.1)
    return found


def free_ports(n):
    with contextlib.ExitStack() as held:
        sockets = [held.enter_context(socket.socket()) for _ in range(n)]
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [one.getsockname()[1] for one in sockets]


def fetch(port, path, **headers):
    request = urllib.request.Request(f"http://127.0.0.1:{port}{path}", headers=headers)
    with urllib.request.urlopen(request, timeout=LIMIT) as answer:
        return answer.read()


def tries(port, path):
    with contextlib.suppress(OSError):
        return fetch(port, path)


running = contextlib.ExitStack()


def start(name, *command):
    process = subprocess.Popen([str(word) for word in command], stdout=subprocess.DEVNULL,
                               stderr=open(scratch / f"{name}.err", "ab"))
    running.callback(lambda: (process.kill(), process.wait()))
    return process.pid


def start_exporter(silo, port, *options):
    return start("exporters", exporter_program, "--silo", silo, "--listen", f"127.0.0.1:{port}", *options)


def cpu_of(pid):
    """Seconds of a processor's time that the process has taken."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def memory_of(pid, what="Private_(?:Clean|Dirty)", file="smaps_rollup"):
    """MB."""
    found = re.findall(rf"^{what}:\s+(\d+) kB", pathlib.Path(f"/proc/{pid}/{file}").read_text(), re.M)
    return sum(int(kilobytes) for kilobytes in found) / 1024


def prometheus_metrics(port):
    """Prometheus' own, those without labels, and samples of the usual type."""
    text = fetch(port, "/metrics").decode()
    return {name: float(value) for name, value in re.findall(r"^(\w+)(?:{type=\"float\"})? (\S+)$", text, re.M)}


def query(port, expression, at):
    words = urllib.parse.urlencode({"query": expression, "time": f"{at:.3f}"})
    return json.loads(fetch(port, "/api/v1/query?" + words))["data"]["result"]


def by_switch(port, expression, at):
    return {one["metric"]["switch"]: float(one["value"][1]) for one in query(port, expression, at)}


def configure(packaging, ports):
    for rules in pathlib.Path(packaging).glob("zel-*.yml"):
        shutil.copy(rules, scratch)
    targets = "".join(f"\n      - targets: [127.0.0.1:{port}]\n        labels: {{switch: s{i}}}"
                      for i, port in enumerate(ports))
    text = pathlib.Path(packaging, "zel.yml").read_text()
    for pattern, change in ((r"(?<=_interval: )15s", f"{INTERVAL}s"), (r"(?<=scrape_timeout: )10s", f"{INTERVAL}s"),
                            (r"\n +- targets:\n +- 127\.0\.0\.1:9469", targets)):
        text, found = re.subn(pattern, change, text)
        check(found, "the scrape configuration has no", pattern)
    (scratch / "zel.yml").write_text(text)
    return scratch / "zel.yml"


def check_scrapes(port, switches, begin, end):
    """No target may ever be down, nor two of its scrapes lie further apart than they should."""
    found = query(port, f'up{{job="zel"}}[{end - begin}s]', end)
    check(len(found) == switches, len(found), "targets")
    gaps = []
    for target in found:
        times = [at for at, _ in target["values"]]
        check(all(value == "1" for _, value in target["values"]), target["metric"]["switch"], "was down")
        gaps += [after - before for before, after in zip(times, times[1:])]
        check(max(times[0] - begin, end - times[-1]) < 2 * INTERVAL, target["metric"]["switch"], "was late")
    check(max(gaps) < 1.5 * INTERVAL, "two scrapes were", max(gaps), "s apart")
    return sum(len(target["values"]) for target in found), max(gaps)


def check_samples(port, switches, begin, end):
    """As many samples must be stored as scrapes had, and no counter may have fallen."""
    span = end - begin
    stored = dict.fromkeys((f"s{i}" for i in range(switches)), 0)
    names = json.loads(fetch(port, "/api/v1/label/__name__/values"))["data"]
    for name in filter(re.compile("zel_").match, names):
        for switch, count in by_switch(port, f"sum by (switch) (count_over_time({name}[{span}s]))", end).items():
            stored[switch] += count
        if name.endswith("_total"):
            falls = query(port, f"sum(resets({name}[{span}s])) > 0", end)
            check(not falls, name, "fell:", falls)
    scraped = by_switch(port, f"sum by (switch) (sum_over_time(scrape_samples_scraped[{span}s]))", end)
    check(stored == scraped, "scraped and stored:", {one: (scraped.get(one), stored[one]) for one in stored
                                                     if scraped.get(one) != stored[one]})
    return int(sum(stored.values()))


def run(packaging, seconds, switches):
    ports = free_ports(switches + 1)
    prometheus_port = ports.pop()
    agents, exporters = [], []
    for i in range(switches):
        agents.append(start("agents", agent_program, "--ports", PORTS, "--pipes", 1, "--seed", i + 1,
                            "--silo", scratch / f"s{i}", "--socket", scratch / f"s{i}.socket"))
        time.sleep(0.02)  # or all would poll at the same instant, as no fleet does
    for i, port in enumerate(ports):
        exporters.append(start_exporter(scratch / f"s{i}", port))
    for port in ports:
        await_(f"a scrape of port {port}", lambda: b"zel_queue_packets" in (tries(port, "/metrics") or b""))
    prometheus = start("prometheus", "prometheus", "--config.file", configure(packaging, ports),
                       "--storage.tsdb.path", scratch / "tsdb", "--web.listen-address", f"127.0.0.1:{prometheus_port}",
                       "--log.level", "warn")
    await_("Prometheus", lambda: tries(prometheus_port, "/-/ready"))
    # Scrapes begin within an interval; until then there is nothing to lose.
    await_("a scrape of all", lambda: query(prometheus_port, f'sum(up{{job="zel"}}) == {switches}', time.time()))

    begin = int(time.time()) + 1
    groups = {"agents": agents, "exporters": exporters, "Prometheus": [prometheus]}
    cpu = {name: sum(map(cpu_of, pids)) for name, pids in groups.items()}
    before = prometheus_metrics(prometheus_port)
    time.sleep(seconds)
    after = prometheus_metrics(prometheus_port)
    cpu = {name: sum(map(cpu_of, pids)) - cpu[name] for name, pids in groups.items()}
    memory = {name: [memory_of(pid) for pid in pids] for name, pids in groups.items()}
    highest = memory_of(prometheus, "VmHWM", "status")
    end = int(time.time())

    scrapes, gap = check_scrapes(prometheus_port, switches, begin, end)
    samples = check_samples(prometheus_port, switches, begin, end)
    for name in ("out_of_order", "duplicate_timestamp", "out_of_bounds"):
        check(after[f"prometheus_target_scrapes_sample_{name}_total"] == 0, "samples", name)
    check(after["prometheus_target_scrapes_exceeded_sample_limit_total"] == 0, "too many samples")
    took = [float(one["value"][1]) for one in query(
        prometheus_port, f'quantile_over_time(0.5, scrape_duration_seconds{{job="zel"}}[{end - begin}s])', end)]
    longest = float(query(prometheus_port, f'max(max_over_time(scrape_duration_seconds{{job="zel"}}[{end - begin}s]))',
                          end)[0]["value"][1])
    plain, packed = (len(fetch(ports[0], "/metrics", **headers)) for headers in (ACCEPT, PACKED))
    alerts = query(prometheus_port, 'count by (alertname, alertstate) (ALERTS)', end)

    print(f"{switches} switches of {PORTS} ports, scraped every {INTERVAL} s for {end - begin} s "
          f"on {os.cpu_count()} cores")
    print(f"scrapes             {scrapes}, none failed, at most {gap:.2f} s apart; half of them within "
          f"{statistics.median(took) * 1000:.1f} ms, all within {longest * 1000:.0f} ms")
    print(f"samples             {samples} scraped and all stored, no counter fell; {samples / scrapes:.0f} a scrape")
    print(f"bytes of a scrape   {plain}, {packed} packed")
    appended = (after["prometheus_tsdb_head_samples_appended_total"]
                - before["prometheus_tsdb_head_samples_appended_total"]) / seconds
    print(f"series              {after['prometheus_tsdb_head_series']:.0f} in Prometheus, {appended:.0f} samples a "
          f"second, with what its rules record; it had {highest:.0f} MB resident at most")
    for name, pids in groups.items():
        print(f"{name:19} {100 * cpu[name] / seconds:.1f} % of a core; private memory {sum(memory[name]):.0f} MB"
              + (f", at most {max(memory[name]):.1f} MB of one" if len(pids) > 1 else ""))
    print(f"a scrape            {1000 * cpu['exporters'] / scrapes:.2f} ms of CPU in the exporter")
    for one in alerts:
        print(f"alert               {one['metric']['alertname']} {one['metric']['alertstate']}: {one['value'][1]}")


def stop(pid):
    os.kill(pid, signal.SIGTERM)
    os.waitpid(pid, 0)


def sizes():
    """For ports and collectors: series and bytes of a scrape, packed bytes, and the exporter's CPU of it."""
    print("| Ports | Collectors | Series | Bytes | Packed | CPU | CPU, packed | Memory |")
    print("|---:|---|---:|---:|---:|---:|---:|---:|")
    for chips, ports in ((1, 32), (2, 228), (8, 256)):
        silo = scratch / f"{chips}x{ports}"
        # What 2,048 ports cost in software is not the question: traffic for some digits, and then none.
        vlans = (f"l3 add {name} {vlan}" for i in range(100) for name, vlan in ((f"Vlan{i + 2}", i + 2),
                                                                                (f"Ethernet1.{i + 2000}", i + 2000)))
        statements = (*vlans, "traffic on", "advance 10", "traffic off", "advance 3600")
        (scratch / "scenario").write_text("\n".join(statements))
        agent = start("agents", agent_program, "--chips", chips, "--pipes", 4, "--ports", ports, "--silo", silo,
                      "--socket", scratch / "socket", "--scenario", scratch / "scenario", "--realtime")
        time.sleep(20)
        for collectors in ((), *(("--collect", one) for one in COLLECTORS)):
            port, = free_ports(1)
            exporter = start_exporter(silo, port, *collectors)
            await_("the exporter", lambda: tries(port, "/healthz"))
            text = fetch(port, "/metrics", **ACCEPT)
            took = []
            for headers in (ACCEPT, PACKED):
                cpu, scrapes = cpu_of(exporter), 0
                while scrapes < 10 or cpu_of(exporter) - cpu < 0.25:  # the kernel tells of steps of 0.01
                    scrapes += 1
                    begin = time.monotonic()
                    packed = fetch(port, "/metrics", **headers)
                    # Longer than the exporter gives the same text again.
                    time.sleep(5 * (time.monotonic() - begin))
                took.append(1000 * (cpu_of(exporter) - cpu) / scrapes)
            series = len(re.findall(rb"^[^#]", text, re.M))
            print(f"| {chips * ports} | {collectors[-1] if collectors else 'all'} | {series:,} | {len(text):,} "
                  f"| {len(packed):,} | {took[0]:.2f} ms | {took[1]:.2f} ms | {memory_of(exporter):.1f} MB |",
                  flush=True)
            stop(exporter)
        stop(agent)


try:
    with running:
        if sys.argv[3:] == ["sizes"]:
            sizes()
        else:
            run(sys.argv[3], int(sys.argv[4]), int(sys.argv[5]))
except BaseException:
    for log in sorted(scratch.glob("*.err")):
        print(f"--- {log.name}", log.read_text()[-2000:], sep="\n")
    raise
finally:
    shutil.rmtree(scratch, ignore_errors=True)
