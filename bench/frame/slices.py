"""Accounts that look as if they were running: a namespace file and a cgroup with figures each."""

import os
import pathlib
import subprocess

ROOT = pathlib.Path("/sys/fs/cgroup")
SLICES = ROOT / "user.slice"
RUNTIME = pathlib.Path("/run/kiv")
FIGURES = {"pids.current": "14", "pids.max": "100", "memory.current": "104857600", "memory.high": "max"}


def has_controllers():
    controllers = ROOT / "cgroup.controllers"
    return controllers.exists() and {"pids", "memory"} <= set(controllers.read_text().split())


def prepare():
    """True with the kernel's own cgroups. Where its controllers are in use in another way a file system in memory
    stands for them: for kivctl and the floor alike."""
    RUNTIME.mkdir(mode=0o700, exist_ok=True)
    if has_controllers():
        SLICES.mkdir(exist_ok=True)
        for directory in (ROOT, SLICES):
            (directory / "cgroup.subtree_control").write_text("+pids +memory")
        return True
    subprocess.run(["mount", "-t", "tmpfs", "cgroups", ROOT], check=True)
    SLICES.mkdir()
    return False


def make(accounts, real):
    """What is there already stays: cgroups are slow to make."""
    for account in accounts:
        (RUNTIME / f"{account.name}@mnt").touch()
        directory = SLICES / f"user-{account.uid}.slice"
        if not directory.exists():
            os.mkdir(directory)
            for name, value in () if real else FIGURES.items():
                (directory / name).write_text(value + "\n")


def remove_files(accounts):
    for account in accounts:
        for kind in ("net", "ipc", "mnt"):
            (RUNTIME / f"{account.name}@{kind}").unlink(missing_ok=True)
