#!/usr/bin/env python3
# Runs all benchmarks of a folder once and writes their figures into docs/performance.md, between its markers, and
# into its plot. What else that document says is written by hand. Run by scripts/measure.
#
#    measure.py BENCH_DIR [--fast] [--out DIR]
import argparse
import datetime
import json
import math
import os
import pathlib
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile

DOCUMENT = pathlib.Path("docs/performance.md")
PLOT = pathlib.Path("docs/images/growth.svg")
FOLDERS = pathlib.Path("/dev/shm"), pathlib.Path(tempfile.gettempdir())  # in which benchmarks make theirs
LIMIT = 900  # seconds for one program
MICROSECONDS = {"ns": 1e-3, "us": 1, "ms": 1e3, "s": 1e6}


def die(*problem):
    sys.exit("measure: " + " ".join(str(part) for part in problem))


# --- the run

def run(program, fast):
    """The context of google-benchmark, and each benchmark's results by its name."""
    arguments = [str(program), "--benchmark_format=json", f"--benchmark_min_time={0.02 if fast else 0.3}"]
    if fast and program.name == "growth_bench":
        arguments.append("--benchmark_filter=chips:[18]/(ports:(32|256)|vlans:(1|512|4094))/")
    print(f"measure: {program.name}", file=sys.stderr, flush=True)
    with subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as running:
        try:
            output, errors = running.communicate(timeout=LIMIT)
        except BaseException as why:
            running.kill()
            if isinstance(why, subprocess.TimeoutExpired):
                die(program.name, "has not ended after", LIMIT, "seconds")
            raise
        finally: # what a benchmark that was killed leaves; its processes end with it
            for folder in FOLDERS:
                for left in folder.glob(f"*_bench[-.]{running.pid}"):
                    shutil.rmtree(left, ignore_errors=True)
    if running.returncode != 0:
        die(f"{program.name} ended with status {running.returncode}:\n{errors}")
    said = json.loads(output)
    results = {}
    for result in said["benchmarks"]:
        if result.get("error_occurred"):
            die(program.name, result["name"], "failed:", result["error_message"])
        name = re.sub(r"/(iterations:\d+|manual_time|real_time)", "", result["name"])
        results[name] = result | {"time_us": result["real_time"] * MICROSECONDS[result["time_unit"]]}
    return said["context"], results


def machine(context):
    """The machine, by its processor only."""
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
                 "unknown processor")
    caches = [f"L{level} {size // 1024} KiB" if size < 1 << 20 else f"L{level} {size >> 20} MiB"
              for level, size in sorted({(c["level"], c["size"]) for c in context["caches"] if c["level"] > 1})]
    return (f"One run on {datetime.date.today():%-d %B %Y}: {model}, {context['num_cpus']} cores, "
            f"{context['mhz_per_cpu'] / 1000:.1f} GHz, {', '.join(caches)}; a release build.")


# --- text

def number(value, digits=2):
    """With so many significant digits, and none invented for big numbers."""
    if value is None:
        return "-"
    if value == 0:
        return "0"
    places = max(0, digits - 1 - math.floor(math.log10(abs(value))))
    return f"{value:,.{places}f}"


def duration(microseconds):
    if microseconds is None:
        return "-"
    if microseconds < 0:
        return "-" + duration(-microseconds)
    for unit, size in (("s", 1e6), ("ms", 1e3), ("µs", 1)):
        if microseconds >= size:
            return f"{number(microseconds / size, 3)} {unit}"
    return f"{number(microseconds * 1e3, 3)} ns"


def amount(size):
    for unit, factor in (("MB", 1e6), ("kB", 1e3)):
        if size >= factor:
            return f"{number(size / factor, 3)} {unit}"
    return f"{number(size, 3)} B"


def table(head, rows):
    lines = [head, ["---"] + ["---:"] * (len(head) - 1), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


# --- targets

# What is wanted; and where it is found: program, pattern of the benchmark's name, counter, the most that it may be,
# unit. Of several benchmarks the worst one counts.
TARGETS = (
    ("a port stored, vetted and published, cold", "publish_bench", r"completePortsCold/history:1", "x_floor", 6,
     "x a `memcpy` of its raw values"),
    ("a port's queues, cold", "publish_bench", r"completeQueuesCold/history:1", "x_floor", 6,
     "x a `memcpy` of their raw values"),
    ("a port's record published, with its history", "publish_bench", r"publishWithHistory", "x_floor", 3,
     "x a bare write"),
    ("a port's record read", "publish_bench", r"readAll", "x_floor", 1.8, "x a bare read"),
    ("a completion of a pipe's queues, published", "chip_reads_bench", r"queueCompletion", "x_floor", 1.6,
     "x the SDK's reads"),
    ("a fetch of the PDP counters", "chip_reads_bench", r"pdpFetch", "x_floor", 1.4, "x the SDK's reads"),
    ("a polling pass, 1 to 8 chips", "polling_bench", r"pollingPass/\d", "x_floor", 5,
     "x a `memcpy` of the raw values"),
    ("completions of ports' reads, 1 to 8 chips", "callback_bench", r"completionPath/\d", "x_floor", 3,
     "x a `memcpy` of the raw values"),
    ("the activity lock, longest hold", "latency_bench", r".*", "longest_hold_ms", 1, "ms"),
    ("the same, by the pass over 4,094 VLANs on 4 chips", "l3_bench", r"natPass", "longest_lock_ms", 1, "ms"),
    ("`show mac intf` over the socket, 99th percentile", "latency_bench", r".*", "command_p99_ms", 5, "ms"),
    ("start of 8 chips of 256 ports, longest", "growth_bench", r"startUp/chips:8/ports:256", "longest_start_ms", 1000,
     "ms"),
)


def targets(figures):
    rows = []
    for what, program, pattern, counter, most, unit in TARGETS:
        found = [result[counter] for name, result in figures.get(program, {}).items()
                 if re.fullmatch(pattern, name) and counter in result]
        measured = max(found, default=None)
        verdict = "not measured" if measured is None else "yes" if measured <= most else "**no**"
        rows.append([what, f"at most {most:,} {unit}", "-" if measured is None else number(measured), verdict])
    return table(["Path", "Target", "Measured", "Met"], rows)


# --- every path

# What has sections of its own, or measures no time.
ELSEWHERE = re.compile(r"(growth|memory|beside|latency)_bench .*|metrics_bench (scrape/|beside).*|.*memoryPerPort.*")


def ratio(result):
    names = ("x_floor", "x_mutex_and_readings")
    return next((result[name] for name in names if result and name in result), None)


def paths(figures):
    """A row for each path: its time and its multiple of its floor. NAMECold is the cold one."""
    found = {}
    for program, results in figures.items():
        for name, result in results.items():
            if not ELSEWHERE.fullmatch(f"{program} {name}"):
                plain = re.sub(r"Cold(?=/|$)", "", name)
                cold = re.search(r"Cold(/|$)", name)
                found.setdefault((program, plain), {})["cold" if cold else "hot"] = result
    rows = []
    for (program, name), both in sorted(found.items()):
        hot, cold = both.get("hot"), both.get("cold")
        rows.append([f"`{program}` `{name}`", duration(hot and hot["time_us"]), number(ratio(hot)),
                     duration(cold and cold["time_us"]), number(ratio(cold))])
    return table(["Benchmark", "Hot", "x floor", "Cold", "x floor"], rows)


def latency(figures):
    """Of each kind of wait, KIND_p50_ms and its like; and the longest hold, with who held."""
    rows = []
    holds = []
    for name, result in figures.get("latency_bench", {}).items():
        for kind in sorted(key[:-7] for key in result if key.endswith("_p50_ms")):
            times = (duration(result[f"{kind}_{which}_ms"] * 1e3) for which in ("p50", "p99", "longest"))
            rows.append([f"`{name}`", kind, f"{result[kind + '_waits']:,.0f}", *times])
        if "longest_hold_ms" in result:
            holds.append(f"Longest hold of the lock in `{name}`: {duration(result['longest_hold_ms'] * 1e3)}, "
                         f"by {result.get('label', 'nobody known')}.")
    if not rows:
        return "Not measured: there is no `latency_bench`."
    return "\n\n".join([table(["Benchmark", "Wait for", "Waits", "Median", "99th percentile", "Longest"], rows), *holds])


# --- growth

def sizes(results, bench):
    """The results of a benchmark of chips and ports or VLANs, by these two numbers."""
    form = re.compile(bench + r"/chips:(\d+)/(?:ports|vlans):(\d+)")
    return {tuple(map(int, found.groups())): result
            for name, result in results.items() if (found := form.fullmatch(name))}


def port_points(figures):
    """(all ports, chips, ports a chip) and what they take, in the order of all ports."""
    heap = sizes(figures["memory_bench"], "ports")
    found = [(chips * ports, chips, ports, result | {"heap_bytes": heap[chips, ports]["heap_bytes"]})
             for (chips, ports), result in sizes(figures["growth_bench"], "ports").items()]
    return sorted(found, key=lambda point: point[:3])


PORT_COLUMNS = (("pass_us", "pass, hot", duration), ("pass_cold_us", "pass, cold", duration),
                ("two_seconds_us", "all in 2 s", duration), ("read_us", "read", duration),
                ("heap_bytes", "heap", amount), ("shared_bytes", "tables", amount))


def growth(points, columns, first):
    """A row for each size; and what one more costs up to an eighth of the most, and from there."""
    rows = [[*map(str, names), *(form(result[key]) for key, _, form in columns)] for names, _, result in points]
    least, middle, most = points[0][1], points[-1][1] // 8, points[-1][1]
    middle = max(n for _, n, _ in points if n <= middle + 1)
    for text, low, high in ((f"one more, up to {middle:,}", least, middle), ("one more, beyond", middle, most)):
        rows.append([text, *[""] * (len(first) - 1),
                     *(form((typical(points, key, high) - typical(points, key, low)) / (high - low))
                       for key, _, form in columns)])
    return table([*first, *(title for _, title, _ in columns)], rows)


def typical(points, key, size):
    """The median of those of one size."""
    return statistics.median(result[key] for _, n, result in points if n == size)


def growth_ports(figures):
    points = [((chips, ports, total), total, result) for total, chips, ports, result in port_points(figures)]
    return growth(points, PORT_COLUMNS, ["chips", "ports each", "ports"])


def vlan_points(figures, chips):
    heap = sizes(figures["memory_bench"], "vlans")
    return [((chips, vlans), vlans, result | {"heap_bytes": heap[chips, vlans]["heap_bytes"]})
            for (of, vlans), result in sorted(sizes(figures["growth_bench"], "vlans").items()) if of == chips]


def growth_vlans(figures):
    columns = (("two_seconds_us", "all in 2 s, hot", duration), ("two_seconds_cold_us", "cold", duration),
               ("read_us", "read", duration), ("heap_bytes", "heap", amount))
    return "\n\n".join(growth(vlan_points(figures, chips), columns, ["chips", "VLANs"]) for chips in (1, 8))


def start(figures):
    rows = []
    for (chips, ports), result in sorted(sizes(figures["growth_bench"], "startUp").items()):
        times = (duration(result[key] * 1e3) for key in ("start_ms", "longest_start_ms", "published_ms"))
        rows.append([f"{chips} x {ports}", *times, amount(result["private_bytes"]), amount(result["table_bytes"])])
    return table(["Chips x ports", "Answers, median", "Longest", "Every port published", "Own memory", "Tables"], rows)


# --- memory

UNITS = (("chip_without_program", "a chip without a program"),
         ("chip", "a chip of 4 pipes with the software chip's program of 16 tables"),
         ("port", "a port, counted and published"),
         ("queue", "a queue of it"),
         ("port_shown", "its PDP classes and drops, once shown"),
         ("vlan", "a VLAN with VXLAN and source-NAT entries, on one chip"))


def memory(figures):
    results = figures["memory_bench"]
    rows = [[what, f"{results['units'][key]:,.0f}"] for key, what in UNITS]
    rows.append(["an entry of a counter table", number(results["tableEntry"]["entry"])])
    return table(["What", "Bytes on the heap"], rows)


def records(figures):
    own = counters(figures["memory_bench"]["records"])
    files = counters(figures["memory_bench"]["tableFiles"])
    return table(["Table", "Bytes a record", "Bytes by default"],
                 [[f"`{name}`", f"{own[name]:,.0f}" if name in own else "-", f"{size:,.0f}"]
                  for name, size in sorted(files.items())])


def counters(result):
    """A benchmark's own figures: google-benchmark writes them beside its own, of which none begins with a capital."""
    return {key: value for key, value in result.items() if key[0].isupper()}


# --- beside others

def beside(figures):
    rows = []
    store = figures.get("beside_bench")
    if store:
        for name, what in (("publish/decimal", "publish, as hashes of decimal fields"),
                           ("publish/binary", "publish, as binary values"),
                           ("read/decimal", "read in another process, from hashes"),
                           ("read/binary", "read in another process, from binary values")):
            result = store[name]
            rows.append([what, duration(result["own_us"]), "Redis", duration(result["store_us"]),
                         number(result["x_own"])])
    metrics = figures["metrics_bench"].get("besidePrometheusCpp")
    if metrics:
        exposed = metrics["collect_us"] + metrics["write_us"]
        rows.append(["publish, in the own process only", duration(metrics["own_update_us"]), "prometheus-cpp",
                     duration(metrics["update_us"]), number(metrics["update_us"] / metrics["own_update_us"])])
        rows.append(["expose as text", duration(metrics["own_us"]), "prometheus-cpp", duration(exposed),
                     number(exposed / metrics["own_us"])])
        rows.append(["the same, of what was collected before", duration(metrics["own_us"]), "prometheus-cpp",
                     duration(metrics["write_us"]), number(metrics["x_floor"])])
    parts = [table(["456 ports", "libZelCounters", "beside", "takes", "times"], rows)] if rows else []
    if not store:
        parts.append("Redis was not measured: redis-server or libhiredis-dev is missing.")
    if not metrics:
        parts.append("prometheus-cpp was not measured: prometheus-cpp-dev is missing.")
    return "\n\n".join(parts)


# --- the plot

PANEL = 400, 350  # width and height, of which the legend takes
LEGEND = 72
COLOURS = ("#c2410c", "#1d4ed8", "#15803d", "#7e22ce")


class Axis:
    """Logarithmic, from and to powers of ten around the values."""

    def __init__(self, values, start, end):
        self.low = math.floor(math.log10(min(values)))
        self.high = max(self.low + 1, math.ceil(math.log10(max(values))))
        self.start, self.end = start, end

    def at(self, value):
        share = (math.log10(value) - self.low) / (self.high - self.low)
        return self.start + share * (self.end - self.start)

    def ticks(self):
        return [10.0 ** power for power in range(self.low, self.high + 1)]


def panel(left, title, unit, form, curves):
    """curves: name and points. A dashed line is linear growth from the first curve's last point on."""
    width, height = PANEL
    curves = [(name, [(x, y) for x, y in points if x > 0 and y > 0]) for name, points in curves]
    xs = [x for _, points in curves for x, _ in points]
    ys = [y for _, points in curves for _, y in points]
    across = Axis(xs, left + 62, left + width - 26)
    up = Axis(ys, height - LEGEND - 42, 34)
    svg = [f'<text x="{left + 62}" y="20" class="title">{title}</text>']
    for tick in across.ticks():
        x = across.at(tick)
        svg.append(f'<path d="M{x:.1f} {up.start}V{up.end}" class="grid"/>'
                   f'<text x="{x:.1f}" y="{up.start + 16}" text-anchor="middle">{tick:,.0f}</text>')
    for tick in up.ticks():
        y = up.at(tick)
        svg.append(f'<path d="M{across.start} {y:.1f}H{across.end}" class="grid"/>'
                   f'<text x="{across.start - 6}" y="{y + 4:.1f}" text-anchor="end">{form(tick)}</text>')
    svg.append(f'<text x="{(across.start + across.end) / 2:.1f}" y="{up.start + 34}" text-anchor="middle">{unit}</text>')
    x1, y1 = max(curves[0][1])
    x0 = max(min(xs), x1 * 10 ** up.low / y1)
    svg.append(f'<path d="M{across.at(x0):.1f} {up.at(y1 * x0 / x1):.1f}L{across.at(x1):.1f} {up.at(y1):.1f}" '
               'class="linear"/>')
    for i, (name, points) in enumerate(curves):
        line = "L".join(f"{across.at(x):.1f} {up.at(y):.1f}" for x, y in sorted(points))
        svg.append(f'<path d="M{line}" fill="none" stroke="{COLOURS[i]}" stroke-width="2"/>')
        svg += [f'<circle cx="{across.at(x):.1f}" cy="{up.at(y):.1f}" r="2.5" fill="{COLOURS[i]}"/>' for x, y in points]
        y = height - LEGEND + 14 + 15 * i
        svg.append(f'<path d="M{across.start} {y - 4}h24" stroke="{COLOURS[i]}" stroke-width="2"/>'
                   f'<text x="{across.start + 32}" y="{y}">{name}</text>')
    return "\n".join(svg)


def plain_duration(microseconds):
    return duration(microseconds).replace(".00", "").replace(".0", "")


def plain_amount(size):
    return amount(size).replace(".00", "").replace(".0", "")


def plot(figures):
    def of_ports(key):
        points = [(None, total, result) for total, _, _, result in port_points(figures)]
        return [(total, typical(points, key, total)) for total in sorted({total for _, total, _ in points})]

    def of_vlans(key, chips):
        return [(vlans, result[key]) for _, vlans, result in vlan_points(figures, chips)]

    panels = [
        panel(0, "Time by ports", "ports of all chips", plain_duration,
              [("all that an agent does in 2 s", of_ports("two_seconds_us")),
               ("polling pass, cold", of_ports("pass_cold_us")), ("polling pass, hot", of_ports("pass_us")),
               ("read of all records", of_ports("read_us"))]),
        panel(PANEL[0], "Time by VLANs", "VLANs", plain_duration,
              [("all in 2 s, on 8 chips", of_vlans("two_seconds_us", 8)),
               ("all in 2 s, on 1 chip", of_vlans("two_seconds_us", 1)),
               ("read of all records", of_vlans("read_us", 1))]),
        panel(2 * PANEL[0], "Heap", "ports or VLANs", plain_amount,
              [("ports", of_ports("heap_bytes")), ("VLANs on 8 chips", of_vlans("heap_bytes", 8)),
               ("VLANs on 1 chip", of_vlans("heap_bytes", 1))])]
    width, height = PANEL[0] * 3, PANEL[1]
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'width="{width}" height="{height}">\n'
            "<style>text{font:12px sans-serif;fill:#333}.title{font-weight:bold;font-size:14px}"
            ".grid{stroke:#ddd;fill:none}.linear{stroke:#888;stroke-dasharray:5 4;fill:none}</style>\n"
            f'<rect width="{width}" height="{height}" fill="#fff"/>\n' + "\n".join(panels) + "\n</svg>\n")


# --- the document

def filled(text, sections):
    """The document with each section's text between its markers, all of which must be there."""
    for name, content in sections.items():
        marked = re.compile(rf"(<!-- begin {name} -->\n).*?(<!-- end {name} -->)", re.DOTALL)
        text, found = marked.subn(lambda match, content=content: f"{match[1]}\n{content}\n\n{match[2]}", text)
        if found != 1:
            die(f"{DOCUMENT} has {found} sections '{name}', expected one between 'begin' and 'end' comments")
    return text


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143)) # so that the benchmark that runs is ended, too
    parser = argparse.ArgumentParser()
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--fast", action="store_true")
    parser.add_argument("--out", type=pathlib.Path)
    options = parser.parse_args()
    programs = sorted(path for path in options.folder.glob("*_bench") if os.access(path, os.X_OK))
    if not programs:
        die(f"no benchmarks in {options.folder}")
    figures = {}
    for program in programs:
        context, figures[program.name] = run(program, options.fast)
    document, picture = DOCUMENT, PLOT
    if options.out:
        document, picture = options.out / DOCUMENT.name, options.out / "images" / PLOT.name
        picture.parent.mkdir(exist_ok=True)
        (options.out / "figures.json").write_text(json.dumps({"context": context} | figures, indent=1))
    text = filled(DOCUMENT.read_text(), {
        "machine": machine(context), "targets": targets(figures), "paths": paths(figures), "latency": latency(figures),
        "ports": growth_ports(figures), "vlans": growth_vlans(figures), "start": start(figures),
        "memory": memory(figures), "records": records(figures), "beside": beside(figures)})
    document.write_text(text)
    picture.write_text(plot(figures))
    print(f"measure: wrote {document} and {picture}", file=sys.stderr)


if __name__ == "__main__":
    main()
