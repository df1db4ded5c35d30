"""goals: every figure that has a target, with the target beside it, on hosts with up to 3,000 accounts."""

import ctypes
import functools
import os
import pathlib
import statistics
import subprocess
import time

from frame import slices
from frame.containers import Containers
from frame.host import PASSWORDS, PROJECT, REGISTRY
from frame.report import Table
from . import exec as entering
from . import login
from . import startup
from . import stop as stopping

QUICK_TOOLS = pathlib.Path("/tmp/bench-quick-tools")
RUNTIME = pathlib.Path("/run/kiv")
ALL_ACCOUNTS = PROJECT / "dist/systemd/all-accounts"
KINDS = ("net", "ipc", "mnt")
MS_BIND = 4096
LIBC = ctypes.CDLL(None, use_errno=True)


def row(what, figure, target, unit):
    return [what, f"{figure:.2f} {unit}", f"{target:g} {unit}", "yes" if figure <= target else "no"]


def limit(what, figure, unit):
    """A figure without a target: below it no program could be, which a row above is to be read with."""
    return [f"… limit: {what}", f"{figure:.2f} {unit}", "", ""]


def quick_tools(bench):
    """An environment in which host tools exit at once: what is left of a start is kivctl's and the kernel's."""
    QUICK_TOOLS.mkdir(exist_ok=True)
    for name in ("ip", "iptables", "sysctl"):
        link = QUICK_TOOLS / name
        link.unlink(missing_ok=True)
        link.symlink_to(bench.floor("true"))
    return bench.environment | {"PATH": f"{QUICK_TOOLS}:{bench.environment['PATH']}"}


def pretend_running(first, accounts):
    """The namespace files of `accounts`, bound to the namespaces of `first`: as many mounts as they had running."""
    for account in accounts:
        for kind in KINDS:
            target = RUNTIME / f"{account.name}@{kind}"
            target.touch()
            source = RUNTIME / f"{first.name}@{kind}"
            if LIBC.mount(os.fsencode(source), os.fsencode(target), None, MS_BIND, None) != 0:
                raise OSError(ctypes.get_errno(), f"cannot bind {target}")


def take_away(accounts):
    for account in accounts:
        for kind in KINDS:
            path = RUNTIME / f"{account.name}@{kind}"
            if LIBC.umount2(os.fsencode(path), 2) == 0:
                path.unlink()


def one_more(bench, containers, count, quick):
    """Ratio of kivctl to the floor, for the start of one account beside `count` that run."""
    accounts = bench.make_accounts(count + 2)
    first, one = accounts[0], accounts[-1]
    bench.run([bench.kivctl, "start", first.name], env=quick)
    pretend_running(first, accounts[1:-1])
    registry = REGISTRY.read_text()

    def stop(_name):
        take_away([one])
        REGISTRY.write_text(registry)

    taken = bench.interleaved({"kivctl": lambda: bench.run([bench.kivctl, "start", one.name], env=quick),
                               "floor": lambda: containers.start_floor([one], quick)},
                              bench.rounds(21 if count < 1000 else 9), after=stop)
    all_running = None
    if count:
        REGISTRY.write_text("".join(f"{a.name} net={a.network}/30\n" for a in accounts[:-1]))
        times = [bench.run([bench.kivctl, "start", "-a"], env=quick) for _ in range(bench.rounds(11 if count < 1000 else 3))]
        all_running = statistics.median(times)
    take_away(accounts)
    return bench.ratio(taken, "kivctl", "floor"), all_running


def with_running(bench, containers):
    quick = quick_tools(bench)
    rows, again = [], []
    targets = {0: (1.3, None), 300: (1.4, 0.06), 1000: (1.6, 0.3), 3000: (1.8, 1.5)}
    for count, (ratio, seconds) in list(targets.items())[:2 if bench.quick else 4]:
        bench.say(f"goals: {count} containers")
        own, all_running = one_more(bench, containers, count, quick)
        rows.append(row(f"start of one more, tools that exit at once, {count} run", own, ratio, "× floor"))
        if seconds is not None:
            again.append(row(f"start -a, all of {count} run", all_running, seconds, "s"))
    return again + rows


def cost_of_each(bench, containers, count, rounds):
    """{floor, kivctl: seconds for each of `count` accounts}. Every second round takes them in the other order, so that
    a machine that becomes slower counts for both alike."""
    bench.say(f"goals: start -a of {count} accounts, kivctl and floor")
    accounts = bench.make_accounts(count)
    ways = {"floor": Containers.start_floor, "kivctl": Containers.start_kivctl}
    taken = {name: [] for name in ways}
    for turn in range(rounds):
        for name in list(ways)[::-1 if turn % 2 else 1]:
            taken[name].append(start_and_stop(containers, ways[name], accounts))
    return {name: statistics.mean(seconds) / count for name, seconds in taken.items()}


def after_boot(bench, containers):
    """How the cost of an account grows."""
    few, many = 10, 20 if bench.quick else 1000
    of_few, of_many = (cost_of_each(bench, containers, *size) for size in ((few, bench.rounds(40)), (many, 4)))
    return [row(f"start -a after boot, an account of {many} over one of {few}", of_many["kivctl"] / of_few["kivctl"],
                round(of_many["floor"] / of_few["floor"] * 1.05, 2), "×")]


def use_all_processors():
    """Several at once are for hosts with several. Gives the ones that were used."""
    before = os.sched_getaffinity(0)
    os.sched_setaffinity(0, range(os.cpu_count()))
    return before


def start_and_stop(containers, start, accounts):
    """How long the start takes."""
    seconds = start(containers, accounts)
    containers.stop_floor(accounts)
    containers.wait_for_network_end()
    return seconds


def unit(bench, containers):
    """kivctl.service's helper against kivctl itself, then at shutdown with a process in each container. Without a
    priority: several programs that have one would take all processors from the kernel's own threads."""
    count = 8 if bench.quick else 64
    bench.say(f"goals: {count} accounts by the unit")
    accounts = bench.make_accounts(count)
    bench.end_priority()
    one_processor = use_all_processors()
    at_boot = [ALL_ACCOUNTS, "start", "--program", bench.kivctl]
    ways = {"unit": lambda _containers, _accounts: bench.run(at_boot), "start -a": Containers.start_kivctl,
            "floor, four": Containers.start_floor_at_once, "floor": Containers.start_floor}
    taken = bench.interleaved({name: functools.partial(start_and_stop, containers, way, accounts)
                               for name, way in ways.items()}, bench.rounds(4, quick=1))
    bench.run(at_boot)
    residents = [subprocess.Popen(["nsenter", *entering.namespaces(a), "sleep", "1000"]) for a in accounts]
    time.sleep(1)
    stopped = bench.run([ALL_ACCOUNTS, "stop", "--program", bench.kivctl])
    os.sched_setaffinity(0, one_processor)
    bench.take_priority()
    for resident in residents:
        resident.wait()
    containers.wait_for_network_end()
    return [row(f"start of {count} accounts by kivctl.service, over kivctl start -a",
                bench.ratio(taken, "unit", "start -a"), 0.5, "×"),
            limit("the floor, four at once over one after the other", bench.ratio(taken, "floor, four", "floor"), "×"),
            row(f"stop of {count} accounts with a process each by kivctl.service, for 1,000", stopped / count * 1000,
                120, "s"),
            row("the same for 3,000", stopped / count * 3000, 300, "s")]


def exec_commands(bench, account):
    entering.save_filter(bench, account)
    PASSWORDS.write_text(PASSWORDS.read_text().replace(":/bin/bash\n", f":{entering.SHELL}\n"))
    cgroup = entering.cgroup(account)
    words = [cgroup, account.name, entering.FILTER, account.uid, account.uid, account.home, entering.SHELL]
    return {"kivctl exec": ["/usr/sbin/kivctl", "exec", account.name],
            "kiv-run true": ["/usr/sbin/kiv-run", account.name, "true"],
            "floor": [bench.floor("exec"), *words],
            "loaded floor": [bench.floor("exec_loaded"), *words],
            "sh, nsenter, setpriv": entering.with_cgroup(cgroup, entering.nsenter(account)),
            "nsenter -S -G": entering.nsenter_user(account)}


def exec_rows(bench):
    accounts = bench.make_accounts(2)
    bench.run([bench.kivctl, "start", accounts[0].name])
    commands = exec_commands(bench, accounts[0])
    least = "the floor, with kivctl's libraries, locale and empty bounding set"
    rows = []
    for language in ("C", "C.UTF-8"):
        bench.environment["LANG"] = language
        taken = bench.interleaved(commands, bench.rounds(300), before=lambda name: bench.run(commands["floor"]))
        rows.append(row(f"exec just after another, LANG={language}", bench.ratio(taken, "kivctl exec", "floor"), 1.3,
                        "× floor"))
        rows.append(limit(least, bench.ratio(taken, "loaded floor", "floor"), "× floor"))
        rows += [row(f"the same, over {peer}", bench.ratio(taken, "kivctl exec", peer), 1, "×")
                 for peer in ("sh, nsenter, setpriv", "nsenter -S -G")]
        rows.append(limit(least, bench.ratio(taken, "loaded floor", "nsenter -S -G"), "×"))
    rows.append(row("kiv-run of a command, over exec", bench.ratio(taken, "kiv-run true", "kivctl exec"), 1.1, "×"))
    return rows + while_starting(bench, {name: commands[name] for name in ("kivctl exec", "floor")})


def while_starting(bench, commands):
    """exec and its floor for the first account while the others are started, without a priority: each is to have its
    turn."""
    bench.end_priority()
    one_processor = use_all_processors()
    pause = lambda _name: time.sleep(entering.PAUSE)  # noqa: E731
    alone = bench.interleaved(commands, bench.rounds(100), before=pause)
    bench.make_accounts(6 if bench.quick else 200)
    PASSWORDS.write_text(PASSWORDS.read_text().replace(":/bin/bash\n", f":{entering.SHELL}\n"))
    beside = {name: [] for name in commands}
    with subprocess.Popen([bench.kivctl, "start", "-a"], env=bench.environment, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL) as start:
        while start.poll() is None:
            for name, command in commands.items():
                pause(name)
                beside[name].append(bench.run(command))
    bench.take_priority()
    os.sched_setaffinity(0, one_processor)
    bench.run([bench.kivctl, "stop", "-a"])
    # means: the kernel lets a move into a cgroup wait until its clock's next tick, every 4 ms, and a median would jump
    # from one tick to another
    slower = {name: statistics.mean(beside[name]) / statistics.mean(alone[name]) for name in commands}
    return [row("exec while start -a works, over exec alone", slower["kivctl exec"], 1, "×"),
            limit("the floor while start -a works, over the floor alone", slower["floor"], "×")]


def last_of_many(bench):
    """exec of the last of 10,000 users over the first one."""
    count = 100 if bench.quick else 10000
    accounts = bench.make_accounts(count, homes=False)
    commands = {}
    for name, account in (("first", accounts[0]), ("last", accounts[-1])):
        bench.make_home(account)
        bench.run([bench.kivctl, "start", account.name])
        commands[name] = ["/usr/sbin/kivctl", "exec", account.name]
    PASSWORDS.write_text(PASSWORDS.read_text().replace(":/bin/bash\n", f":{entering.SHELL}\n"))
    taken = bench.interleaved(commands, bench.rounds(200), before=lambda name: bench.run(commands["first"]))
    for account in (accounts[0], accounts[-1]):
        bench.run([bench.kivctl, "stop", account.name])
    more = statistics.median(last - first for first, last in zip(taken["first"], taken["last"]))
    return row(f"exec of the last of {count} users, over the first", more * 1e3, 1, "ms")


def login_rows(bench):
    bench.say("goals: ssh")
    taken = login.measured(bench)
    if not taken:
        return []
    part, error = login.part_of_container(taken)
    exec_alone = statistics.mean(taken["kivctl exec"])
    return [row(f"the container's part of a command by ssh, over exec (standard error {error / exec_alone:.2f})",
                part / exec_alone, 1, "×"),
            limit("the floor's part: a session that joins cgroup and namespaces and installs the filter",
                  login.part_of_container(taken, "ssh, the floor")[0] / exec_alone, "×")]


def startup_rows(bench):
    rows = []
    for language, target in (("C", 1.12), ("C.UTF-8", 1.2)):
        bench.environment["LANG"] = language
        taken = bench.interleaved({"kivctl -v": ["/usr/sbin/kivctl", "-v"], "/bin/true": ["/bin/true"],
                                   "loaded": [bench.floor("true_loaded")]}, bench.rounds(200))
        rows.append(row(f"kivctl -v as installed, LANG={language}", bench.ratio(taken, "kivctl -v", "/bin/true"), target,
                        "× /bin/true"))
        rows.append(limit("its libraries and locale, and nothing else", bench.ratio(taken, "loaded", "/bin/true"),
                          "× /bin/true"))
    return rows


def stop_row(bench, containers):
    count = 100 if bench.quick else 2000
    with stopping.idle_processes(bench, count):
        ratio = stopping.row(bench, containers, "", bench.rounds(41))[4]
    return row(f"stop on a host with {count} processes", ratio, 0.85, "× floor with stat")


def status_rows(bench):
    rows = []
    real = slices.prepare()
    for count in (10,) if bench.quick else (1000, 10000):
        slices.make(bench.make_accounts(count, homes=False), real)
        taken = bench.interleaved({"kivctl": [bench.kivctl, "status", "-a"],
                                   "floor": [bench.floor("status"), REGISTRY, PASSWORDS]}, bench.rounds(11))
        rows.append(row(f"status -a, {count} accounts", bench.ratio(taken, "kivctl", "floor"), 1.05, "× floor"))
    return rows


def measure(bench):
    startup.installed(bench)
    containers = Containers(bench)
    rows = with_running(bench, containers)
    rows += after_boot(bench, containers)
    rows += unit(bench, containers)
    rows += exec_rows(bench)
    rows += login_rows(bench)
    rows.append(last_of_many(bench))
    rows.append(stop_row(bench, containers))
    rows += startup_rows(bench)
    rows += status_rows(bench)  # last: it may cover the cgroups
    return [Table("goals", "Every figure with its target", ["what", "figure", "at most", "reached"], rows,
                  "The other containers of a host are only namespace files, bound to the namespaces of one container: they "
                  "have as many mounts as real ones. The floor reads no mount table. A limit belongs to the row "
                  "above it: no program that does the same can take less, apart from what two measurements differ by.")]
