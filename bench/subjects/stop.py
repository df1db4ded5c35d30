"""stop of a container without processes, on a quiet host and on one with 5,000 processes."""

import contextlib
import subprocess

from frame.containers import Containers
from frame.report import Table

WAYS = ("kivctl", "floor", "script")
PROCESSES = 5000


@contextlib.contextmanager
def idle_processes(bench, count):
    with subprocess.Popen([bench.floor("idle"), str(count)], stdout=subprocess.PIPE) as idle:
        idle.stdout.readline()
        yield
        idle.kill()


def row(bench, containers, what, rounds):
    account = bench.make_accounts(1)
    stop = {"kivctl": containers.stop_kivctl, "floor": containers.stop_floor, "script": containers.stop_script}

    def start(name):
        containers.wait_for_network_end()
        (containers.start_script if name == "script" else containers.start_kivctl)(account)

    taken = bench.interleaved({name: (lambda way=way: way(account)) for name, way in stop.items()}, rounds, before=start)
    wall = bench.medians(taken)
    return [what, *(wall[name] for name in WAYS), bench.ratio(taken, "kivctl", "floor"),
            bench.ratio(taken, "script", "kivctl")]


def measure(bench):
    containers = Containers(bench)
    rounds = bench.rounds(31)
    rows = [row(bench, containers, "a quiet host", rounds)]
    count = 100 if bench.quick else PROCESSES
    with idle_processes(bench, count):
        rows.append(row(bench, containers, f"{count} more processes", rounds))
    return [Table("stop", "`kivctl stop` of a container without processes",
                  ["on", *WAYS, "kivctl / floor", "script / kivctl"], rows,
                  f"Medians of {rounds} runs each. The scan looks at three namespaces of every "
                  "process; `ip netns pids` of the script at one.")]
