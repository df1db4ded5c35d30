"""login: a command by ssh into a container, beside one of the same user without. Needs openssh-server."""

import os
import pathlib
import shutil
import statistics
import time

from frame.host import CONFIGURATION, PASSWORDS
from frame.report import Table
from . import exec as entering

WORK = pathlib.Path("/tmp/bench-ssh")
ROUNDS = 100  # the difference is small compared with the time of ssh itself
MODULE, FLOOR, NEITHER = "127.0.0.1", "127.0.0.2", "127.0.0.3"
# Where a client comes from decides what its session is. Not its name: sshd lets each name wait for another time, some
# milliseconds, in each authentication.
PAM = f"""auth required pam_permit.so
account [success=ignore default=1] pam_succeed_if.so quiet rhost = {MODULE}
account required {{module}}
account required pam_permit.so
session [success=ignore default=1] pam_succeed_if.so quiet rhost = {MODULE}
session required {{module}}
session [success=ignore default=1] pam_succeed_if.so quiet rhost = {FLOOR}
session required {{floor}}
session required pam_permit.so
"""
SERVER = """Port 22
ListenAddress 127.0.0.1
HostKey {work}/host
UsePAM yes
PasswordAuthentication no
AuthorizedKeysFile {work}/key.pub
StrictModes no
PidFile {work}/pid
"""


def serve(bench, floor):
    """A server in front of the module and of the `floor`, and the words of a client that logs in."""
    WORK.mkdir()
    pathlib.Path("/run/sshd").mkdir(exist_ok=True)
    for name in ("host", "key"):
        bench.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", WORK / name])
    module = bench.build / "lib/security/pam_kiv.so"
    pathlib.Path("/etc/pam.d/sshd").write_text(PAM.format(module=module, floor=" ".join(str(word) for word in floor)))
    (WORK / "config").write_text(SERVER.format(work=WORK))
    bench.run(["/usr/sbin/sshd", "-f", WORK / "config"])
    while not (WORK / "pid").exists():  # written when it listens
        time.sleep(0.01)
    return ["ssh", "-F", "none", "-i", WORK / "key", "-o", "StrictHostKeyChecking=no", "-o", "UserKnownHostsFile=/dev/null",
            "-o", "LogLevel=ERROR", "-o", "KexAlgorithms=curve25519-sha256"]  # the quickest: most of the time is this


def measured(bench):
    """{name: [seconds]} of a command in each way, in turns; nothing without openssh-server. Leaves the host's configuration
    as it was."""
    if not os.path.exists("/usr/sbin/sshd") or shutil.which("ssh") is None:
        bench.say("bench/run: no openssh-server here")
        return {}
    before = CONFIGURATION.read_text()
    bench.use_sample_configuration()
    account, plain = bench.make_accounts(2)
    bench.run([bench.kivctl, "start", "-a"])
    entering.save_filter(bench, account)
    PASSWORDS.write_text(PASSWORDS.read_text().replace(f"{plain.home}:/bin/bash", f"{plain.home}:{entering.SHELL}"))
    client = serve(bench, [bench.floor("session.so"), entering.cgroup(account), account.name, entering.FILTER])
    by_ssh = {name: [*client, "-b", origin, f"{account.name}@127.0.0.1", "true"] for name, origin in (
        ("ssh, without a container", NEITHER), ("ssh, into a container", MODULE), ("ssh, the floor", FLOOR))}
    taken = bench.interleaved({**by_ssh, "kivctl exec": [bench.kivctl, "exec", plain.name],
                               "kiv-run": [bench.kiv_run, account.name, "true"], "/bin/true": ["/bin/true"]},
                              bench.rounds(ROUNDS))
    bench.run([bench.kivctl, "stop", "-a"])
    CONFIGURATION.write_text(before)
    return taken


def part_of_container(taken, way="ssh, into a container"):
    """How much longer an ssh into a container takes, and the standard error of that, in seconds. A mean: the waits in it
    are of whole ticks of the kernel's clock, and a median would jump from one tick to another."""
    more = [into - without for into, without in zip(taken[way], taken["ssh, without a container"])]
    return statistics.mean(more), statistics.stdev(more) / len(more) ** 0.5


def measure(bench):
    taken = measured(bench)
    if not taken:
        return []
    rows = [[name, statistics.mean(seconds) * 1e3] for name, seconds in taken.items()]
    part, error = part_of_container(taken)
    floor, _ = part_of_container(taken, "ssh, the floor")
    rows += [["the container's part of ssh", part * 1e3], ["its standard error", error * 1e3],
             ["the floor's part of ssh", floor * 1e3]]
    return [Table("login", "A command by ssh", ["what", "ms"], rows,
                  "Means. Target: the container's part takes at most as long as exec.")]
