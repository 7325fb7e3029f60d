"""The page that a live agent serves, in a browser and by bare requests."""

import json
import pathlib
import shutil
import unittest

import frames as f
from browser import Browser
from live import LiveTest, ip

PORT = 9474
ADDRESS = f"http://127.0.0.1:{PORT}/"
NAME = "<b>&x"  # of an interface, as Linux allows it


class PageTest(LiveTest):
    options = ("--metrics", str(PORT))

    def setUp(self):
        super().setUp()
        ip("-n", self.router, "link", "set", "lo", "up")

    def requests(self, *targets: str) -> list[dict]:
        """The answers to requests "METHOD /PATH"."""
        program = f"""
import http.client, json
for target in {targets!r}:
    method, path = target.split()
    client = http.client.HTTPConnection("127.0.0.1", {PORT}, timeout=30)
    client.request(method, path)
    answer = client.getresponse()
    print(json.dumps({{"status": answer.status, "headers": dict(answer.getheaders()), "body": answer.read().decode()}}))"""
        told, _ = self.host(self.router, program).communicate(timeout=60)
        return [json.loads(line) for line in told.splitlines()]


class Requests(PageTest):
    def test_it_shows_and_changes_nothing(self):
        process = self.start()
        self.learn_neighbours()
        self.labelled(777, 3)
        frames, page, script, gone = self.requests("GET /frames", "GET /", "GET /page.js", "GET /explain?frame=999999")
        shown = json.loads(frames["body"])["frames"]
        self.assertEqual([frame["label"] for frame in shown], [777, 777, 777])
        self.assertNotIn("bytes", frames["body"])
        self.assertIn("default-src 'none'; script-src 'self'", page["headers"]["Content-Security-Policy"])
        self.assertNotIn("<script>", page["body"])
        self.assertNotIn("innerHTML", script["body"])
        self.assertEqual((gone["status"], gone["body"][:30]), (404, "the frame is not kept any more"))
        explained, = self.requests(f"GET /explain?frame={shown[0]['sequence']}")
        self.assertIn("✗ label 777 in table hardware", explained["body"])
        self.assertNotIn("script", explained["headers"]["Content-Security-Policy"])
        refused = self.requests("POST /data", "DELETE /frames", "PUT /", "GET /clear-counters", "GET /control",
                                "GET /explain?frame=1%20--html%20/tmp/x", "GET /frames?before=x", "GET /sets?from=1048577",
                                "GET /explain?frame=-1", "GET /explain", "GET /frames?before=9&before=3", "GET /metrics?x=1")
        self.assertEqual([answer["status"] for answer in refused], [405, 405, 405, 404, 404, *7 * [400]])
        self.assertEqual(refused[6]["body"],
                         'parameter "before", value "x": no number of 0 to 18446744073709551615\n')
        dropped = json.loads(self.requests("GET /data")[0]["body"])["fates"]["dropped"]["frames"]
        self.assertEqual(dropped, 3)
        self.stop(process)

    def test_a_frame_of_the_router_s_own_has_no_explanation(self):
        process = self.start()
        self.learn_neighbours()
        expired = f.eth(self.router_mac("west"), "02:00:00:00:00:09", f.ETH_IPV4,
                        f.udp_packet("10.0.1.77", "10.0.2.2", ttl=1))  # the answer is to an address that nobody has
        self.host(self.west, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0)); s.send(bytes.fromhex("{expired.hex()}"))""").communicate()
        shown = []
        self.until(lambda: shown.extend(json.loads(self.requests("GET /frames")[0]["body"])["frames"]) or shown)
        self.assertEqual([(frame["own"], frame["port"]) for frame in shown[:1]], [(True, None)])
        told, = self.requests(f"GET /explain?frame={shown[0]['sequence']}")
        self.assertEqual(told["status"], 404)
        self.assertIn("this router has made the frame itself", told["body"])
        self.stop(process)

    def test_frames_and_weighted_sets_come_in_pages(self):
        for label in range(1000, 1045):
            self.ctl("lfib", "add", str(label), "nexthop", "as", "200", "via", "inet", "10.0.2.2", "dev", "east", "weight",
                     "3", "nexthop", "as", "201", "via", "inet", "10.0.1.2", "dev", "west", "weight", "1")
        self.ctl("lfib", "add", "900", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        process = self.start()
        self.learn_neighbours()
        self.labelled(777, 60)
        first = json.loads(self.requests("GET /frames")[0]["body"])
        sequences = [frame["sequence"] for frame in first["frames"]]
        self.assertEqual((len(sequences), sequences, first["more"]), (50, sorted(sequences, reverse=True), True))
        rest = json.loads(self.requests(f"GET /frames?before={sequences[-1]}")[0]["body"])
        self.assertEqual((len(rest["frames"]), rest["more"]), (10, False))
        labels, start = [], 0
        while start is not None:
            *sets, last = json.loads(self.requests(f"GET /sets?from={start}")[0]["body"])["weighted-sets"]
            start = last.get("next")
            sets += [last] if start is None else []
            labels += [each["label"] for each in sets]
            self.assertLessEqual(len(sets), 20)
            self.assertEqual([(via["port"], via["weight"]) for via in sets[0]["vias"]], [("east", 3), ("west", 1)])
        self.assertEqual(labels, list(range(1000, 1045)))
        self.stop(process)


@unittest.skipUnless(shutil.which("chromium"), "there is no Chromium")
class InABrowser(PageTest):
    def browser(self) -> Browser:
        browser = Browser(self.directory / "profile", "ip", "netns", "exec", self.router)
        self.addCleanup(browser.close)
        browser.emulate(1100, 900)
        browser.open(ADDRESS)
        browser.until("Number(document.body.dataset.turns) >= 2")
        return browser

    def focus_order(self, browser: Browser) -> list[str]:
        order = []
        while len(order) < 20 and (not order or order[-1] != "BODY"):
            browser.press("Tab", 9)
            order.append(browser.value("document.activeElement.id || document.activeElement.textContent.trim().slice(0, 20)"
                                       " && (document.activeElement.id || document.activeElement.tagName)"))
        return order

    def test_it_shows_a_drop_and_leads_to_its_explanation(self):
        self.ctl("lfib", "add", "500", "nexthop", "as", "200", "via", "inet", "10.0.2.2", "dev", "east", "weight", "3",
                 "nexthop", "as", "201", "via", "inet", "10.0.1.2", "dev", "west", "weight", "1")
        process = self.start(f'  - {{name: "{NAME}", kind: tap}}\n')
        self.learn_neighbours()
        self.labelled(777, 2)
        browser = self.browser()
        browser.until("document.querySelectorAll('#frames a').length >= 2")
        text = browser.value("document.body.innerText")
        for part in ("No labels resolved to via sets", self.tables, "Label 500", "75.0 %", "25.0 %", "10.0.2.2"):
            self.assertIn(part, text)
        # Names of others are text.
        self.assertIn(NAME, browser.value("[...document.querySelectorAll('#topology text')].map(t => t.textContent).join()"))
        self.assertEqual(browser.value("document.querySelectorAll('main b').length"), 0)
        # All can be reached by keyboard, in the order in which it is read, and nothing catches the focus.
        order = self.focus_order(browser)
        links = browser.value("document.querySelectorAll('#frames a').length")
        buttons = browser.value("[...document.querySelectorAll('button')].filter(b => b.disabled).length")
        self.assertEqual(buttons, 3)  # there is nothing older, newer or further
        self.assertEqual(order[:4 + links + 1], ["A", "pause", "SUMMARY", "reason", *["A"] * links, "from"])
        # Every picture says what is in it.
        self.assertEqual(browser.value("[...document.querySelectorAll('svg:not([aria-hidden])')]"
                                       ".filter(s => s.getAttribute('role') !== 'img' || !s.getAttribute('aria-label')).length"), 0)
        browser.value("document.querySelector('#frames a').focus()")
        turns = browser.value("Number(document.body.dataset.turns)")
        browser.until(f"Number(document.body.dataset.turns) > {turns}")
        self.assertEqual(browser.value("document.activeElement.textContent"), "Explain")  # refreshed around it
        browser.press("Enter", 13)
        browser.until("location.pathname === '/explain' && document.readyState === 'complete'")
        self.assertIn("Nearest change", browser.value("document.body.innerText"))
        self.assertEqual(browser.complaints, [])
        self.assertEqual([address for address in browser.requests if not address.startswith((ADDRESS, "data:"))], [])
        self.stop(process)

    def test_it_fits_phones_dark_rooms_and_paper(self):
        process = self.start()
        self.learn_neighbours()
        self.labelled(777, 2)
        browser = self.browser()
        paper = "getComputedStyle(document.body).backgroundColor"
        self.assertEqual(browser.value(paper), "rgb(255, 255, 255)")
        browser.emulate(1100, 900, "dark")
        self.assertEqual(browser.value(paper), "rgb(21, 24, 28)")
        self.assertGreater(self.contrast(browser), 7)
        browser.emulate(390, 800)
        turns = browser.value("Number(document.body.dataset.turns)")
        browser.until(f"Number(document.body.dataset.turns) > {turns} + 1")
        self.assertLessEqual(browser.value("document.documentElement.scrollWidth"), 390)
        browser.emulate(1100, 900, media="print")
        self.assertEqual(browser.value("getComputedStyle(document.getElementById('pause')).display"), "none")
        browser.screenshot(pathlib.Path(self.directory / "page.png"))
        self.assertGreater((self.directory / "page.png").stat().st_size, 10000)
        self.expect_room_for_a_hundred_ports(browser)
        self.expect_shares_of_the_labels_of_now(browser)
        self.expect_that_those_who_answer_are_not_missed(browser)
        self.assertEqual(browser.complaints, [])
        self.stop(process)

    def expect_room_for_a_hundred_ports(self, browser: Browser) -> None:
        took = browser.value("""(() => {
            isPaused = true;
            const neighbours = Array.from({length: 10}, (_, i) => ({address: `10.0.0.${i}`}));
            const ports = Array.from({length: 100}, (_, i) => ({name: `port${i}`, state: i % 9 ? "up" : "down", neighbours,
                rate: {inFrames: i * 1000, inBits: i * 1e6, outFrames: i, outBits: i * 8}}));
            const began = performance.now();
            showTopology({ports});
            document.body.offsetHeight;
            return performance.now() - began; })()""")
        self.assertEqual(browser.value("document.querySelectorAll('#topology .box').length"), 101)
        self.assertLess(took, 1000)  # milliseconds

    def expect_shares_of_the_labels_of_now(self, browser: Browser) -> None:
        shares = browser.value("""(() => {
            const label = (label, packets) => ({label, packets, bytes: 1, rate: 1});
            showLabels({labels: [label(5001, 100)]});
            showLabels({labels: [label(5001, 100), label(5002, 300)]});
            return [...document.querySelectorAll('#labels svg')].map(svg =>
                [svg.getAttribute("aria-label"), svg.lastChild.getAttribute("width")]); })()""")
        self.assertEqual(shares, [["25.0 %", "33.3"], ["75.0 %", "100.0"]])

    def expect_that_those_who_answer_are_not_missed(self, browser: Browser) -> None:
        note = browser.value("""(() => {
            const wanted = ["10.0.2.2", "10.0.2.9"].map(nexthop => ({nexthop, port: "east", frames: 2}));
            showWanted({wanted, ports: [{name: "east", neighbours: [{address: "10.0.2.2"}]}]});
            return document.getElementById("wanted").textContent; })()""")
        self.assertIn("10.0.2.9 at east (2)", note)
        self.assertNotIn("10.0.2.2", note)

    def contrast(self, browser: Browser) -> float:
        """Of text and paper, as WCAG 2 defines it."""
        def luminance(colour: str) -> float:
            parts = [int(part) / 255 for part in colour[4:-1].split(",")]
            linear = [part / 12.92 if part <= 0.03928 else ((part + 0.055) / 1.055) ** 2.4 for part in parts]
            return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]
        a, b = sorted(luminance(browser.value(f"getComputedStyle(document.body).{which}"))
                      for which in ("color", "backgroundColor"))
        return (b + 0.05) / (a + 0.05)

if __name__ == "__main__":
    unittest.main()
