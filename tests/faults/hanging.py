"""Makes a run of one account hang, in a host tool or in a home that does not answer, and uses another one meanwhile."""

import ctypes
import os
import select
import struct
import time

import account_host
from account_host import ACCOUNT, WORK, kivctl

OTHER = "bob"
PATIENCE = 5  # seconds; limit for each command of the other account on a busy machine

# The command ("first" is a start on an unprepared host), and the call that hangs: a pattern for a
# host tool and its arguments, or an action of the server of the account's home.
QUEUED, TAKEN = "home, request not read", "home, request read and not answered"
PLACES = (
    ("first", "ip -4 route show*"),
    ("first", "iptables -t nat -C POSTROUTING*"),
    ("first", "iptables -t nat -A POSTROUTING*"),
    ("start", "ip link add veth-alice*"),
    ("start", "ip link set vpeer-alice netns*"),
    ("start", "sysctl *veth-alice*"),
    ("start", "iptables -A INPUT*"),
    ("start", "ip link set veth-alice up*"),
    ("start", "ip link set dev vpeer-alice name*"),
    ("start", "ip route add default*"),
    ("start", "iptables -t nat -A OUTPUT*"),
    ("start", QUEUED),
    ("start", TAKEN),
    ("refresh", QUEUED),
    ("refresh", TAKEN),
    ("stop", "iptables *-D INPUT*"),
    ("stop", "iptables *-D PREROUTING*"),
)


def until(condition):
    """Whether the condition became true within ten seconds."""
    deadline = time.monotonic() + 10
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.005)
    return True


class HangingTool:
    """Makes the first call of a host tool that matches the pattern hang."""

    def __init__(self, pattern):
        (WORK / "hang").write_text(pattern)

    def reached(self):
        return until((WORK / "hangs").exists)

    def end(self):
        for name in ("hang", "hangs"):
            (WORK / name).unlink(missing_ok=True)


class HangingHome:
    """A FUSE file system on the account's home. Its server, this process, answers the first request of the kernel and
    no other. A request that it has read cannot be interrupted by any signal."""

    def __init__(self, place):
        self.place = place
        self.path = f"/home/{ACCOUNT}"
        if not os.path.exists("/dev/fuse"):
            os.mknod("/dev/fuse", 0o20600, os.makedev(10, 229))
        self.device = os.open("/dev/fuse", os.O_RDWR | os.O_CLOEXEC)
        options = f"fd={self.device},rootmode=40000,user_id=0,group_id=0,allow_other".encode()
        libc = ctypes.CDLL(None, use_errno=True)
        if libc.mount(b"silent", self.path.encode(), b"fuse", 0, options) != 0:
            raise OSError(ctypes.get_errno(), "mount(fuse)")
        self.answer_first()

    def answer_first(self):
        """Answers FUSE_INIT: without that the kernel sends no other request."""
        _, _, unique = struct.unpack_from("<IIQ", os.read(self.device, 1 << 20))
        version, read_ahead, limits = (7, 31), 1 << 16, (12, 9, 1 << 16, 1)
        reply = struct.pack("<IIIIHHII", *version, read_ahead, 0, *limits).ljust(64, b"\0")
        os.write(self.device, struct.pack("<IiQ", 16 + len(reply), 0, unique) + reply)

    def reached(self):
        if not select.select([self.device], [], [], 10)[0]:
            return False
        if self.place == TAKEN:
            os.read(self.device, 1 << 20)
        return True

    def end(self):
        ctypes.CDLL(None).umount2(self.path.encode(), 2)  # MNT_DETACH
        os.close(self.device)  # ends the connection: waiting calls fail


def hang(place):
    return HangingHome(place) if place in (QUEUED, TAKEN) else HangingTool(place)


class OtherAccount:
    """Starts, enters and stops the other account in time."""

    def __init__(self, host):
        self.host = host
        self.longest = 0.0

    def command(self, name):
        """The result of a command, and its problems."""
        began = time.monotonic()
        outcome = kivctl(name, OTHER)
        took = time.monotonic() - began
        self.longest = max(self.longest, took)
        faults = outcome.faults((0,))
        if took > PATIENCE:
            faults.append(f"took {took:.1f} s")
        if account_host.own_words(outcome.err):
            faults.append(f"stderr {outcome.err!r}")
        return outcome, [f"{name} of {OTHER}: {fault}" for fault in faults]

    def works(self):
        _, faults = self.command("start")
        faults += self.host.lacks(OTHER)
        entered, more = self.command("exec")
        faults += more + account_host.looked_wrongly(entered, OTHER)
        _, more = self.command("stop")
        return faults + more + self.host.dirt(OTHER)
