"""Peak memory of every command, with few accounts and with 10,000."""

from frame import slices
from frame.host import REGISTRY
from frame.report import Table

COUNTS = (10, 10000)


def one_container(bench, account):
    """(command, KiB) of a container's commands, with whatever registry and password file there is."""
    bench.make_home(account)
    for command in ("start", "exec", "stop"):
        yield f"{command} of the last", bench.peak_memory([bench.kivctl, command, account.name])


def all_accounts(bench, accounts):
    """Runs over all of them that change nothing: real starts differ in nothing but their number."""
    yield "status of the last", bench.peak_memory([bench.kivctl, "status", accounts[-1].name])
    yield "status -a", bench.peak_memory([bench.kivctl, "status", "-a"])
    registry = REGISTRY.read_text()
    REGISTRY.write_text(registry.replace(" net=", "@ net="))
    yield "start -a, every account refused", bench.peak_memory([bench.kivctl, "start", "-a"], check=False)
    REGISTRY.write_text(registry)
    slices.remove_files(accounts)
    yield "stop -a, none running", bench.peak_memory([bench.kivctl, "stop", "-a"])


def measure(bench):
    counts = (10, 100) if bench.quick else COUNTS
    peaks = {}
    bench.use_sample_configuration()
    for count in counts:
        for name, size in one_container(bench, bench.make_accounts(count, homes=False)[-1]):
            peaks.setdefault(name, []).append(size)
    real = slices.prepare()
    for count in counts:
        accounts = bench.make_accounts(count, homes=False)
        slices.make(accounts, real)
        for name, size in all_accounts(bench, accounts):
            peaks.setdefault(name, []).append(size)
    return [Table("memory", "Peak memory in KiB", ["command", *(f"{count} accounts" for count in counts), "each"],
                  [[name, *sizes, (sizes[-1] - sizes[0]) / (counts[-1] - counts[0])] for name, sizes in peaks.items()],
                  "The largest process of a run, which may be a host tool, the set-up child or the shell of `exec`. "
                  "`each` is what one more account needs.")]
