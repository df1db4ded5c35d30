"""What subjects measure with, on the simulated host."""

import os
import pathlib
import shutil
import statistics
import sys
import time

PROJECT = pathlib.Path(__file__).resolve().parents[2]
REGISTRY = pathlib.Path("/etc/tarnwell/kiv.users")
CONFIGURATION = pathlib.Path("/etc/tarnwell/kiv.conf")
PASSWORDS = pathlib.Path("/etc/passwd")
GROUPS = pathlib.Path("/etc/group")
FIRST_UID = 20000
ERRORS = "/tmp/bench-errors"  # standard error of the last run


class Account:
    """The account of that number, its user id and its network of four addresses."""

    def __init__(self, number):
        self.name = f"u{number:06}"
        self.uid = FIRST_UID + number
        self.home = f"/home/{self.name}"
        base = (100 << 24) + (64 << 16) + 4 * (number + 1)
        self.network, self.host_end, self.container_end = (
            ".".join(str((base + i) >> shift & 255) for shift in (24, 16, 8, 0)) for i in (0, 1, 2))


class Bench:
    def __init__(self, build, rounds=None, quick=False):
        self.build = pathlib.Path(build)
        self.kivctl = str(self.build / "bin/kivctl")
        self.kiv_run = str(self.build / "bin/kiv-run")
        self.kiv_refresh = str(self.build / "bin/kiv-refresh")
        self.quick = quick
        self._rounds = rounds
        # as after an administrator's login: nothing of the caller's environment
        self.environment = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8"}
        CONFIGURATION.parent.mkdir(exist_ok=True)
        CONFIGURATION.write_text("")
        REGISTRY.write_text("")
        self._passwords, self._groups = PASSWORDS.read_text(), GROUPS.read_text()

    @staticmethod
    def take_priority():
        """A real-time priority where it may be had: what else the machine does then hardly counts. True when it was."""
        try:
            os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
        except PermissionError:
            return False
        return True

    @staticmethod
    def end_priority():
        os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))

    def floor(self, name):
        """A program of bench/floor."""
        return str(self.build / "bench" / name)

    def tool(self, name):
        """A program of the machine's; None where it is not installed."""
        return shutil.which(name, path=self.environment["PATH"])

    def rounds(self, usual, quick=2):
        return self._rounds or (quick if self.quick else usual)

    def say(self, text):
        """Progress; standard output belongs to the results."""
        print(text, file=sys.stderr, flush=True)

    def use_sample_configuration(self):
        CONFIGURATION.write_text((PROJECT / "dist/kiv.conf").read_text())

    def make_accounts(self, count, homes=True):
        """Registry, password and group file with that many accounts behind the system's own; the old ones go."""
        accounts = [Account(number) for number in range(count)]
        PASSWORDS.write_text(self._passwords + "".join(
            f"{a.name}:x:{a.uid}:{a.uid}:Customer number {a.uid}:{a.home}:/bin/bash\n" for a in accounts))
        GROUPS.write_text(self._groups + "".join(f"{a.name}:x:{a.uid}:\n" for a in accounts))
        REGISTRY.write_text("".join(f"{a.name} net={a.network}/30\n" for a in accounts))
        for account in accounts if homes else []:
            self.make_home(account)
        return accounts

    @staticmethod
    def make_home(account):
        for directory in (account.home, account.home + "/tmp"):
            os.makedirs(directory, exist_ok=True)
            os.chown(directory, account.uid, account.uid)

    def run(self, command, check=True, env=None):
        """Wall time of one run in seconds. Output is thrown away; with `check` a failure ends the measurement.
        Spawned without copying this process, so that its size does not count."""
        words = [str(word) for word in command]
        pathlib.Path(ERRORS).unlink(missing_ok=True)  # crun gives its standard error to the container's user
        actions = [(os.POSIX_SPAWN_OPEN, 0, "/dev/null", os.O_RDONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 2, ERRORS, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)]
        begin = time.perf_counter()
        process = os.posix_spawnp(words[0], words, env or self.environment, file_actions=actions)
        _, status = os.waitpid(process, 0)
        taken = time.perf_counter() - begin
        if check and status != 0:
            text = pathlib.Path(ERRORS).read_text(errors="replace")
            raise RuntimeError(f"{words} ended with {os.waitstatus_to_exitcode(status)}: {text}")
        return taken

    def interleaved(self, variants, rounds, before=None, after=None):
        """{name: [seconds]} of each variant's runs: all of them in turn, in a changing order, so that what else the
        machine does meets all alike. A variant is a command, or a function that gives the seconds; None is left out.
        `before` and `after` are called with its name around each run and are not measured. One round warms up."""
        names = [name for name, variant in variants.items() if variant is not None]
        taken = {name: [] for name in names}
        for turn in range(rounds + 1):
            for name in names[turn % len(names):] + names[:turn % len(names)]:
                if before:
                    before(name)
                variant = variants[name]
                seconds = variant() if callable(variant) else self.run(variant)
                if after:
                    after(name)
                if turn > 0:
                    taken[name].append(seconds)
        return taken

    @staticmethod
    def medians(taken):
        """{name: median of the milliseconds} of what interleaved() gave."""
        return {name: statistics.median(seconds) * 1e3 for name, seconds in taken.items()}

    @staticmethod
    def ratio(taken, name, other):
        """How often `name` takes the time of `other`: the median over pairs of runs that stood next to each other, so
        that a machine that becomes slower half-way changes nothing."""
        return statistics.median(a / b for a, b in zip(taken[name], taken[other]))

    def peak_memory(self, command, check=True):
        """Of one run, in KiB. Through time(1), which is small: the peak of a process counts what it was forked from."""
        measured = pathlib.Path("/tmp/peak-memory")
        self.run(["/usr/bin/time", "--quiet", "-f", "%M", "-o", measured, *command], check)
        return int(measured.read_text())
