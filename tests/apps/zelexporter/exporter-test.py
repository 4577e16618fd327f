#!/usr/bin/env python3
# Starts agents and an exporter, and attacks the exporter: requests that are wrong, long, half, slow or many, answers
# that nobody reads, and agents and tables that come and go. Run by root, the exporter is another user, without rights,
# and shared memory is a mount of the test's own.
#
#    exporter-test.py ZELAGENT ZELEXPORTER
import contextlib
import http.client
import itertools
import os
import pathlib
import re
import resource
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import zlib

inside = sys.argv[1] == "inside"
is_root = os.geteuid() == 0
if is_root and not inside and subprocess.run(["unshare", "--mount", "true"], capture_output=True).returncode == 0:
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable, *sys.argv[:1], "inside",
                          *sys.argv[1:]])
agent, exporter = sys.argv[1 + inside:3 + inside]
scratch = pathlib.Path(tempfile.mkdtemp())
scratch.chmod(0o755)
if inside:
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/dev/shm"], check=True)

numbers = itertools.count()

LIMIT = 30  # seconds for what has to happen, even on a machine that is busy
PROMPT = 2  # seconds within which a scrape is answered whatever goes on
NOBODY = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups", "--bounding-set=-all",
          "--no-new-privs", "--"]
OPEN_METRICS = "application/openmetrics-text; version=1.0.0; charset=utf-8"
TEXT = "text/plain; version=0.0.4; charset=utf-8"


def check(condition, *problem):
    if not condition:
        raise AssertionError(" ".join(str(part) for part in problem))


def reached(happens, about):
    """Waits until it happens, and says how long that took."""
    begin = time.monotonic()
    while not happens():
        check(time.monotonic() < begin + LIMIT, about, "did not happen")
        time.sleep(0.05)
    return time.monotonic() - begin


class Program:
    """A running program, from its first line on. It is killed in the end however the test ends."""

    def __init__(self, *command):
        self.log = scratch / f"log.{next(numbers)}"
        with open(self.log, "w") as log:
            self.process = subprocess.Popen([str(word) for word in command], stdout=subprocess.PIPE, stderr=log,
                                            text=True)
        self.line = self.process.stdout.readline()
        check(self.line, command, "did not start:", self.log.read_text())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end(signal.SIGKILL)

    def end(self, with_signal):
        self.process.send_signal(with_signal)
        self.process.send_signal(signal.SIGCONT)
        self.process.wait(LIMIT)
        self.process.stdout.close()
        return self.process.returncode


def ask(port, path="/metrics", method="GET", headers=None):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=LIMIT)
    connection.request(method, path, headers=headers or {})
    answer = connection.getresponse()
    answer.text = answer.read()
    connection.close()
    return answer


class Exporter(Program):
    def __init__(self, *options, limits=()):
        super().__init__(*limits, *(NOBODY if inside else []), exporter, "--listen", "0", *options)
        self.port = int(re.search(r"http://127\.0\.0\.1:(\d+)/$", self.line.strip())[1])

    def ask(self, path="/metrics", method="GET", headers=None, within=PROMPT):
        begin = time.monotonic()
        answer = ask(self.port, path, method, headers)
        check(time.monotonic() - begin < within, method, path, "took", time.monotonic() - begin, "s")
        return answer

    def health(self):
        answer = self.ask("/healthz")
        check((answer.status == 200) == (answer.text == b"ok\n"), answer.status, answer.text)
        return "" if answer.status == 200 else answer.text.decode()

    def value(self, sample):
        """Of a metric, as it is scraped; nothing if it has no sample."""
        found = re.search(rf"^{re.escape(sample)} (.+)$", self.ask().text.decode(), re.M)
        return found and float(found[1])

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port), timeout=LIMIT)

    def say(self, request):
        """All that comes back for these bytes, until the exporter closes."""
        with self.connect() as connection:
            with contextlib.suppress(ConnectionError):  # it may have closed before all was sent
                connection.sendall(request)
            return b"".join(iter(lambda: connection.recv(65536), b""))

    def statuses(self, request):
        return [int(one) for one in re.findall(rb"HTTP/1.1 (\d+) ", self.say(request))]

    def proc(self, name):
        return pathlib.Path(f"/proc/{self.process.pid}/{name}")

    def processor_time(self):
        return sum(map(int, self.proc("stat").read_text().split()[13:15])) / os.sysconf("SC_CLK_TCK")

    def status(self, name):
        return int(re.search(rf"^{name}:\s+(\d+)", self.proc("status").read_text(), re.M)[1])


# A sanitized agent of many ports takes longer for a round; a record that is three intervals old has no samples.
def start_agent(*options, polling=0.2, as_other=False):
    silo = [] if inside else ["--silo", scratch / "silo"]
    socket_path = scratch / ("other" if as_other else "own") / "socket"
    return Program(*(NOBODY if as_other else []), agent, "--polling", polling, "--socket", socket_path, *silo,
                   *(options or ["--ports", 4]))


def test_options():
    with socket.create_server(("127.0.0.1", 0)) as taken:
        port = taken.getsockname()[1]
        for options, expected in (
                (["--listen", port], f"cannot listen on {port}: .*in use: end the program .*--listen ADDRESS:PORT"),
                (["--listen", "192.0.2.1:1"], "cannot listen on 192.0.2.1:1: .*: choose an address of this machine .*"),
                (["--listen", "::1:80"], "--listen '::1:80': expected an IP address and a port, as .*"),
                (["--listen", "localhost:1"], "--listen 'localhost:1': expected an IP address and a port, as .*"),
                (["--listen", "65536"], "--listen '65536': expected .*"),
                (["--listen"], "--listen needs a value: .*"),
                (["--collect", "queues,ports"], "unknown collector 'ports': expected some of interfaces, queues, .*"),
                (["--colect=nat"], "unknown option '--colect': 'zelexporter --help' lists them all")):
            done = subprocess.run([exporter, *map(str, options)], capture_output=True, text=True, timeout=LIMIT)
            check(done.returncode == 1 and not done.stdout, options, "ended with", done.returncode, done.stdout)
            check(re.fullmatch("% " + expected + "\n", done.stderr), options, "said", done.stderr)
    with Program(exporter, "--listen", "[::1]:0") as other:
        check(re.search(r"http://\[::1\]:\d+/$", other.line.strip()), other.line)
    with Program(exporter, "--listen", "[::ffff:127.0.0.1]:0") as other:
        port = re.search(r":(\d+)/$", other.line.strip())[1]
        check(ask(port, headers={"Host": "evil.example"}).status == 421, "IPv4's loopback in IPv6 is open to all names")


def test_formats(it):
    for accept, expected in (
            (None, TEXT), ("*/*", TEXT), ("text/html,*/*;q=0.8", TEXT), ("text/plain", TEXT), ("", TEXT),
            ("application/openmetrics-text", OPEN_METRICS),
            ("application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
             "text/plain;version=0.0.4;q=0.5,*/*;q=0.1", OPEN_METRICS),
            ('APPLICATION/OpenMetrics-Text ; charset=utf-8 ; Version="1.0.0" ; Q=0.5 , text/plain;q=0.4', OPEN_METRICS),
            ("application/openmetrics-text;q=0.3,text/plain;q=0.4", TEXT),
            ("application/openmetrics-text;q=0,*/*;q=0.1", TEXT), ("application/openmetrics-text;version=2.0.0", TEXT),
            ("text/plain;q=0.5,application/openmetrics-text;q=0.5", OPEN_METRICS),
            ("application/openmetrics-text;q=none", TEXT), ("application/openmetrics-text;q=1e999", TEXT),
            (";;q=;,,=,/;q=-1,\x80\xff;=", TEXT), ("," * 4000, TEXT), ("a;" * 3000, TEXT)):
        answer = it.ask(headers={} if accept is None else {"Accept": accept})
        check(answer.status == 200 and answer.headers["Content-Type"] == expected, accept, answer.status,
              answer.headers)
        check(answer.text.endswith(b"# EOF\n") == (expected == OPEN_METRICS), accept, answer.text[-80:])
    for encoding, is_packed in (("gzip", True), ("deflate, GZIP;q=0.5", True), ("*", True), ("br, x-gzip", True),
                                ("br", False), ("gzip;q=0, *", False), ("gzip;q=0.000", False), ("identity", False)):
        answer = it.ask(headers={"Accept": "application/openmetrics-text", "Accept-Encoding": encoding})
        check((answer.headers["Content-Encoding"] == "gzip") == is_packed, encoding, answer.headers)
        text = zlib.decompress(answer.text, 16 + zlib.MAX_WBITS) if is_packed else answer.text
        check(text.endswith(b"# EOF\n"), encoding, text[-80:])
        check(answer.headers["Vary"] == "Accept, Accept-Encoding", answer.headers)
    packed = it.ask("/", headers={"Accept-Encoding": "br, gzip"})
    check(packed.headers["Content-Encoding"] in (None, "gzip"), packed.headers)
    for path in ("/metrics", "/healthz", "/"):
        whole, head = it.ask(path), it.ask(path, "HEAD")
        check(head.status == 200 and not head.text, path, head.status, head.text)
        for name in ("Content-Type", "X-Content-Type-Options", "Cache-Control"):
            check(head.headers[name] == whole.headers[name], path, name, head.headers, whole.headers)
        check(whole.headers["X-Content-Type-Options"] == "nosniff" and not whole.headers["Server"], whole.headers)
        check(path == "/" or whole.headers["Cache-Control"] == "no-store", whole.headers)


def test_refusals(it):
    for method in ("POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE", "CONNECT", "BREW", "get"):
        answer = it.ask("/metrics", method)
        check(answer.status == 405 and answer.headers["Allow"] == "GET, HEAD", method, answer.status, answer.headers)
    for path in ("/../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "//etc/passwd", "/metrics/", "/metrics/..",
                 "/metrics%00", "/metrics\\..\\", "/METRICS", "/page-css", "/%", "/%zz",
                 "http://127.0.0.1/etc/passwd", "*", "/'\""):
        answer = it.ask(path)
        check(answer.status == 404 and path.encode() not in answer.text, path, answer.status, answer.text)
    get = b"GET /healthz HTTP/1.1\r\nHost: localhost\r\n"
    for request, expected in (
            (b"GET /" + b"a" * 3000 + b" HTTP/1.1\r\n\r\n", 414), (b"a" * 9000, 414),
            (get + b"a: b\r\n" * 3000 + b"\r\n", 431), (get + b"a: " + b"b" * 9000 + b"\r\n\r\n", 431),
            (get + b"Content-Length: 5\r\n\r\nhello", 413), (get + b"content-length:\t99999999999999999999\r\n\r\n", 413),
            (get + b"Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 413),
            (b"POST /metrics HTTP/1.1\r\nContent-Length: 1000000000\r\n\r\n" + b"x" * 100000, 405),
            (b"\r\n\r\n", 405), (b"\0\x01\x02\xff\r\n\r\n", 405),
            (b"HEAD /healthz HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello", 413),
            (get + b"Content-Length: 0 0\r\n\r\n", 413), (get + b"content-length:\r\n\r\n", 413),
            *((get + odd + b"\r\n\r\n" + b"GET /healthz HTTP/1.0\r\n\r\n", 400) for odd in (
                b"Content-Length : 5", b"Content-Length\t: 5", b"Transfer-Encoding : chunked",
                b"X:\r\n Content-Length: 5", b" X: y", b"X: y\nContent-Length: 5", b"X: y\rContent-Length: 5", b"X: y\0",
                b"no colon", b": y",
                b"Host : evil.example", b"host: localhost")),
            *((line + b"\r\n\r\n" + b"GET /healthz HTTP/1.0\r\n\r\n", 400) for line in (
                b"GET /healthz HTTP/1.1", b"GET /healthz HTTP/1.1\r\nHost: ", b"GET /healthz HTTP/1.9",
                b"GET /healthz HTTP/2.0", b"GET /healthz\0x HTTP/1.1\r\nHost: localhost", b"GET /healthz",
                b"GET /healthz HTTP/1.1 x"))):
        answer = it.say(request)
        check(answer.startswith(b"HTTP/1.1 %d " % expected), request[:60], answer[:200])
        check(answer.count(b"HTTP/1.1 ") == 1, "what follows", request[:60], "was answered:", answer[:400])
        check(answer.endswith(b"\r\n\r\n") == request.startswith(b"HEAD "), "text for", request[:60], answer)
    end = b"Connection: close\r\n\r\n"
    # Ranges would have one request answered with a multiple of the text.
    for ranges in (b"bytes=" + b"0-,1-," * 900, b"bytes=" + b"1" * 7000, b"bytes=0-0"):
        check(it.statuses(get + b"Range: " + ranges + b"\r\n" + end) == [200], "ranges were obeyed")
    check(it.statuses(get + b"\r\n" + get + b"\r\n" + get + end) == [200] * 3, "three requests at once")
    check(len(it.statuses((get + b"\r\n") * 1200)) == 1000, "a connection has no last request")
    check(it.statuses(b"GET /healthz HTTP/1.0\r\n\r\n") == [200], "HTTP/1.0")
    for host, expected in ((b"evil.example", 421), (b"127.0.0.1.evil.example:80", 421), (b"localhost.evil", 421),
                           (b"[::1].evil", 421), (b"[evil", 421), (b"LOCALHOST:1", 200), (b"[::1]:1", 200),
                           (b"10.0.0.1", 200)):
        for request in (b"GET /metrics HTTP/1.1\r\nHost: " + host,
                        b"GET HTTP://" + host + b"/metrics HTTP/1.1\r\nHost: 10.0.0.1"):
            answers = it.statuses(request + b"\r\n" + end)
            check(answers == [expected], request, "was answered with", answers)
    check(it.statuses(b"GET http://localhost HTTP/1.1\r\nHost: evil.example\r\n" + end) == [200], "no path")


HEAD = b"GET /metrics HTTP/1.1\r\nHost: localhost\r\nAccept: application/openmetrics-text\r\n"
PACKED = HEAD + b"Accept-Encoding: gzip\r\n\r\n"


def slow_reader(it):
    connection = socket.socket()
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
    connection.settimeout(LIMIT)
    connection.connect(("127.0.0.1", it.port))
    return connection


def test_old_answers(it):
    """Of answers that wait for their readers, the oldest are taken back."""
    packed = {"Accept": "application/openmetrics-text", "Accept-Encoding": "gzip"}
    with contextlib.ExitStack() as opened:
        readers = [opened.enter_context(slow_reader(it)) for _ in range(40)]  # of half a megabyte each
        for reader in readers:
            reader.sendall(PACKED)
            text = it.ask(headers=packed).text
            reached(lambda: it.ask(headers=packed).text != text, "another text")
        whole = []
        for reader in readers:
            answer = b""
            with contextlib.suppress(ConnectionError):
                while not answer or len(answer) < int(re.search(rb"Content-Length: (\d+)", answer)[1]):
                    part = reader.recv(65536)
                    if not part:
                        break
                    answer += part
            length = int(re.search(rb"Content-Length: (\d+)", answer)[1])
            whole.append(len(answer) >= length)
        check(not whole[0] and whole[-1], "answers that came whole:", whole)


def crowd(it, count, first, then):
    """So many others are there, who send this first and then that, and a scrape is answered in time."""
    with contextlib.ExitStack() as opened:
        others = []
        for _ in range(count):
            connection = opened.enter_context(slow_reader(it))
            connection.setblocking(False)
            others.append(connection)
            with contextlib.suppress(OSError):
                connection.send(first)
        for _ in range(10):
            for connection in others:
                with contextlib.suppress(OSError):
                    connection.send(then)
            check(it.ask(headers={"Accept-Encoding": "gzip"}).status == 200 and not it.health(), it.health())
            late = opened.enter_context(it.connect())
            for _ in range(8):
                opened.enter_context(it.connect())
            late.sendall(b"GET /healthz HTTP/1.0\r\n\r\n")
            check(late.recv(12) == b"HTTP/1.1 200", "who came before others is refused")
        check(len(list(it.proc("fd").iterdir())) < 320, "descriptors are taken without end")
        check(it.status("Threads") <= THREADS, it.status("Threads"), "threads")
        check(not is_plain or it.status("RssAnon") < 65536, "it took", it.status("RssAnon"), "KiB")


def test_crowds(it, *options):
    resource.setrlimit(resource.RLIMIT_NOFILE, (4096, max(4096, resource.getrlimit(resource.RLIMIT_NOFILE)[1])))
    crowd(it, 500, HEAD, b"X")  # requests that never end
    crowd(it, 2000, b"", b"")
    crowd(it, 500, (HEAD + b"\r\n") * 100, HEAD + b"\r\n")  # readers of nothing
    crowd(it, 500, PACKED * 100, PACKED)
    with contextlib.ExitStack() as opened:  # heads of which each byte comes alone
        heads = [opened.enter_context(it.connect()) for _ in range(200)]
        for head in heads:
            head.sendall(HEAD + b"\r" * 7900)
        before = it.processor_time()
        for head in heads[:100]:
            head.sendall(b"\r")
            time.sleep(0.01)
        used = it.processor_time() - before
        check(not is_plain or used < 0.15, "a few bytes took", used, "s of a processor")
    with it.connect() as half:
        half.sendall(HEAD)
        begin = time.monotonic()
        check(half.recv(1) == b"" and time.monotonic() - begin < LIMIT / 2, "a half request may stay")
    with Exporter(*options, limits=["prlimit", "--nofile=100", "--"]) as poor:
        crowd(poor, 500, b"", b"")  # who leave descriptors for the tables
        check(poor.value("zel_agent_up") == 1, "the tables could not be read")


def test_rights(it):
    """What it has open it can only read, and nothing of an agent's is among it but the tables."""
    for link in it.proc("fd").iterdir():
        try:
            target = os.readlink(link)
            info = it.proc(f"fdinfo/{link.name}").read_text()
        except FileNotFoundError:  # a connection that ended meanwhile
            continue
        if target.startswith("/") and not target.startswith(("/dev/null", str(it.log))):
            flags = int(re.search(r"flags:\s+(\d+)", info)[1], 8)
            check(flags & os.O_ACCMODE == os.O_RDONLY, target, "is open for writing")
    written = [line for line in it.proc("maps").read_text().splitlines() if re.search(r" .w.s .*(/dev/shm|silo)", line)]
    check(not written, "can write", written)


def remove_tables():
    for table in pathlib.Path("/dev/shm" if inside else scratch / "silo").iterdir():
        table.unlink()


def test_lives(it):
    """Agents and tables come and go."""
    check("nothing is published" in it.health() or "no director" in it.health(), it.health())
    check(it.value("zel_agent_up") == 0, "a scrape without an agent")
    received = 'zel_interface_in_bytes_total{interface="Ethernet4"}'
    with start_agent() as one:
        reached(lambda: it.value(received), "the agent is seen")
        reached(lambda: it.value("zel_agent_up") == 1 and not it.health(), "its life is told")
        remove_tables()
        reached(lambda: it.value("zel_agent_started_timestamp_seconds") and not it.health(), "the tables are back")
        one.process.send_signal(signal.SIGSTOP)
        check(it.value("zel_agent_up") == 1, "a scrape of a hung agent")
        reached(lambda: "has published nothing for" in it.health() and it.value(received) is None,
                "that an agent hangs is told")
        one.end(signal.SIGKILL)
        check("no agent is running" in it.health(), it.health())
        reached(lambda: it.value("zel_agent_up") == 0 and it.value(received) is None, "the end of a dead agent's samples")
    with start_agent():
        reached(lambda: not it.health(), "the next agent is seen")
        test_rights(it)
    remove_tables()
    check("nothing is published" in it.health() and it.ask().status == 200, it.health())
    if inside:
        with start_agent():
            reached(lambda: it.value(received), "root's agent is seen")
            with start_agent("--ports", 2, as_other=True):  # of the exporter's own user, whose tables come first
                reached(lambda: it.value(received) is None, "an agent of its own user is preferred")
                check(not it.health() and it.value("zel_agent_up") == 1, it.health())
            reached(lambda: it.value(received), "root's agent is seen again")
    else:
        shutil.rmtree(scratch / "silo")
        check(it.health() and it.ask().status == 200, "no folder")


programs = scratch / "bin"
programs.mkdir()
for program in (agent, exporter):
    shutil.copy(program, programs)
agent, exporter = (programs / pathlib.Path(program).name for program in (agent, exporter))
(scratch / "other").mkdir()
(scratch / "own").mkdir()
if inside:
    os.chown(scratch / "other", 65534, 65534)
is_plain = not re.search(rb"__(tsan|asan)_init", exporter.read_bytes())
PORTS = 128 if is_plain else 32  # of a chip
THREADS = 1 if is_plain else 2  # ThreadSanitizer has one of its own

try:
    test_options()
    silo_option = [] if inside else ["--silo", scratch / "silo"]
    with Exporter(*silo_option) as it:
        test_lives(it)
        # For answers that fill all buffers.
        with start_agent("--chips", 4, "--pipes", 4, "--ports", PORTS, polling=2):
            reached(lambda: it.value(f'zel_interface_in_bytes_total{{interface="Ethernet{4 * PORTS}"}}'), "traffic")
            test_formats(it)
            test_refusals(it)
            if is_plain:  # it takes the answers of many ports
                test_old_answers(it)
            test_crowds(it, *silo_option)
            test_rights(it)
            check(not it.health(), it.health())
        with contextlib.ExitStack() as stack:
            for _ in range(100):
                stack.enter_context(it.connect())
            begin = time.monotonic()
            check(it.end(signal.SIGTERM) == 0 and time.monotonic() - begin < LIMIT / 2, "it did not end well")
        check(it.log.read_text() == "", it.log.read_text())
finally:
    shutil.rmtree(scratch)
