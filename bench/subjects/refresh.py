"""kiv-refresh: cost per account, and what the names that a container remembers add to it."""

import pathlib
import shutil

from frame.containers import Containers
from frame.report import Table

COUNTS = (1, 10, 100, 300, 1000)
NAMES = (0, 1000, 10000)
FILES = pathlib.Path("/usr/share/bench-files")


def ways(bench, operand):
    return {"new view": [bench.kiv_refresh, operand], "in place": [bench.kiv_refresh, "--in-place", operand]}


def many_accounts(bench):
    rows = []
    for count in COUNTS[:2] if bench.quick else COUNTS:
        bench.say(f"kiv-refresh -a: {count} accounts")
        bench.make_accounts(count)
        bench.run([bench.kivctl, "start", "-a"])
        rounds = bench.rounds(31 if count == 1 else 11 if count < 1000 else 5)
        wall = bench.medians(bench.interleaved(ways(bench, "-a"), rounds))
        rows.append([count, *(milliseconds / count for milliseconds in wall.values())])
        if count < COUNTS[-1]:
            bench.run([bench.kivctl, "stop", "-a"])
    bench.run([bench.kivctl, "stop", "-a"])
    return Table("refresh", "`kiv-refresh -a`, cost per account", ["accounts", "new view", "in place"], rows,
                 "Medians. With one account the start of the program is most of the cost in place. The mount namespaces of "
                 "the new views start as copies of one without the mounts of the containers.")


def remembered_names(bench):
    """A process of the account looks at so many files before each refresh."""
    rows = []
    account = bench.make_accounts(1)[0]
    FILES.mkdir()
    for number in range(NAMES[-1]):
        (FILES / f"{number:05}").touch()
    bench.run([bench.kivctl, "start", account.name])
    for count in NAMES[:2] if bench.quick else NAMES:
        look = [bench.kiv_run, account.name, "sh", "-c",
                f"cd {FILES}; n=0; for file in *; do [ $n -lt {count} ] || break; n=$((n + 1)); [ -e $file ]; done"]
        wall = bench.medians(bench.interleaved(ways(bench, account.name), bench.rounds(15),
                                               before=lambda _, command=look: bench.run(command, check=False)))
        rows.append([count, *wall.values()])
    bench.run([bench.kivctl, "stop", account.name])
    shutil.rmtree(FILES)
    return Table("refresh_names", "`kiv-refresh` of one account that has looked up so many files",
                 ["files", "new view", "in place"], rows, "The kernel drops each name of the overlay in turn.")


def measure(bench):
    Containers(bench)  # the sample configuration, and what only the first start of a boot does
    return [many_accounts(bench), remembered_names(bench)]
