"""The command line of the scripts that make the examples' captures."""

import argparse
import pathlib
from collections.abc import Callable, Iterable

import frames


def make(description: str, captures: dict[str, Callable[[], Iterable[bytes]]]) -> None:
    """Writes each capture's frames to NAME.pcap in the directory that the command line names."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("directory", type=pathlib.Path, metavar="DIRECTORY",
                        help="where the captures go; made if it is not there")
    directory = parser.parse_args().directory
    directory.mkdir(parents=True, exist_ok=True)
    for name, made in captures.items():
        frames.write_pcap(directory / f"{name}.pcap", list(made()))
