#!/usr/bin/env python3
# Opens the exporter's page in a real browser, and holds what it shows against the records of a living agent; through
# drops that begin, records that get old, an agent that is killed, and an exporter that goes and comes again.
#
#    page-test.py ZELAGENT ZELCTL ZELEXPORTER [PICTURE.png]
#
# With a picture, only makes that: 1280 x 800, of an agent with traffic, drops and events.
import base64
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

agent_program, client, exporter_program = sys.argv[1:4]
picture = sys.argv[4] if len(sys.argv) > 4 else None
BROWSER, DRIVER = shutil.which("chromium"), shutil.which("chromedriver")
if not BROWSER or not DRIVER:
    print("skipped: needs chromium and chromedriver (scripts/setup browser)")
    sys.exit(77)

POLL = 1.0  # seconds between two polls of the agent
BUSY = 1.5  # more, for a machine that is busy
LIMIT = 30  # for what has no bound of its own
WHOLE = 240  # for all of the test
PICTURED = 200  # of traffic, before the picture is taken
HOSTILE = "<img/src=x/onerror=alert(1)>"
scratch = pathlib.Path(tempfile.mkdtemp())
silo = scratch / "silo"
silo.mkdir()
http = urllib.request.build_opener(urllib.request.ProxyHandler({}))


def check(condition, *problem):
    if not condition:
        raise AssertionError(" ".join(str(part) for part in problem))


def until(happens, about, within=LIMIT):
    """Waits until it happens, and returns what it returned then."""
    end = time.monotonic() + within
    while not (result := happens()):
        check(time.monotonic() < end, about, "did not happen within", within, "s")
        time.sleep(0.05)
    return result


class Program:
    """A program that runs until the end of the test, in a group of its own with all that it starts."""

    def __init__(self, *command, **options):
        self.log = open(scratch / f"log.{time.monotonic_ns()}", "w+")
        self.process = subprocess.Popen([str(word) for word in command], stdout=self.log, stderr=subprocess.STDOUT,
                                        text=True, start_new_session=True, **options)

    def said(self, pattern):
        return until(lambda: re.search(pattern, pathlib.Path(self.log.name).read_text()), f"'{pattern}'")[1]

    def send(self, which):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, which)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.send(signal.SIGKILL)
        self.process.wait(LIMIT)
        self.log.close()


class Agent(Program):
    def __init__(self, *options):
        super().__init__(agent_program, "--scenario", "-", "--realtime", "--silo", silo, "--socket",
                         scratch / "socket", *options, stdin=subprocess.PIPE)
        self.said("(commands on)")

    def do(self, *statements):
        self.process.stdin.write("".join(f"{one}\n" for one in statements))
        self.process.stdin.flush()


class Exporter(Program):
    def __init__(self, port=0):
        super().__init__(exporter_program, "--listen", port, "--silo", silo)
        self.port = int(self.said(r"http://127\.0\.0\.1:(\d+)/"))

    def ask(self, path, **headers):
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{path}", headers=headers)
        try:
            with http.open(request, timeout=LIMIT) as answer:
                return answer.status, answer.read().decode(), answer.headers
        except urllib.error.HTTPError as error:
            return error.code, error.read().decode(), error.headers


class Browser(Program):
    """A headless browser, by the WebDriver protocol."""

    def __init__(self):
        super().__init__(DRIVER, "--port=0")
        port = self.said(r"started successfully on port (\d+)")
        self.base = f"http://127.0.0.1:{port}/session"
        arguments = ["--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
                     f"--user-data-dir={scratch}/profile", *(["--no-sandbox"] if os.geteuid() == 0 else [])]
        options = {"binary": BROWSER, "args": arguments}
        session = self.call("", {"capabilities": {"alwaysMatch": {
            "browserName": "chrome", "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}}})
        self.base += "/" + session["sessionId"]

    def call(self, path, body):
        request = urllib.request.Request(self.base + path, json.dumps(body).encode(),
                                         {"Content-Type": "application/json"})
        try:
            with http.open(request, timeout=LIMIT) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise AssertionError(error.read().decode()) from error

    def open(self, url):
        self.call("/url", {"url": url})

    def run(self, script, *arguments):
        return self.call("/execute/sync", {"script": script, "args": arguments})

    def text(self, selector):
        return self.run("return document.querySelector(arguments[0])?.textContent ?? null", selector)

    def press(self, *keys):
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.call("/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": actions}]})

    def devtools(self, command, **parameters):
        self.call("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def look(self, width, height, scheme="light", motion="no-preference"):
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                      mobile=False)
        self.devtools("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": scheme}, {"name": "prefers-reduced-motion", "value": motion}])

    def complaints(self):
        return [line["message"] for line in self.call("/se/log", {"type": "browser"})]

    def picture(self, path):
        with http.open(self.base + "/screenshot", timeout=LIMIT) as answer:
            pathlib.Path(path).write_bytes(base64.b64decode(json.load(answer)["value"]))


TAB, ESCAPE, ENTER, END, HOME, LEFT, UP, RIGHT, DOWN = "\ue004\ue00c\ue007\ue010\ue011\ue012\ue013\ue014\ue015"

TILES = """return [...document.querySelectorAll('.tile')].map(one => ({name: one.tile.name, text: one.textContent,
    old: one.classList.contains('old'), label: one.getAttribute('aria-label')}))"""
# Of what has the focus: which of the elements that Tab must reach it is, and whether it looks as if it had the focus.
FOCUS = """const at = document.activeElement;
    const style = getComputedStyle(at.matches('#colours input') ? at.nextElementSibling : at);
    return [at === document.body ? null : reachable.indexOf(at), style.outlineStyle !== 'none'];"""
# No round ends, as one of its answers is held back.
HELD_BACK = """window.usual = window.fetch; window.held = [];
    window.fetch = (address, options) => window.usual(address, options).then(answer =>
        address !== '/api/drops' ? answer : new Promise(done => window.held.push(() => done(answer))));"""
REACHABLE = """window.reachable = [...document.querySelectorAll('button, input, select, [tabindex="0"]')].filter(one =>
    one.checkVisibility() && one.tabIndex >= 0 && !(one.type === 'radio' && !one.checked));
    return reachable.map(one => one.id || one.className || one.tagName);"""
EVENTS = """return [...document.querySelectorAll('#events li')].map(one => [one.querySelector('.kind').textContent,
    one.querySelector('.kind').nextSibling.textContent.split(' to ')[0]])"""
# Each text with the least contrast that it has to any colour of the background that it stands on.
CONTRASTS = """
    const parse = (text) => [...text.matchAll(/rgba?\\(([^)]+)\\)/g)].map(one => one[1].split(/[ ,\\/]+/).map(Number))
        .filter(one => one[3] !== 0);
    const luminance = (colour) => colour.slice(0, 3).map(one => one / 255)
        .map(one => one <= 0.04045 ? one / 12.92 : ((one + 0.055) / 1.055) ** 2.4)
        .reduce((sum, one, i) => sum + one * [0.2126, 0.7152, 0.0722][i], 0);
    const contrast = (a, b) => (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
    const grounds = (element) => {
      for (let at = element; at; at = at.parentElement) {
        const style = getComputedStyle(at);
        const colours = [...parse(style.backgroundImage), ...parse(style.backgroundColor)];
        if (colours.length) return colours;
      }
      return [[255, 255, 255]];
    };
    const found = [];
    const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
    while (texts.nextNode()) {
      const element = texts.currentNode.parentElement;
      if (!texts.currentNode.data.trim() || !element.checkVisibility()) continue;
      const style = getComputedStyle(element);
      const own = luminance(parse(element instanceof SVGElement ? style.fill : style.color)[0]);
      found.push([Math.min(...grounds(element).map(one => contrast(own, luminance(one)))), texts.currentNode.data]);
    }
    return found;"""


def records(*words):
    done = subprocess.run([client, "--silo", str(silo), *words, "json"], capture_output=True, text=True, timeout=LIMIT)
    check(done.returncode == 0, words, done.stderr)
    return json.loads(done.stdout)


def tiles(browser):
    return {one["name"]: one for one in browser.run(TILES)}


def test_answers(exporter):
    """Browsers share a reading, and wrong requests are told what was expected."""
    until(lambda: '"Ethernet1"' in exporter.ask("/api/ports")[1], "publishing")
    check(0 <= int(exporter.ask("/api/ports")[2]["Zel-Reading-Age-Ms"]) <= 1000 * (POLL + BUSY), "the reading's age")
    readings = {exporter.ask("/api/ports")[2]["ETag"] for _ in range(10)}
    check(len(readings) <= 2, "ten browsers had", len(readings), "readings")
    status, text, headers = exporter.ask("/")
    check(status == 200 and "default-src 'none'" in headers["Content-Security-Policy"], headers)
    check(exporter.ask("/", **{"If-None-Match": headers["ETag"]})[0] == 304, "the page came twice")
    check(not re.search(r"\son\w+=|<style|style=|<script(?! src)|://", text), "the page has inline script or style")
    for path, wanted, expected in (
            ("/api/ports?x=1", 400, "expected none"), ("/api/port", 400, "interface: expected a name of 1 to 63"),
            ("/api/port?interface=" + 64 * "x", 400, "interface: expected"),
            ("/api/port?interface=Ethernet99", 404, "no such interface"),
            ("/api/port?interface=Ethernet1&interface=Ethernet2", 400, "twice"),
            ("/api/history?interface=Ethernet1&last=2d", 400, "last: expected 10s to 1d"),
            ("/api/history?interface=Ethernet1&last=", 400, "last: expected"),
            ("/api/history?interface=Ethernet1&from=1", 400, "expected interface and last")):
        status, text, _ = exporter.ask(path)
        check(status == wanted and expected in text, path, status, text)


def test_equality(browser, exporter, agent):
    """What the page shows is what the records say, also of a name that looks like markup."""
    agent.do("traffic off")
    until(lambda: all(row["activity"] == "idle" for row in records("interfaces")["interfaces"]), "idleness")
    rows = {row["name"]: row for row in records("interfaces")["interfaces"]}
    check(list(tiles(browser)) == list(rows) and HOSTILE in rows, list(tiles(browser)), list(rows))
    browser.open(f"http://127.0.0.1:{exporter.port}/?port=NoSuch")
    until(lambda: browser.text("#details-facts") == "no such interface; Escape or ✕ closes this.", "how to close")
    height = browser.run("return document.querySelector('#details').offsetHeight")
    check(height < 100, "one line takes", height, "pixels")
    for name in ("Ethernet3", HOSTILE):
        browser.open(f"http://127.0.0.1:{exporter.port}/?port={urllib.parse.quote(name)}")
        until(lambda: browser.text("#counters tbody td"), "details")
        browser.run("document.querySelector('#zeros input').click()")
        check(browser.text("#details-name") == name, browser.text("#details-name"))
        table = """return Object.fromEntries([...document.querySelectorAll('#counters tbody tr')].map(row =>
            [row.cells[0].textContent, row.cells[1].textContent.replaceAll('\\u2009', '')]))"""
        wanted = {**rows[name]["totals"], **records("queues", name)["interfaces"][0]["totals"]}
        wanted = {counter: "never read" if total is None else str(total) for counter, total in wanted.items()}
        until(lambda: browser.run(table) == wanted, f"equality of {name}")
    check(browser.run("return document.querySelectorAll('img, #field script').length") == 0, "a name became markup")
    for counter, factor in (("out-octets", 8), ("out-pkts", 1)):
        samples = records("history", "Ethernet3", counter)["series"][0]["samples"]
        plot = json.loads(exporter.ask("/api/history?interface=Ethernet3&last=90s")[1])
        rates = [factor * (after["totals"][counter] - before["totals"][counter]) * 1e6 /
                 (after["clock-us"] - before["clock-us"]) for before, after in zip(samples, samples[1:])]
        highest = max(peak or 0 for peak in plot["series"][counter]["peaks"]) / 1000
        check(highest > 0 and abs(highest - max(rates)) < highest / 1000, counter, "has a peak of", highest, rates)
    events = [[one["kind"], one["where"]] for one in reversed(records("events")["events"])]
    until(lambda: browser.run(EVENTS) == events, f"the list of events {events}")
    agent.do("traffic on")


def test_drops(browser, exporter, agent):
    """A port that starts to drop is seen within two polls, and so is what happened meanwhile."""
    browser.run("document.querySelector('#colours input[value=drops]').click()")
    check(browser.run("return location.search").endswith("colour=drops") or
          "colour=drops" in browser.run("return location.search"), "the choice is not in the address")
    check("0/s" in tiles(browser)["Ethernet4"]["text"], tiles(browser)["Ethernet4"])
    browser.run("document.querySelector('#colours input[value=errors]').click()")
    check(not [one for one in tiles(browser).values() if "errors" not in one["label"]], "labels of another measure")
    browser.run("document.querySelector('#colours input[value=drops]').click()")
    begin = time.monotonic()
    dropped = 0
    while "Ethernet40/s" in tiles(browser)["Ethernet4"]["text"]:
        check(time.monotonic() - begin < 2 * POLL + BUSY, "drops were not seen within two polls")
        dropped += 1000
        agent.do(f"rmon Ethernet4 59 {dropped}")
        time.sleep(0.2)
    print(f"drops seen after {time.monotonic() - begin:.1f} s, polls every {POLL} s")
    until(lambda: "Ethernet4" in browser.text("#drops table"), "the ranking", POLL + BUSY)
    check("discarded at the output" in browser.text("#drops table"), browser.text("#drops table"))
    agent.do("mtu Ethernet5 100")
    until(lambda: "Ethernet50/s" not in tiles(browser)["Ethernet5"]["text"] and
          tiles(browser)["Ethernet5"]["label"].endswith("packets dropped per second"), "drops of a port by reason")
    until(lambda: "MTU exceeded" in browser.text("#drops table"), "the reason beside the port")
    browser.run(HELD_BACK)  # so that a round which had the event is overtaken, and drops it
    agent.do("clear Ethernet2")
    until(lambda: '"clear"' in exporter.ask("/api/events")[1], "the event's record")
    browser.run("window.held = []; refresh()")
    until(lambda: browser.run("return window.held.length > 0"), "what is held back")
    time.sleep(0.3)  # for the rest of the round
    browser.run("window.fetch = window.usual; refresh(); window.held.forEach(go => go())")
    until(lambda: "clear" in browser.text("#events li") and "Ethernet2" in browser.text("#events li"), "the event",
          2 * POLL + BUSY)


def test_keyboard(browser):
    """Tab reaches all there is, and arrows each tile; what has the focus looks so; Escape closes."""
    browser.run("document.querySelector('.tile').click()")
    until(lambda: browser.text(".plot .name"), "plots")
    names = browser.run(REACHABLE)
    reached = set()
    for _ in range(len(names) + 5):
        browser.press(TAB)
        at, is_visible = browser.run(FOCUS)
        if at is not None:
            check(is_visible, names[at], "does not look as if it had the focus")
            reached.add(at)
    missed = [name for i, name in enumerate(names) if i not in reached]
    check(not missed and len(names) > 12, "Tab does not reach", missed, "of", names)
    closed = "return [document.querySelector('#details').hidden, document.querySelector('#details-body').hidden]"
    for is_open in (False, True, False):
        browser.press(ESCAPE) if not is_open else browser.run("document.querySelector('.tile').click()")
        check(browser.run(closed)[0] != is_open, "Escape does not close, or a click does not open")
        if is_open:
            until(lambda: browser.run(closed) == [False, False], "details of a port that was open before", POLL / 2)
    browser.run("document.querySelector('.tile[tabindex=\"0\"]').focus()")
    focused = "return document.activeElement.tile?.name ?? document.activeElement.id"
    all_names = list(tiles(browser))
    columns = browser.run("""return getComputedStyle(document.querySelector('.tiles')).gridTemplateColumns
        .split(' ').length""")
    steps = [(HOME, 0), (RIGHT, 1), (DOWN, 1 + columns), (UP, 1), (LEFT, 0), (LEFT, 0),
             (END, len(all_names) - 1)]
    for key, wanted in steps:
        browser.press(key)
        check(browser.run(focused) == all_names[wanted], f"{key!r} went to", browser.run(focused))
    check(browser.text("#tip b") == all_names[-1], "the tip is of", browser.text("#tip b"))
    browser.press(ENTER)
    check(browser.run(focused) == "details-name", "Enter went to", browser.run(focused))
    browser.press(ESCAPE)
    check(browser.run(focused) == all_names[-1], "Escape went to", browser.run(focused))


def test_looks(browser):
    """All text can be read in the light and in the dark; nothing is wider than a small telephone."""
    browser.run("document.querySelector('.tile').click()")
    until(lambda: browser.text(".plot text"), "plots")
    worst = []
    for scheme in ("light", "dark"):
        browser.look(1280, 800, scheme)
        for colour in ("use", "drops", "errors"):
            browser.run(f"document.querySelector('#colours input[value={colour}]').click()")
            contrasts = browser.run(CONTRASTS)
            check(len(contrasts) > 80, "looked at", len(contrasts), "texts")
            worst.append(min(contrasts))
            check(worst[-1][0] >= 4.5, scheme, colour, sorted(contrasts)[:5])
    print(f"contrast of {min(worst)[0]:.2f} at least")
    wide = """return [...document.querySelectorAll('body *')].filter(one => one.checkVisibility() &&
        one.getBoundingClientRect().right > innerWidth + 0.5 && !one.closest('svg'))
        .map(one => one.outerHTML.slice(0, 80))"""
    for is_open in (True, False):
        browser.look(360, 740)
        time.sleep(0.2)
        check(browser.run("return document.documentElement.scrollWidth") == 360 and not browser.run(wide),
              "wider than 360 pixels, details open:", is_open, browser.run(wide))
        browser.press(ESCAPE)
    browser.look(1280, 800, motion="reduce")
    check(browser.run("""document.querySelector('#events li').classList.add('new');
        return getComputedStyle(document.querySelector('#events li')).animationName""") == "none", "it moves")
    browser.look(1280, 800)


def test_rest(browser):
    """A hidden page asks for nothing."""
    hide = """Object.defineProperty(document, 'hidden', {value: arguments[0], configurable: true});
        document.dispatchEvent(new Event('visibilitychange'));"""
    asked = "return performance.getEntriesByType('resource').length"
    browser.run(hide, True)
    time.sleep(0.5)  # for what was asked for already
    before = browser.run(asked)
    time.sleep(2 * POLL + 1)
    check(browser.run(asked) == before, "a hidden page asks on")
    browser.run(hide, False)
    until(lambda: browser.run(asked) > before, "asking again", POLL + BUSY)


def test_age(browser, exporter, agent):
    """What is old looks old; an agent that was killed and an exporter that is gone are told of at once."""
    banner = lambda: browser.text("#banner")  # noqa: E731
    check(banner() == "" and not any(one["old"] for one in tiles(browser).values()), banner())
    agent.send(signal.SIGSTOP)
    until(lambda: all(one["old"] and re.search(r"\d s$", one["text"]) for one in tiles(browser).values()),
          "old tiles with their age")
    check(banner() == "An agent is running, but publishes nothing new.", banner())
    agent.send(signal.SIGCONT)
    until(lambda: banner() == "", "freshness")
    agent.do("sdk completion lost")
    until(lambda: all(one["old"] for one in tiles(browser).values()), "old tiles of a silent chip")
    until(lambda: banner() == "Zel0: no answer from the chip.", "the silent chip")
    until(lambda: all(one["rate"] is None for one in json.loads(exporter.ask("/api/drops")[1])["reasons"]),
          "reasons without a rate of now")
    begin = time.monotonic()
    agent.send(signal.SIGKILL)
    until(lambda: banner().startswith("The agent is gone"), "the banner", POLL + BUSY)
    print(f"the agent's death seen after {time.monotonic() - begin:.1f} s")
    check(all(one["old"] for one in tiles(browser).values()), "tiles of a dead agent look fresh")


def test_loss(browser, exporter):
    """Through the end of the exporter, which comes back with an agent, without a reload."""
    browser.run("window.isSamePage = true")
    port = exporter.port
    number = json.loads(exporter.ask("/api/events")[1])["events"][-1]["number"]
    exporter.send(signal.SIGKILL)
    exporter.process.wait(LIMIT)
    killed = 1000 * time.time()
    until(lambda: (browser.text("#banner") or "").startswith("No answer from the exporter since"), "the banner",
          2 * POLL + BUSY)
    check(browser.run("return shown.lostSince.getTime()") <= killed, "no answer since later than the last one")
    shutil.rmtree(silo)
    silo.mkdir()
    with Agent("--ports", 8, "--polling", POLL) as agent:
        agent.do("clear Ethernet7")
        until(lambda: records("events")["events"], "an event")
        with Exporter(port) as exporter:
            until(lambda: browser.text("#banner") == "", "the return")
            check(browser.run("return window.isSamePage"), "the page was loaded again")
            events = json.loads(exporter.ask("/api/events")[1])["events"]
            check(events[-1]["number"] == number, "numbers do not begin anew", events, number)
            until(lambda: browser.run(EVENTS) == [[one["kind"], one["where"]] for one in events], f"only {events}")
            shutil.rmtree(silo)
            why = exporter.ask("/healthz")[1].strip()
            until(lambda: browser.text("#banner") == f"Nothing is published: {why}", why)


def test_policy(browser, exporter):
    """Nothing came from elsewhere, nothing broke the policy; and the policy holds."""
    loaded = browser.run("return performance.getEntriesByType('resource').map(one => one.name)")
    check(loaded and all(one.startswith(f"http://127.0.0.1:{exporter.port}/") for one in loaded), loaded)
    expected = ("ERR_CONNECTION", "Failed to fetch", "interface=NoSuch")
    complaints = [one for one in browser.complaints() if not any(text in one for text in expected)]
    check(not complaints, complaints)
    browser.run("""const script = document.createElement('script'); script.textContent = 'window.didRun = true';
        document.body.append(script); document.body.setAttribute('style', 'margin: 9px');""")
    check(browser.run("return window.didRun ?? false") is False, "an inline script ran")
    check(len(browser.complaints()) >= 2, "the policy let a script or a style pass")


def take_picture():
    with Agent("--chips", 2, "--ports", 32) as agent, Exporter() as exporter, Browser() as browser:
        agent.do("traffic on")
        browser.look(1280, 800)
        time.sleep(PICTURED)
        agent.do("rmon Ethernet6 4 0xfffffffffff00000", "rmon Ethernet43 7 flip 60", "counters clear mac")
        time.sleep(8)
        browser.open(f"http://127.0.0.1:{exporter.port}/?colour=drops&port=Ethernet16&last=5m")
        until(lambda: browser.text(".plot .name"), "plots")
        time.sleep(6)
        browser.picture(picture)


def test_all():
    with Agent("--ports", 24, "--polling", POLL) as agent, Exporter() as exporter:
        agent.do(f"port add {HOSTILE} Zel0 60", "traffic on")
        test_answers(exporter)
        with Browser() as browser:
            browser.look(1280, 800)
            browser.open(f"http://127.0.0.1:{exporter.port}/")
            until(lambda: len(tiles(browser)) == 25, "tiles")
            test_equality(browser, exporter, agent)
            test_drops(browser, exporter, agent)
            test_keyboard(browser)
            test_looks(browser)
            test_rest(browser)
            test_age(browser, exporter, agent)
            test_loss(browser, exporter)
            test_policy(browser, exporter)


def expire(*_):
    raise AssertionError(f"took longer than {WHOLE} s")


signal.signal(signal.SIGALRM, expire)
signal.alarm(WHOLE + (PICTURED if picture else 0))
try:
    if picture:
        take_picture()
    else:
        test_all()
finally:
    shutil.rmtree(scratch, ignore_errors=True)
print("ok")
