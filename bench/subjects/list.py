"""kiv-list and kiv-check: what they take for as many accounts as status -a is measured with."""

import ctypes
import os

from frame import slices
from frame.report import Table

COUNTS = (10, 100, 1000)
MS_BIND = 4096


def pin(accounts):
    """Namespaces for each, the same ones for all: only that they are namespaces counts."""
    libc = ctypes.CDLL(None, use_errno=True)
    for account in accounts:
        for kind, pinned in (("net", "net"), ("ipc", "ipc"), ("mnt", "ipc")):
            path = slices.RUNTIME / f"{account.name}@{kind}"
            path.touch()
            if libc.mount(f"/proc/self/ns/{pinned}".encode(), os.fsencode(path), None, MS_BIND, None) != 0:
                raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()), path)


def measure(bench):
    rows = []
    real = slices.prepare()
    programs = bench.build / "bin"
    bench.use_sample_configuration()
    pinned = set()
    for count in COUNTS[:1] if bench.quick else COUNTS:
        bench.say(f"kiv-list, kiv-check: {count} accounts")
        accounts = bench.make_accounts(count, homes=False)
        slices.make([account for account in accounts if account.name not in pinned], real)
        pin([account for account in accounts if account.name not in pinned])
        pinned |= {account.name for account in accounts}
        # kiv-check finds that no account has a home; its exit status does not matter here
        taken = bench.interleaved({"list": [programs / "kiv-list", "--json"],
                                   "check": ["sh", "-c", f"{programs}/kiv-check; :"],
                                   "host": ["sh", "-c", f"{programs}/kiv-check --host; :"],
                                   "status": [bench.kivctl, "status", "-a"]}, bench.rounds(15))
        medians = bench.medians(taken)
        rows.append([count, medians["list"], medians["check"], medians["host"], medians["status"],
                     bench.ratio(taken, "list", "status")])
    return [Table("list", "`kiv-list --json` and `kiv-check` of all accounts, in milliseconds",
                  ["accounts", "kiv-list --json", "kiv-check", "kiv-check --host", "kivctl status -a",
                   "kiv-list --json / status -a"], rows,
                  "Every account has namespaces, and a cgroup with figures; the configuration is the sample.")]
