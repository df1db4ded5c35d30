"""status -a: cost per account, with a password file of as many lines."""

from frame import slices
from frame.host import PASSWORDS, PROJECT, REGISTRY
from frame.report import Plot, Table

COUNTS = (10, 100, 1000, 10000)
WAYS = ("kivctl", "floor", "script")
SCRIPT = PROJECT / "bench/peers/status.sh"


def measure(bench):
    rows, lines = [], {name: [] for name in WAYS}
    real = slices.prepare()
    for count in COUNTS[:2] if bench.quick else COUNTS:
        bench.say(f"status -a: {count} accounts")
        slices.make(bench.make_accounts(count, homes=False), real)
        taken = bench.interleaved({"kivctl": [bench.kivctl, "status", "-a"],
                                   "floor": [bench.floor("status"), REGISTRY, PASSWORDS],
                                   "script": [SCRIPT]}, bench.rounds(31 if count < 1000 else 7))
        cost = {name: milliseconds * 1e3 / count for name, milliseconds in bench.medians(taken).items()}
        rows.append([count, *(cost[name] for name in WAYS), bench.ratio(taken, "kivctl", "floor"),
                     bench.ratio(taken, "script", "kivctl")])
        for name in WAYS:
            lines[name].append([count, cost[name]])
    return [Table("status", "`kivctl status -a`, cost per account in microseconds",
                  ["accounts", *WAYS, "kivctl / floor", "script / kivctl"], rows,
                  "Every account has a container and a cgroup with figures. The start of the program is part of "
                  "each run: with ten accounts it is most of it. The figures are "
                  + ("the kernel's own." if real else "files in memory: this kernel has no such controllers to offer.")),
            Plot("status", "status -a: cost per account", "accounts", "microseconds per account", lines)]
