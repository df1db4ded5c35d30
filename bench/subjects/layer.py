"""The parts of the overlay layer that grow with the host: filters, bind items, hidden paths."""

import filecmp
import os
import pathlib
import shutil
import subprocess

from frame.report import Table

SOURCE = pathlib.Path("/srv/bench")
TARGET = pathlib.Path("/mnt/layers/layer")
ROUNDS = 30


def make_filtered(lines):
    (SOURCE / "etc").mkdir()
    (SOURCE / "etc/passwd").write_text(pathlib.Path("/etc/passwd").read_text() + "".join(
        f"u{n:06}:x:{20000 + n}:{20000 + n}:Customer number {n}:/home/u{n:06}:/bin/bash\n" for n in range(lines)))
    (SOURCE / "etc/group").write_text(pathlib.Path("/etc/group").read_text() + "".join(
        f"u{n:06}:x:{20000 + n}:\n" for n in range(lines)))


def make_paths(directories, files):
    """Files in directories three levels below the root, listed; every other list entry of binds is a directory."""
    paths = []
    for d in range(directories):
        directory = SOURCE / f"d{d:02}"
        directory.mkdir()
        for f in range(files):
            path = directory / f"f{f:03}"
            path.touch()
            paths.append(path)
    return paths


def prepare(part, count):
    shutil.rmtree(SOURCE, ignore_errors=True)
    SOURCE.mkdir(parents=True)
    if part == "filters":
        make_filtered(count)
        return
    paths = make_paths(10, count // 10)
    for path in paths[::2] if part == "binds" else []:
        path.unlink()
        path.mkdir()
    (SOURCE / "list").write_text("".join(f"{path}\n" for path in paths))


def run(bench, part, way):
    """The seconds that the program has measured; what it has made stays until the next run."""
    shutil.rmtree(TARGET, ignore_errors=True)
    TARGET.mkdir()
    done = subprocess.run([bench.floor("layer"), part, way, SOURCE, TARGET], stdout=subprocess.PIPE, text=True,
                          check=True)
    return float(done.stdout)


def entries(root):
    """Everything below the root as (path, mode, user, group, device)."""
    found = []
    for directory, names, files in os.walk(root):
        for path in (os.path.join(directory, name) for name in names + files):
            status = os.lstat(path)
            found.append((os.path.relpath(path, root), status.st_mode, status.st_uid, status.st_gid, status.st_rdev))
    return sorted(found)


def require_same_work(bench, part):
    run(bench, part, "kivctl")
    kept = TARGET.with_name("layer-of-kivctl")
    shutil.rmtree(kept, ignore_errors=True)
    wanted = entries(TARGET)
    TARGET.rename(kept)
    run(bench, part, "bare")
    if entries(TARGET) != wanted:
        raise RuntimeError(f"{part}: the bare calls have made something else")
    for file in ("etc/passwd", "etc/group") if part == "filters" else ():
        if not filecmp.cmp(f"{kept}{SOURCE}/{file}", f"{TARGET}{SOURCE}/{file}", shallow=False):
            raise RuntimeError(f"{file}: the bare loop has kept other lines")


def measure(bench):
    rows = []
    root = pathlib.Path("/mnt/root")
    root.mkdir(exist_ok=True)
    for directory in (SOURCE.parent, TARGET.parent):
        directory.mkdir(exist_ok=True)
    bench.run(["mount", "--bind", "/", root])  # as start has it
    bench.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "srv", "/srv"])
    bench.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "layers", TARGET.parent])  # as start has it too
    bench.run(["mount", "--bind", "/srv", f"{root}/srv"])
    for part, count, what in (("filters", 100000, "password and group file of 100,000 lines filtered"),
                              ("binds", 100, "100 bind items"), ("hidden", 1000, "1,000 hidden paths")):
        prepare(part, count)
        require_same_work(bench, part)
        ways = {way: lambda way=way: run(bench, part, way) for way in ("kivctl", "bare")}
        taken = bench.interleaved(ways, bench.rounds(ROUNDS))
        rows.append([what, *bench.medians(taken).values(), bench.ratio(taken, "kivctl", "bare")])
    return [Table("layer", "The overlay layer against the bare calls", ["what", "kivctl ms", "bare ms", "ratio"], rows)]
