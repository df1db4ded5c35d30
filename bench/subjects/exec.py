"""exec of a shell that is /bin/true."""

import json
import pathlib
import subprocess
import time

from frame.host import PASSWORDS
from frame.report import Table

FILTER = "/tmp/bench-filter"
SHELL = "/bin/true"
ROUNDS = 200
PAUSE = 0.05  # seconds


def save_filter(bench, account):
    """The filters that kivctl installs, read from a shell that it has started."""
    shell = subprocess.Popen([bench.kivctl, "exec", account.name], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                             env=bench.environment)
    name = pathlib.Path(f"/proc/{shell.pid}/comm")
    while name.read_text() != "bash\n":
        time.sleep(0.01)
    bench.run([bench.floor("save_filter"), shell.pid, FILTER])
    shell.communicate()


def cgroup(account):
    return f"/sys/fs/cgroup/user.slice/user-{account.uid}.slice/kiv"


def namespaces(account):
    return [f"--{option}=/run/kiv/{account.name}@{kind}"
            for option, kind in (("net", "net"), ("ipc", "ipc"), ("mount", "mnt"))]


def change_user(account):
    return ["setpriv", "--reuid", account.uid, "--regid", account.uid, "--clear-groups", "--bounding-set", "-all",
            "--inh-caps", "-all"]


def with_cgroup(cgroup, command):
    """The same behind a shell that joins the cgroup, as an administrator would write it."""
    return ["/bin/sh", "-c", f"echo 0 >{cgroup}/cgroup.procs; exec " + " ".join(str(word) for word in command)]


def nsenter(account):
    return ["nsenter", *namespaces(account), *change_user(account), SHELL]


def nsenter_user(account):
    """nsenter changes the user as well: no second program, and capabilities as they come."""
    return ["nsenter", *namespaces(account), "-S", account.uid, "-G", account.uid, SHELL]


def denied_calls():
    """What crun is to deny by name; libseccomp makes a filter of it in crun too."""
    return ["init_module", "finit_module", "delete_module", "kexec_load", "kexec_file_load", "mount", "umount", "umount2",
            "pivot_root", "fsopen", "fsconfig", "fsmount", "fspick", "move_mount", "open_tree", "mount_setattr", "setns",
            "add_key", "keyctl", "request_key", "bpf", "perf_event_open", "userfaultfd", "io_uring_setup",
            "io_uring_enter", "io_uring_register", "open_by_handle_at", "swapon", "swapoff", "reboot", "acct",
            "quotactl", "settimeofday", "clock_settime", "adjtimex", "clock_adjtime", "ioperm", "iopl"]


def crun_configuration(account):
    return {
        "ociVersion": "1.0.2",
        "process": {"user": {"uid": 0, "gid": 0}, "args": ["/bin/sleep", "infinity"], "cwd": "/",
                    "env": ["PATH=/usr/bin:/bin"], "noNewPrivileges": False,
                    "capabilities": {name: [] for name in ("bounding", "effective", "permitted")}},
        "root": {"path": "/", "readonly": False},
        "mounts": [{"destination": "/proc", "type": "proc", "source": "proc"}],
        "linux": {"namespaces": [{"type": "mount"}, {"type": "ipc"},
                                 {"type": "network", "path": f"/run/kiv/{account.name}@net"}],
                  "cgroupsPath": "/crun-peer",
                  "seccomp": {"defaultAction": "SCMP_ACT_ALLOW",
                              "architectures": ["SCMP_ARCH_X86_64", "SCMP_ARCH_X86", "SCMP_ARCH_X32"],
                              "syscalls": [{"names": denied_calls(), "action": "SCMP_ACT_ERRNO"}]}}}


def start_crun(bench, account):
    """The command that enters a container of crun's; None without crun."""
    if bench.tool("crun") is None:
        return None
    bundle = pathlib.Path("/tmp/crun-peer")
    root = bundle / "rootfs"
    root.mkdir(parents=True)
    bench.run(["mount", "--rbind", "/", root])
    configuration = crun_configuration(account)
    configuration["root"]["path"] = str(root)
    (bundle / "config.json").write_text(json.dumps(configuration))
    crun = ["crun", "--cgroup-manager=cgroupfs"]
    bench.run([*crun, "run", "--detach", "--bundle", bundle, "peer"])
    return [*crun, "exec", "--user", f"{account.uid}:{account.uid}", "peer", SHELL]


def enter_through_ip(bench, account):
    names = pathlib.Path("/run/netns")
    names.mkdir(exist_ok=True)
    (names / account.name).touch()
    bench.run(["mount", "--bind", f"/run/kiv/{account.name}@net", names / account.name])
    return ["ip", "netns", "exec", account.name, *change_user(account), SHELL]


def with_bwrap(bench, account):
    if bench.tool("bwrap") is None:
        return None
    return ["bwrap", "--bind", "/", "/", "--dev-bind", "/dev", "/dev", "--unshare-net", "--unshare-ipc",
            *change_user(account), SHELL]


def rows(bench, taken, does):
    return [[name, milliseconds, bench.ratio(taken, name, "floor"), bench.ratio(taken, name, "kivctl exec"), does[name]]
            for name, milliseconds in bench.medians(taken).items()]


def measure(bench):
    bench.use_sample_configuration()
    account = bench.make_accounts(1)[0]
    bench.run([bench.kivctl, "start", account.name])
    save_filter(bench, account)
    PASSWORDS.write_text(PASSWORDS.read_text().replace(":/bin/bash\n", f":{SHELL}\n"))
    joined = cgroup(account)
    commands = {
        "kivctl exec": [bench.kivctl, "exec", account.name],
        "kiv-run true": [bench.kiv_run, account.name, "true"],
        "floor": [bench.floor("exec"), joined, account.name, FILTER, account.uid, account.uid, account.home, SHELL],
        "sh, nsenter, setpriv": with_cgroup(joined, nsenter(account)),
        "sh, nsenter -S -G": with_cgroup(joined, nsenter_user(account)),
        "nsenter, setpriv": nsenter(account),
        "nsenter -S -G": nsenter_user(account),
        "ip netns exec, setpriv": enter_through_ip(bench, account),
        "crun exec": start_crun(bench, account),
        "bwrap, setpriv": with_bwrap(bench, account),
        "/bin/true alone": ["/bin/true"],
    }
    does = {
        "kivctl exec": "cgroup, net, ipc, mnt, filter, capabilities, user, home",
        "kiv-run true": "the same, PATH of login.defs, a line in the log",
        "floor": "cgroup, net, ipc, mnt, filter, user, home",
        "sh, nsenter, setpriv": "cgroup, net, ipc, mnt, capabilities, user",
        "sh, nsenter -S -G": "cgroup, net, ipc, mnt, user",
        "nsenter, setpriv": "net, ipc, mnt, capabilities, user",
        "nsenter -S -G": "net, ipc, mnt, user",
        "ip netns exec, setpriv": "net, a mnt of its own with another /sys, capabilities, user",
        "crun exec": "cgroup, net, ipc, mnt of its own container, a filter of its own, capabilities, user",
        "bwrap, setpriv": "makes net, ipc, mnt anew, capabilities, user",
        "/bin/true alone": "nothing",
    }
    # The kernel waits for all processors before it moves a process into a cgroup, and the next
    # moves are faster for a while: without a pause, or a move just before, each measurement would
    # depend on the previous command.
    single = bench.interleaved(commands, bench.rounds(ROUNDS), before=lambda name: time.sleep(PAUSE))
    frequent = bench.interleaved(commands, bench.rounds(ROUNDS), before=lambda name: bench.run(commands["floor"]))
    header = ["what", "ms", "× floor", "× kivctl", "what it does"]
    return [Table("exec", f"exec of a shell that is {SHELL}, one after a pause", header, rows(bench, single, does)),
            Table("exec-frequent", "the same, one just after another", header, rows(bench, frequent, does))]
