"""Metrics of a living agent: every family of the reference is there, each number is the one that the client's JSON has,
a clear moves none, and of an agent that was killed only ages are left.

   living-test.py ZELAGENT ZELCTL METRICS.MD
"""

import json
import re
import subprocess
import sys
import tempfile
import time

agent, client, reference = sys.argv[1:]

STATEMENTS = """
l3 add Vlan20 20
l3 add Ethernet1.100 100
snat 10.0.0.0/8
advance 1
rmon Ethernet1 4 200000000000000
rmon Ethernet1 1 123456789012
rmon Ethernet2 73 99
queue Ethernet1 3 1000 64000 7
svi Zel0 20 ingress 0 1 5 500
svi Zel0 20 ingress 0 0 50 5000
svi Zel0 100 egress 0 0 3 300
table Zel0 ingressPortDropCount 0 5 17 1700
advance 2
rmon Ethernet1 4 flip 60
advance 3
queues Nobody
"""
# The samples that have what each view of the client has.
VIEWS = {"interfaces": "zel_interface_(in|out)_.*_total",
         "queues": "zel_queue_.*_total",
         "vlans": "zel_vlan_.*_total",
         "subinterfaces": "zel_subinterface_.*_total",
         "nat": "zel_nat_.*_total",
         "drops": "zel_interface_(dropped|lost)_packets_total",
         "classes": "zel_interface_class_packets_total",
         "pipeline": "zel_pipe_stage_.*_total",
         "mau-drops": "zel_pipe_dropped_packets_total",
         "traffic-manager": "zel_traffic_manager_(.*_total|cells|port_cells_peak)",
         "health": "zel_chip_(.*_total|requests_outstanding|pending_vlans)"}


def run(*words):
    return subprocess.run([client, "--silo", silo, *words], check=True, capture_output=True, text=True).stdout


def samples(text):
    found = {}
    for line in text.splitlines():
        if not line.startswith("#"):
            key, value = line.rsplit(" ", 1)
            found[key] = value
    return found


def totals():
    return {key: int(value) for key, value in samples(run("metrics")).items() if "_total" in key}


def labels_of(name):
    """How the samples of a row begin their labels."""
    chip = re.fullmatch(r"(Zel\d+)(?::(\d+))?", name)
    if not chip:
        return f'{{interface="{name}"'
    return f'{{chip="{chip[1]}"' + (f',pipe="{chip[2]}"' if chip[2] else "")


def compare():
    """Holds the numbers of each row and view against JSON; returns how many there are in each view."""
    compared = {}
    all_samples = samples(run("metrics"))
    for view, names in VIEWS.items():
        rows = next(value for key, value in json.loads(run(view, "json")).items()
                    if isinstance(value, list) and key != "notes")
        compared[view] = 0
        for row in rows:
            wanted = sorted(value for name, value in row["totals"].items()
                            if value is not None and name != "out-queue-drops")
            found = sorted(int(value) for key, value in all_samples.items()
                           if re.fullmatch(names + re.escape(labels_of(row["name"])) + "[,}].*", key))
            assert found == wanted, f"{view} {row['name']}: {found}, expected {wanted}"
            compared[view] += len(found)
    return compared


def await_(what, holds):
    end = time.monotonic() + 60
    while not holds():
        assert time.monotonic() < end, f"waited for {what}"
        time.sleep(0.1)


with tempfile.TemporaryDirectory() as folder:
    silo = folder + "/silo"
    with subprocess.Popen(
            [agent, "--ports", "2", "--pipes", "1", "--polling", "0.2", "--silo", silo, "--socket", folder + "/socket",
             "--scenario", "-", "--realtime"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
            stderr=open(folder + "/err", "w", encoding="utf-8"),
            text=True) as living:
        try:
            living.stdin.write(STATEMENTS)
            living.stdin.flush()
            families = re.findall(r"^\| `(zel_[a-z0-9_]+)` ", open(reference, encoding="utf-8").read(), re.M)
            assert len(families) > 90, families

            def refused():
                return open(folder + "/err", encoding="utf-8").read().count("% no queues")

            def missing():
                try:
                    told = {key.split("{")[0] for key in samples(run("metrics", "openmetrics"))}
                except subprocess.CalledProcessError:
                    return families  # there is no folder yet
                told |= {name.removesuffix("_count") for name in told}  # a histogram's
                return [family for family in families if family not in told]

            # The last statement is one that is refused.
            await_("the statements", lambda: refused() == 1)
            await_("every family", lambda: not missing())
            denied = 'zel_interface_dropped_packets_total{interface="Ethernet1",point="ingress",reason="ACL denied"}'
            assert totals()[denied] == 17
            compared = compare()
            assert min(compared.values()) > 0 and compared["interfaces"] == 2 * 69, compared
            before = totals()
            assert max(before.values()) == 200000000000000
            living.stdin.write("clear all\ncounters clear\nadvance 1\nqueues Nobody\n")
            living.stdin.flush()
            await_("the clears", lambda: refused() == 2)
            after = totals()
            moved = [f"{key}: {before.get(key)} to {after.get(key)}" for key in before.keys() | after.keys()
                     if before.get(key) != after.get(key)]
            assert not moved, f"a clear moved totals: {moved}"
            compare()
        finally:
            living.kill()
    gone = samples(run("metrics"))
    assert gone["zel_agent_up"] == "0"
    assert not [key for key in gone if "_total" in key or "_info" in key and "build" not in key], gone
    assert 'zel_interface_age_seconds{interface="Ethernet1"}' in gone
