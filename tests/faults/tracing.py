"""Runs a command of kivctl, or kiv-run, under strace, with a fault injected into one of its processes."""

import re

import account_host
from account_host import WORK

TRACE = WORK / "trace"
STRACE = ["strace", "-qq", "-s", "200", "-o", str(TRACE)]


def traced(command, role, inject=None):
    """Runs the command and records the calls of that process, one of which fails."""
    injection = ["-e", f"inject={inject}"] if inject else []
    TRACE.unlink(missing_ok=True)
    given = account_host.given(command)
    program = account_host.words(command)
    if role == "main":
        return account_host.run(STRACE + injection + program, given)
    if role == "all":
        return account_host.run(STRACE + ["-f"] + injection + program, given)
    if role == "forked":
        return account_host.run(STRACE + ["-f", "-b", "execve"] + injection + program, given)
    attach, attached = WORK / "attach", WORK / "attached"
    attached.unlink(missing_ok=True)
    attach.write_text(" ".join(["-s", "200"] + injection))
    try:
        return account_host.run(program, given)
    finally:
        attach.unlink()


def trace_text():
    return TRACE.read_text(errors="replace") if TRACE.exists() else ""


def injected_calls():
    """The calls with an injected failure, as written by strace."""
    lines = [line for line in trace_text().splitlines() if "(INJECTED)" in line]
    return [re.sub(r"^\d+ +", "", line) for line in lines]


def crashes():
    """Signals of a crash of the program; strace writes the line before the parent can notice the end."""
    return re.findall(r"--- SIG(?:ABRT|BUS|FPE|ILL|SEGV|SYS|TRAP) .*", trace_text())
