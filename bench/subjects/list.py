"""kiv-list and kiv-check: what they take for as many accounts as status -a is measured with."""

import ctypes
import os
import subprocess
import time

from frame import slices
from frame.report import Table

COUNTS = (10, 100, 1000)
MS_BIND = 4096
PROGRAM = ("sleep", "1000")


def make_container():
    """A process in network and mount namespaces of its own."""
    process = subprocess.Popen(["unshare", "--net", "--mount", *PROGRAM])
    while os.readlink(f"/proc/{process.pid}/ns/mnt") == os.readlink("/proc/self/ns/mnt"):
        time.sleep(0.01)
    return process


def pin(accounts, container):
    """Namespaces for each, the same ones for all: how many there are does not matter."""
    libc = ctypes.CDLL(None, use_errno=True)
    for account in accounts:
        for kind in ("net", "ipc", "mnt"):
            path = slices.RUNTIME / f"{account.name}@{kind}"
            path.touch()
            if libc.mount(f"/proc/{container.pid}/ns/{kind}".encode(), os.fsencode(path), None, MS_BIND, None) != 0:
                raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()), path)


def join(container, count):
    """So many processes in its namespaces."""
    processes = [subprocess.Popen(["nsenter", f"--target={container.pid}", "--net", "--mount", *PROGRAM])
                 for _ in range(count)]
    time.sleep(1)
    return processes


def measure(bench):
    rows = []
    real = slices.prepare()
    programs = bench.build / "bin"
    bench.use_sample_configuration()
    container = make_container()
    pinned = set()
    for count in COUNTS[:1] if bench.quick else COUNTS:
        bench.say(f"kiv-list, kiv-check: {count} accounts")
        accounts = bench.make_accounts(count, homes=False)
        slices.make([account for account in accounts if account.name not in pinned], real)
        pin([account for account in accounts if account.name not in pinned], container)
        pinned |= {account.name for account in accounts}
        listing = [programs / "kiv-list", "--json"]
        # kiv-check finds that no account has a home; its exit status does not matter here
        taken = bench.interleaved({"list": listing,
                                   "check": ["sh", "-c", f"{programs}/kiv-check; :"],
                                   "host": ["sh", "-c", f"{programs}/kiv-check --host; :"],
                                   "status": [bench.kivctl, "status", "-a"]}, bench.rounds(15))
        medians = bench.medians(taken)
        processes = join(container, count)
        busy = bench.medians(bench.interleaved({"list": listing}, bench.rounds(15)))
        for process in processes:
            process.kill()
            process.wait()
        rows.append([count, medians["list"], busy["list"], medians["check"], medians["host"], medians["status"],
                     bench.ratio(taken, "list", "status")])
    container.kill()
    return [Table("list", "`kiv-list --json` and `kiv-check` of all accounts, in milliseconds",
                  ["accounts", "kiv-list --json", "with a process each", "kiv-check", "kiv-check --host",
                   "kivctl status -a", "kiv-list --json / status -a"], rows,
                  "Every account has namespaces, and a cgroup with figures; the configuration is the sample.")]
