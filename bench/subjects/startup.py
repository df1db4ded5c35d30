"""What a run costs before it does anything: kivctl -v."""

from frame.report import Table

ROUNDS = 200
LANGUAGES = ("C", "C.UTF-8")


def installed(bench):
    """Where a package puts it: found through the loader's cache, not through the build folder's own path."""
    library = bench.build / "lib/libkiv.so.1"
    bench.run(["install", "-m", "644", library, "/usr/lib/libkiv.so.1"])
    bench.run(["install", bench.kivctl, bench.kiv_run, "/usr/sbin"])
    bench.run(["patchelf", "--remove-rpath", "/usr/sbin/kivctl", "/usr/sbin/kiv-run"])
    bench.run(["ldconfig"])
    return "/usr/sbin/kivctl"


def measure(bench):
    rows = []
    commands = {"/bin/true": ["/bin/true"], "kivctl -v": [installed(bench), "-v"],
                "its libraries and locale": [bench.floor("true_loaded")],
                "kivctl -v, build folder": [bench.kivctl, "-v"], "/bin/true --version": ["/bin/true", "--version"],
                "/bin/sh -c :": ["/bin/sh", "-c", ":"]}
    for language in LANGUAGES:
        bench.environment["LANG"] = language
        taken = bench.interleaved(commands, bench.rounds(ROUNDS))
        medians = bench.medians(taken)
        for name, command in commands.items():
            rows.append([name, language, medians[name], bench.ratio(taken, name, "/bin/true"),
                         bench.peak_memory(command) / 1024])
    return [Table("startup", "kivctl -v", ["what", "LANG", "ms", "× /bin/true", "MiB"], rows,
                  "With a language other than C the program reads its locale; /bin/true does so only with an option. "
                  "\"Its libraries and locale\" is a program that loads and reads them and does nothing else.")]
