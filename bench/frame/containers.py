"""Starting and stopping containers in three ways that take turns: kivctl, the floor and a shell script."""

import os
import pathlib
import subprocess
import time

from .host import CONFIGURATION, PROJECT, REGISTRY

LIST = pathlib.Path("/tmp/bench-accounts")
PATHS = pathlib.Path("/tmp/bench-paths")
TIMES = pathlib.Path("/tmp/bench-times")
OWN = pathlib.Path("/tmp/bench-own-time")
PEERS = PROJECT / "bench/peers"


def sections():
    """(section, item) for each item of the configuration."""
    section = ""
    for line in CONFIGURATION.read_text().splitlines():
        if line.lstrip().startswith("#") or not line.strip():
            continue
        if line[0] not in " \t":
            section = line.split()[0]
        else:
            yield section, line.strip()


class Containers:
    def __init__(self, bench):
        self.bench = bench
        bench.use_sample_configuration()
        # the sample's binds and covers that exist on this machine
        paths = [f"bind {item}" for section, item in sections() if section == "bind" and os.path.exists(item)]
        paths += [f"cover {item}" for section, item in sections()
                  if section == "empty" and item.startswith("/proc/") and os.path.exists(item)]
        PATHS.write_text("".join(line + "\n" for line in paths))
        self.prepare_host()

    def prepare_host(self):
        """What only the first start of a boot does is done."""
        account = self.bench.make_accounts(1)[0]
        self.bench.run([self.bench.kivctl, "start", account.name])
        self.bench.run([self.bench.kivctl, "stop", account.name])
        self.wait_for_network_end()

    def choose(self, accounts):
        LIST.write_text("".join(f"{a.name} {a.uid} {a.home} {a.host_end} {a.container_end}\n" for a in accounts))
        REGISTRY.write_text("".join(f"{a.name} net={a.network}/30\n" for a in accounts))

    def start_kivctl(self, accounts, environment=None):
        word = "-a" if len(accounts) > 1 else accounts[0].name
        return self.bench.run([self.bench.kivctl, "start", word], env=environment)

    def start_floor(self, accounts, environment=None):
        self.choose(accounts)
        return self.bench.run([self.bench.floor("start"), LIST, PATHS, TIMES], env=environment)

    def start_floor_at_once(self, accounts, workers=4):
        """As kivctl.service does: several accounts are worked on at once, each worker has its own."""
        begin = time.perf_counter()
        started = []
        for worker in range(workers):
            self.choose(accounts[worker::workers])
            part = pathlib.Path(f"{LIST}-{worker}")
            LIST.rename(part)
            started.append(subprocess.Popen([self.bench.floor("start"), part, PATHS, f"{TIMES}-{worker}"],
                                            env=self.bench.environment, stdout=subprocess.DEVNULL))
        if any(process.wait() != 0 for process in started):
            raise RuntimeError("the floor cannot start several at once")
        taken = time.perf_counter() - begin
        self.choose(accounts)
        return taken

    def start_script(self, accounts):
        return sum(self.bench.run([PEERS / "start.sh", a.name, a.uid, a.home, a.host_end, a.container_end, PATHS])
                   for a in accounts)

    def stop_kivctl(self, accounts):
        return self.bench.run([self.bench.kivctl, "stop", "-a" if len(accounts) > 1 else accounts[0].name])

    def stop_floor(self, accounts):
        self.choose(accounts)
        return self.bench.run([self.bench.floor("stop"), LIST])

    def stop_script(self, accounts):
        return sum(self.bench.run([PEERS / "stop.sh", a.name, a.host_end]) for a in accounts)

    def wait_for_network_end(self):
        """The kernel takes a namespace's interfaces away some time after the namespace."""
        while any(name.startswith("veth-") for name in os.listdir("/sys/class/net")):
            time.sleep(0.005)
        time.sleep(0.02)  # the rest of its clean-up must not slow the next run
