"""What the tests that run in the emulated machine share."""

import pathlib
import re
import subprocess
import time

HERE = pathlib.Path(__file__).resolve().parent
DEADLINE = 180  # emulated processors are slow


def run(*command, check: bool = True, **keys) -> subprocess.CompletedProcess:
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **keys)
    if check and done.returncode != 0:
        journal = subprocess.run(["journalctl", "-n", "30", "--no-pager"], capture_output=True, text=True, check=False)
        raise AssertionError(f"{command}: {done.stdout[-2000:]}{done.stderr[-2000:]}\n{journal.stdout}")
    return done


def shell(line: str) -> str:
    return run("bash", "-c", line, cwd=HERE).stdout


def until(what: str, met, known=lambda: "") -> None:
    end = time.monotonic() + DEADLINE
    while not met():
        if time.monotonic() > end:
            raise AssertionError(f"not within {DEADLINE} s: {what}\n{known()}")
        time.sleep(0.2)


def block_after(document: str, words: str) -> list[str]:
    """The lines of the first code block behind these words."""
    text = (HERE / document).read_text()
    found = re.search(r"```\w*\n(.*?)```", text[text.index(words):], re.DOTALL)
    return found.group(1).splitlines()


def shown(unit: str, name: str) -> str:
    return run("systemctl", "show", "--value", "-p", name, unit).stdout.strip()
