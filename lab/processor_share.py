"""A smaller processor for a process, by control groups."""

import contextlib
import os
import pathlib

ROOT = pathlib.Path("/sys/fs/cgroup")
QUOTA_US = 1000  # the least that the kernel takes: a process is stopped for as short as can be


@contextlib.contextmanager
def share_of(process: int, share: float):
    """While the body runs the process and its threads have so much of one processor; OSError where the kernel does not
    let us."""
    is_first_version = (ROOT / "cpu/cgroup.procs").exists()
    parent = ROOT / "cpu" if is_first_version else ROOT
    if not is_first_version:
        (parent / "cgroup.subtree_control").write_text("+cpu")
    period = round(QUOTA_US / share)
    group = parent / f"ovix-lab-{os.getpid()}"
    group.mkdir()
    try:
        if is_first_version:
            (group / "cpu.cfs_period_us").write_text(str(period))
            (group / "cpu.cfs_quota_us").write_text(str(QUOTA_US))
        else:
            (group / "cpu.max").write_text(f"{QUOTA_US} {period}")
        (group / "cgroup.procs").write_text(str(process))
        yield
        with contextlib.suppress(ProcessLookupError):
            (parent / "cgroup.procs").write_text(str(process))
    finally:
        with contextlib.suppress(OSError):  # it still has the process, whose end will come with the lab's
            group.rmdir()
