"""Runs a script on a new simulated host."""

import os
import pathlib
import sys

PROJECT = pathlib.Path(__file__).resolve().parents[2]


def ensure_host(script):
    """Executes the same script on a simulated host, unless it already runs on one."""
    if os.environ.get("FAULTS_HOST") == "simulated":
        return
    os.environ["FAULTS_HOST"] = "simulated"
    os.environ.setdefault("KIVCTL", str(PROJECT / "build/bin/kivctl"))
    harness = str(PROJECT / "tests/host/simulated-host")
    os.execv(harness, [harness, "--", "python3", "-B", os.path.realpath(script), *sys.argv[1:]])
