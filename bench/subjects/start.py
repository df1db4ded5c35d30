"""start: one account, kivctl's own processor time, and the cost per account with many."""

import statistics

from frame.containers import OWN, TIMES, Containers
from frame.report import Plot, Table

COUNTS = (1, 10, 100, 300, 1000)
KINDS = ("kivctl", "floor", "script")


def one_account(bench, containers):
    account = bench.make_accounts(1)
    start = {"kivctl": containers.start_kivctl, "floor": containers.start_floor, "script": containers.start_script}

    def stop(name):
        (containers.stop_script if name == "script" else containers.stop_kivctl)(account)
        containers.wait_for_network_end()

    taken = bench.interleaved({name: (lambda way=way: way(account)) for name, way in start.items()},
                          bench.rounds(30), after=stop)
    wall = bench.medians(taken)
    return Table("start", "`kivctl start` of one account, wall time",
                 ["what", *KINDS, "kivctl / floor", "script / kivctl"],
                 [["start", *(wall[name] for name in KINDS), bench.ratio(taken, "kivctl", "floor"),
                   bench.ratio(taken, "script", "kivctl")]],
                 f"Medians of {bench.rounds(30)} runs each. The floor builds no overlay layer; "
                 "kivctl builds that of `dist/kiv.conf`.")


def own_time(bench, containers):
    """What the two processes of a start took: each writes it when it ends, from a library that is loaded into them."""
    account = bench.make_accounts(1)
    environment = bench.environment | {"LD_PRELOAD": bench.floor("libown_time.so"), "KIV_OWN_TIME": str(OWN)}
    own = {"kivctl": ([], []), "floor": ([], [])}
    start = {"kivctl": lambda: containers.start_kivctl(account, environment),
             "floor": lambda: containers.start_floor(account, environment)}

    def stop(name):
        for line, times in zip(OWN.read_text().splitlines(), own[name]):
            times.append(int(line.split()[0]) / 1e6)
        OWN.write_text("")
        containers.stop_kivctl(account)
        containers.wait_for_network_end()

    OWN.write_text("")
    wall = bench.medians(bench.interleaved(start, bench.rounds(30), after=stop))
    rows = []
    for name, times in own.items():
        child, parent = map(statistics.median, times)
        rows.append([name, parent, parent / wall[name] * 100, child, child / wall[name] * 100, wall[name]])
    return Table("start_own_time", "`kivctl start`, processor time of its own",
                 ["what", "itself", "% of wall", "set-up child", "% of wall", "wall"], rows,
                 "Processor time of each process at its end, without the host tools. The set-up child builds the layer "
                 "and makes the mounts.")


def many_accounts(bench, containers):
    counts = COUNTS[:2] if bench.quick else COUNTS
    rows, parts, lines = [], [], {"kivctl": [], "floor": []}
    for count in counts:
        accounts = bench.make_accounts(count)
        times = []

        def stop(name):
            if name == "floor":
                times.append([int(word) / 1e6 / count for word in TIMES.read_text().split()])
            containers.stop_floor(accounts)
            containers.wait_for_network_end()

        bench.say(f"start -a: {count} accounts")
        taken = bench.interleaved({"kivctl": lambda: containers.start_kivctl(accounts),
                                   "floor": lambda: containers.start_floor(accounts)},
                                  bench.rounds(30 if count == 1 else 10 if count < 300 else 3 if count < 1000 else 1), after=stop)
        cost = {name: milliseconds / count for name, milliseconds in bench.medians(taken).items()}
        rows.append([count, cost["kivctl"], cost["floor"], bench.ratio(taken, "kivctl", "floor"),
                     cost["kivctl"] - cost["floor"]])
        parts.append([count, *(statistics.median(column) for column in zip(*times))])
        for name, line in lines.items():
            line.append([count, cost[name]])
    return [
        Table("start_all", "`kivctl start -a`, cost per account",
              ["accounts", "kivctl", "floor", "kivctl / floor", "difference"], rows),
        Table("start_all_parts", "What grows with the accounts, in the floor: cost per account",
              ["accounts", "ip, sysctl", "iptables", "namespaces, mounts, reads"], parts,
              "To change one rule iptables fetches all rules of the table. A new mount namespace starts as a copy of all "
              "mounts, three more for each container."),
        Plot("start_all", "start -a: cost per account", "accounts", "milliseconds per account", lines),
    ]


def measure(bench):
    containers = Containers(bench)
    return [one_account(bench, containers), own_time(bench, containers), *many_accounts(bench, containers)]
