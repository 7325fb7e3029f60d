"""Where shared tables lie."""

import os
import pathlib

DIRECTORY = pathlib.Path(os.environ.get("OVIX_TABLES_DIR") or (
    "/dev/shm/ovix" if os.geteuid() == 0 else f"/dev/shm/ovix-{os.geteuid()}"))


def path(tables: str) -> pathlib.Path:
    return DIRECTORY / tables


def remove(tables: str) -> None:
    for file in (path(tables), DIRECTORY / f"{tables}:lock"):
        file.unlink(missing_ok=True)
