"""A thousand static labels, typed, led elsewhere, and led back."""

from recorder import Recorder
from static_routes import make_links

NEEDS_VRF = False
LABELS = range(1000, 2000)
WEST, EAST = "192.0.2.2", "192.0.2.6"


def moved(before: str, after: str) -> list[str]:
    """The same label is swapped for another one by the other next hop."""
    out = {WEST: 10_000, EAST: 20_000}
    return [line for label in LABELS for line in (f"mpls lsp {label} {after} {label + out[after]}",
                                                  f"no mpls lsp {label} {before} {label + out[before]}")]


def record(recorder: Recorder) -> None:
    make_links()
    recorder.start(staticd="")
    recorder.typed("many_labels", *[f"mpls lsp {label} {WEST} {label + 10_000}" for label in LABELS])
    recorder.typed("many_labels_moved", *moved(WEST, EAST))
    recorder.typed("many_labels_back", *moved(EAST, WEST))
