"""What the other end of a pseudowire may send, and what becomes of it."""

import subprocess
import unittest

import frames as f
import make_pseudowire
from agent import CE_EAST, EAST, IP4, NO_VIA_SET, PORTS, SOURCE, AgentTest, Case, mpls

CONTROL_WORD = bytes(4)
FRAME = f.eth(make_pseudowire.HOST_B, make_pseudowire.HOST_A, f.ETH_IPV4, IP4)

CUT_SHORT = "Pseudowire payload shorter than an Ethernet header"
CHANNEL = "Pseudowire associated channel"
NO_CONTROL_WORD = "Pseudowire control word missing: the first nibble is neither 0 nor 1"


def delivers(control_word: bool) -> str:
    """Label 501 ends a pseudowire whose attachment circuit is the east port."""
    return PORTS + f"""
pseudowires:
  - {{name: red, port: east, label: 500, control-word: {str(control_word).lower()}, interface: west,
     nexthop: 10.0.1.2}}
lfib:
  pseudowire:
    - {{label: 501, via: {{interface: east, action: pop, payload: ethernet}}}}
"""


def delivered(what: str, control_word: bool, payload: bytes, frame: bytes) -> Case:
    wire = mpls([501], payload)
    return Case(what, delivers(control_word), [wire], sent={"east": [frame]},
                counters={NO_VIA_SET: 2}, labels={501: (1, len(wire))}, malformed=True)


def dropped(what: str, control_word: bool, payload: bytes, reason: str) -> Case:
    return Case(what, delivers(control_word), [mpls([501], payload)], drop_reasons={reason: 1},
                counters={NO_VIA_SET: 2}, malformed=True)


def punted(what: str, payload: bytes) -> Case:
    wire = mpls([501], payload)
    return Case(what, delivers(True), [wire], punted=[wire], punt_reasons={CHANNEL: 1},
                counters={NO_VIA_SET: 2}, malformed=True)


class WhatTheOtherEndMaySend(AgentTest):
    def test_with_control_word(self):
        self.run_cases([
            delivered("data", True, CONTROL_WORD + FRAME, FRAME),
            delivered("numbered data", True, bytes([0, 0, 0xFF, 0xFE]) + FRAME, FRAME),
            delivered("reserved bits that are set", True, bytes([0x0F, 0xFF, 0, 0]) + FRAME, FRAME),
            delivered("a frame that is all header", True, CONTROL_WORD + FRAME[:14], FRAME[:14]),
            punted("a message of the associated channel", bytes([0x10, 0, 0, 7]) + bytes(24)),
            punted("a message shorter than an Ethernet header", bytes([0x10, 0, 0, 7]) + bytes(9)),
            punted("a channel header alone", bytes([0x10, 0, 0, 7])),
            punted("an echo request in the associated channel", bytes([0x10, 0, 0, 0x21]) +
                   f.lsp_ping("10.0.0.1", "127.0.0.1")),
            dropped("no control word but a frame", True, f.mac("22:00:00:00:00:01") + FRAME[6:],
                    NO_CONTROL_WORD),
            dropped("an IPv4 packet", True, IP4, NO_CONTROL_WORD),
            dropped("control word and too little", True, CONTROL_WORD + FRAME[:13], CUT_SHORT),
            dropped("a control word alone", True, CONTROL_WORD, CUT_SHORT),
            dropped("half a control word", True, bytes(2), CUT_SHORT),
            dropped("nothing", True, b"", CUT_SHORT),
        ])

    def test_without_control_word(self):
        to_zeros = bytes(6) + FRAME[6:]
        self.run_cases([
            delivered("a frame", False, FRAME, FRAME),
            delivered("a frame that is all header", False, FRAME[:14], FRAME[:14]),
            delivered("a frame to an address of zeros", False, to_zeros, to_zeros),
            delivered("an address that begins like a channel message", False, b"\x10" + FRAME[1:],
                      b"\x10" + FRAME[1:]),
            delivered("what looks like a control word", False, CONTROL_WORD + FRAME,
                      CONTROL_WORD + FRAME),
            dropped("too little", False, FRAME[:13], CUT_SHORT),
            dropped("nothing", False, b"", CUT_SHORT),
        ])

    def test_stacks_that_a_pseudowire_label_should_not_stand_in(self):
        over = mpls([501, 77], CONTROL_WORD + FRAME)
        spent = mpls([(501, 0, 1)], CONTROL_WORD + FRAME)
        endless = f.eth("02:00:00:00:00:01", CE_EAST, f.ETH_MPLS, f.label(501))
        config = delivers(True)
        for what, frame, reasons in (("a label beneath", over, "dropped"),
                                     ("a spent TTL", spent, "punted"),
                                     ("no bottom", endless, "dropped")):
            with self.subTest(what):
                result = self.run_frames(config, [frame], malformed=True)
                self.assertEqual(result.sent(), {})
                self.assertEqual(sum(result.reasons(reasons).values()), 1)


class Example(AgentTest):
    def test_runs_as_told(self):
        captures = self.path / "captures"
        captures.mkdir()
        subprocess.run(["python3", str(SOURCE / "examples/make_pseudowire.py"), str(captures)],
                       check=True)
        config = (SOURCE / "examples/pseudowire.yaml").read_text(encoding="utf-8")
        result = self.run_files(config, [f"{path.stem}={path}" for path in captures.glob("*.pcap")],
                                "--json")
        self.assertEqual(result.code, 0, result.stderr)
        frames = len(list(make_pseudowire.customer_frames()))
        self.assertEqual(len(result.frames("east")), 2 * frames)
        self.assertEqual([(wire["name"], wire["sent"]["frames"], wire["delivered"]["frames"])
                          for wire in result.json["pseudowires"]],
                         [("gold", frames, 1), ("plain", frames, 1)])
        self.assertEqual(result.frames("ce1"), result.frames("ce2"))
        self.assertEqual(result.reasons("punted"), {CHANNEL: 1})
        self.assertEqual(result.reasons("dropped"), {NO_CONTROL_WORD: 1})


if __name__ == "__main__":
    unittest.main()
