"""Functions for a simulated host on which one account's container is started, entered and stopped repeatedly.

Everything here runs on that host (tests/host/simulated-host) and checks from outside: the mount table, the
packet rules, the runtime directory, the interfaces. Problems are returned as a list of texts.
"""

import json
import os
import pathlib
import re
import signal
import subprocess
import time

ACCOUNT = "alice"
RUNTIME = pathlib.Path("/run/kiv")
WORK = pathlib.Path("/tmp/faults")
KINDS = ("net", "ipc", "mnt")
LONGEST_RUN = 20  # seconds; a longer run counts as hanging
STATUSES = (0, 64, 71, 255)
# of kiv-run; SIGHUP, also of the command, when the terminal is lost
ENTRY_STATUSES = (0, 125, 126, 127, 128 + signal.SIGHUP, -signal.SIGHUP)
# The read-only programs and their exit statuses.
READERS = {"list": ("kiv-list", "--json"), "check": ("kiv-check", "--host", "--json")}
# further keys may be added
LISTED_KEYS = {"account", "uid", "state", "network", "host_address", "address", "interface", "processes",
               "processes_limit", "memory", "memory_limit", "since", "outdated", "old_processes"}
READER_STATUSES = {"list": (0, 1, 3, 4, 64, 71), "check": (0, 1, 2)}

# Uses every feature of the layer and the root, so that each of their calls is made.
CONFIGURATION = """hide
    /etc/shadow
    /etc/nothing-*
empty
    /var/log
    /proc/irq
allowlist /etc/ssl
    certs
bind
    /dev/null
    /etc/hostname
    /var/spool
cap_add
    CAP_NET_RAW
seccomp
    deny getcpu
"""

# First on PATH: records its descriptors, on request attaches a tracer to the set-up child, and
# executes the real tool. The shell itself checks the descriptors, without another process. A tool
# whose call matches the pattern in "hang" removes that file, so that it is the only one, and hangs.
RECORDER = """#!/bin/sh
echo "{tool} $*:" /proc/$$/fd/* >>/tmp/faults/descriptors
case "$*" in
    "link set vpeer-alice netns "*)
        if [ -e /tmp/faults/attach ]; then
            strace -o /tmp/faults/trace $(cat /tmp/faults/attach) -p "$5" >/dev/null 2>/tmp/faults/attached </dev/null &
            until grep -q attached /tmp/faults/attached 2>/dev/null; do sleep 0.005; done
        fi ;;
esac
if [ -e /tmp/faults/hang ]; then
    case "{tool} $*" in
        $(cat /tmp/faults/hang)) mv /tmp/faults/hang /tmp/faults/hangs && exec sleep 1000 ;;
    esac
fi
exec {real} "$@"
"""


class Outcome:
    """The result of a run of kivctl. A negative status is the signal that ended it."""

    def __init__(self, status, out, err, hung):
        self.status, self.out, self.err, self.hung = status, out, err, hung

    def faults(self, statuses=STATUSES):
        if self.hung:
            return [f"hung for {LONGEST_RUN} s"]
        found = []
        if self.status not in statuses:
            found.append(f"exit status {self.status}: {self.err.strip()!r}")
        for word in ("uncaught exception", "terminated without", "Sanitizer", "runtime error:"):
            if word in self.err:
                found.append(f"crash: {self.err.strip()!r}")
        return found


def own_words(errors):
    """Standard error without the line that start prints when another account's container is pinned."""
    return errors.replace("umount(kiv) failed: Device or resource busy\n", "")


def run(command, given=""):
    """Runs a command to its end in a new session, which is killed if the command hangs."""
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, errors="replace", start_new_session=True) as process:
        try:
            out, err = process.communicate(given, timeout=LONGEST_RUN)
            return Outcome(process.returncode, out, err, hung=False)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, 9)
            out, err = process.communicate()
            return Outcome(process.returncode, out, err, hung=True)


# The account's shell prints its user, its root, whether it has a network, and what it inherited.
LOOK = ("id; stat -f -c 'root %T' /; while read -r line; do echo \"route $line\"; done </proc/net/route\n"
        "echo descriptors /proc/$$/fd/*\n")


# The modes of kiv-run; the command checks its surroundings.
ENTRIES = {"run": ("-T",), "run -t": ("-t",), "run --start": ("-T", "--start")}


def words(command, account=ACCOUNT):
    """The command line of a command of kivctl, of a refresh, of a read-only program, or of a mode of kiv-run. "first" is a
    start."""
    if command in READERS:
        return [*READERS[command]]
    if command == "refresh":
        return ["kiv-refresh", account]
    if command in ENTRIES:
        return ["kiv-run", *ENTRIES[command], account, "/bin/bash", "-c", LOOK]
    return ["kivctl", "start" if command == "first" else command, account]


def statuses(command):
    """Its exit statuses, with or without a fault."""
    return ENTRY_STATUSES if command in ENTRIES else READER_STATUSES.get(command, STATUSES)


def given(command):
    """Its standard input."""
    return LOOK if command == "exec" else ""


def kivctl(command, account):
    return run(words(command, account), given(command))


def left_entries(account=ACCOUNT):
    """Processes of kiv-run, or of its command, that still exist some seconds after its end."""
    user = int(subprocess.run(["id", "-u", account], check=True, capture_output=True, text=True).stdout)
    deadline = time.monotonic() + 5
    while True:
        found = []
        for entry in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                name = (entry / "comm").read_text().strip()
                if name == "kiv-run" or entry.stat().st_uid == user:
                    found.append(f"left: {entry.name} {name}")
            except OSError:
                continue  # it has ended
        if not found or time.monotonic() > deadline:
            return found
        time.sleep(0.02)


def descriptors_too_many(looked):
    """Descriptors that the shell got in addition to its standard streams; one belongs to the check."""
    listed = re.search(r"^descriptors (.*)", looked, re.M)
    if listed and len(listed[1].split()) > 4:
        return [f"descriptors given to the shell: {listed[1]}"]
    return []


def misread(command, outcome):
    """Output of a read-only program that programs cannot parse, or that is wrong on every host."""
    if not outcome.out:
        return [] if outcome.err else ["neither output nor a message"]
    try:
        objects = json.loads(outcome.out)
    except ValueError:
        return [f"no JSON: {outcome.out!r}"]
    if command == "check":
        wrong = [one for one in objects if set(one) != {"file", "line", "severity", "message"}]
        return [f"no finding: {one}" for one in wrong]
    wrong = [one for one in objects if not LISTED_KEYS <= set(one) or one["state"] == "orphaned"]
    return [f"no account of this host: {one}" for one in wrong]


def set_up(accounts=1):
    """Creates the account, a configuration that uses every feature, and the recording tools."""
    pathlib.Path("/etc/tarnwell").mkdir(exist_ok=True)
    pathlib.Path("/etc/tarnwell/kiv.conf").write_text(CONFIGURATION)
    registry = []
    for number, name in enumerate((ACCOUNT, "bob", "carol")[:accounts]):
        subprocess.run(["useradd", "--create-home", "--shell", "/bin/bash", name], check=True)
        subprocess.run(["install", "-d", "-o", name, "-g", name, f"/home/{name}/tmp"], check=True)
        registry.append(f"{name} net=100.64.0.{4 * number + 4}/30\n")
    pathlib.Path("/etc/tarnwell/kiv.users").write_text("".join(registry))
    (WORK / "bin").mkdir(parents=True)
    for tool in ("ip", "iptables", "sysctl"):
        real = subprocess.run(["which", tool], check=True, capture_output=True, text=True).stdout.strip()
        (WORK / "bin" / tool).write_text(RECORDER.format(tool=tool, real=real))
        (WORK / "bin" / tool).chmod(0o755)
    os.environ["PATH"] = f"{os.path.dirname(os.environ['KIVCTL'])}:{WORK}/bin:{os.environ['PATH']}"


def mounts():
    """(root, mount point) of everything mounted, sorted."""
    with open("/proc/self/mountinfo", encoding="utf-8") as table:
        return sorted(tuple(line.split(" ")[3:5]) for line in table)


def rules(interface="veth-"):
    saved = subprocess.run(["iptables-save"], capture_output=True, text=True, check=True).stdout
    return [line for line in saved.splitlines() if interface in line]


def interfaces(account=ACCOUNT):
    return [name for name in (f"veth-{account}", f"vpeer-{account}") if os.path.exists(f"/sys/class/net/{name}")]


def pinned(account=ACCOUNT):
    """The kinds whose file is a mount of a namespace of that kind."""
    found = []
    for root, point in mounts():
        path, _, kind = point.partition(f"{account}@")
        if path == f"{RUNTIME}/" and re.fullmatch(kind + r":\[\d+\]", root):
            found.append(kind)
    return sorted(found)


def marks(of=None):
    """The runtime directory's attributes, the marks of interrupted runs: all, or those of an account or "@host"."""
    found = os.listxattr(RUNTIME) if RUNTIME.exists() else []
    return [mark for mark in found if of is None or mark.endswith(("." + of, f".{of}@pair"))]


def source_nat():
    """Problems with the rule that all containers share."""
    count = len(rules("-j MASQUERADE"))
    return [] if count == 1 else [f"{count} source-NAT rules"]


def wrongly_bound():
    """Namespace files that are not mounted from a namespace of their kind which only this container has."""
    wrong, users = [], {}
    for root, point in mounts():
        if point.startswith(f"{RUNTIME}/"):
            kind = point.rpartition("@")[2]
            own = f"{kind}:[{os.stat(f'/proc/self/ns/{kind}').st_ino}]" if kind in KINDS else ""
            if not re.fullmatch(kind + r":\[\d+\]", root) or root == own:
                wrong.append(f"{point} is bound to {root}")
            elif users.setdefault(root, point) != point:
                wrong.append(f"{point} is bound to {root} as {users[root]} is")
    return wrong


def host_mounts():
    """All mounts except the runtime directory, which start creates and keeps."""
    return [mount for mount in mounts() if not mount[1].startswith(str(RUNTIME))]


waits = []  # seconds that each pair still existed after a stop


def wait_until_gone(account=ACCOUNT):
    """The kernel takes the pair away with the network namespace, soon after the last user is gone: within a second
    on a quiet machine. It has one worker for all, which other tests keep busy too, so more is noted and allowed."""
    began = time.monotonic()
    while interfaces(account) and time.monotonic() < began + 5:
        time.sleep(0.01)
    waits.append(time.monotonic() - began)
    return not interfaces(account)


def waits_summary():
    late = sum(wait > 1 for wait in waits)
    return f"{len(waits)} looks for left interfaces, the longest wait {max(waits, default=0):.2f} s, {late} above 1 s"


def looked_wrongly(outcome, account):
    """Problems with an exec whose shell ran LOOK."""
    found = outcome.faults((0,)) + descriptors_too_many(outcome.out)
    if not re.search(rf"^uid=\d+\({account}\) gid=\d+\({account}\)", outcome.out, re.M):
        found.append(f"no account's shell: {outcome.out!r} {outcome.err!r}")
    if "root overlayfs" not in outcome.out:
        found.append(f"no view of its own: {outcome.out!r}")
    if not re.search(r"^route veth0\s+00000000", outcome.out, re.M) or "\ndescriptors " not in outcome.out:
        found.append(f"no default route, or not looked to the end: {outcome.out!r}")
    return ["exec: " + fault for fault in found]


class Host:
    """The host's state before anything was started, for comparison."""

    def __init__(self):
        self.mounts = host_mounts()
        self.shown = self.finished_rules = None

    def dirt(self, account=ACCOUNT):
        """Things that stop should have removed."""
        left = [f"mount {point}" for _, point in mounts() if point.startswith(f"{RUNTIME}/{account}@")]
        left += [f"file {path}" for path in RUNTIME.glob(f"{account}@*")]
        left += [f"mark {mark}" for mark in marks(account)]
        left += [f"rule {rule}" for rule in rules(f"veth-{account} ")]
        if host_mounts() != self.mounts:
            left.append(f"the host's mounts changed: {set(host_mounts()) ^ set(self.mounts)}")
        if not wait_until_gone(account):
            left.append(f"interfaces {interfaces(account)}")
        return ["left: " + what for what in left]

    def lacks(self, account=ACCOUNT):
        """Things that start should have created, or created twice."""
        found = wrongly_bound() + [f"mark {mark}" for mark in marks(account)]
        if pinned(account) != sorted(KINDS):
            found.append(f"pinned: {pinned(account)}")
        if len(rules(f"veth-{account} ")) != 2:
            found.append(f"rules: {rules(f'veth-{account} ')}")
        if interfaces(account) != [f"veth-{account}"]:
            found.append(f"interfaces: {interfaces(account)}")
        return found

    def stop(self, account=ACCOUNT):
        outcome = kivctl("stop", account)
        return ["stop: " + fault for fault in outcome.faults((0,)) + self.dirt(account)]

    def start(self, account=ACCOUNT):
        """Starts the container and checks it from inside."""
        outcome = kivctl("start", account)
        found = outcome.faults((0,)) + ([f"stderr {outcome.err!r}"] if outcome.err else []) + self.lacks(account)
        found += [f"mark {mark}" for mark in marks("@host")]
        return ["start: " + fault for fault in found] + self.enter(account)

    def enter(self, account=ACCOUNT):
        return looked_wrongly(kivctl("exec", account), account)

    def complete(self, account=ACCOUNT):
        """After any refresh, an entry gets a complete view or is refused until a start completes it."""
        found = wrongly_bound()
        outcome = kivctl("exec", account)
        if outcome.status == 71 and "root" not in outcome.out:
            found += outcome.faults((71,))
            outcome = kivctl("start", account)
            found += outcome.faults((0,))
            if own_words(outcome.err):
                found += [] if outcome.err.startswith("unpinning ") else [f"stderr {outcome.err!r}"]
            outcome = kivctl("exec", account)
        found += looked_wrongly(outcome, account) + self.lacks(account)
        return ["after the refresh: " + fault for fault in found]

    def converges(self, account=ACCOUNT):
        """Stop, start, exec, stop bring the account to a clean running and a clean stopped state."""
        return self.stop(account) + self.start(account) + self.stop(account)


def scrub(account=ACCOUNT):
    """Cleans up after a fault without kivctl: remains of one run must not be counted for the next one."""
    for kind in KINDS:
        subprocess.run(["umount", "-l", f"{RUNTIME}/{account}@{kind}"], stderr=subprocess.DEVNULL, check=False)
    for path in RUNTIME.glob(f"{account}@*"):
        path.unlink()
    for mark in marks():
        os.removexattr(RUNTIME, mark)
    for table, chain in (("filter", "INPUT"), ("nat", "PREROUTING")):
        subprocess.run(["iptables", "-t", table, "-F", chain], check=True)
    if interfaces(account):
        wait_until_gone(account)
        subprocess.run(["ip", "link", "delete", f"veth-{account}"], stderr=subprocess.DEVNULL, check=False)


def unprepare():
    """Restores a host on which nothing was ever started."""
    while any(point == str(RUNTIME) for _, point in mounts()):
        subprocess.run(["umount", str(RUNTIME)], check=True)
    (RUNTIME / ".lock").unlink(missing_ok=True)
    if RUNTIME.exists():
        RUNTIME.rmdir()
    subprocess.run(["iptables", "-t", "nat", "-F", "POSTROUTING"], check=True)
