# For scripts on a simulated host: a Debian package of a library and a program that is linked with it.

# greet_package VERSION: leaves /tmp/greet_VERSION.deb. `greet` prints the library's version; `greet FILE` writes
# it there and stays.
greet_package() {
    local root=/tmp/greet-$1
    mkdir -p "$root/DEBIAN" "$root/usr/lib" "$root/usr/bin" "$root/usr/share/greet"
    printf 'Package: greet\nVersion: %s\nArchitecture: %s\nMaintainer: nobody <nobody@example.org>\nDescription: test\n' \
        "$1" "$(dpkg --print-architecture)" >"$root/DEBIAN/control"
    echo "version $1" >"$root/usr/share/greet/version"
    cc -x c -shared -fPIC -Wl,-soname,libgreet.so.1 -o "$root/usr/lib/libgreet.so.1" - <<END
const char *greeting(void) { return "$1"; }
END
    cc -x c -o "$root/usr/bin/greet" - -x none "$root/usr/lib/libgreet.so.1" <<'END'
#include <stdio.h>
#include <unistd.h>
const char *greeting(void);
int main(int argc, char **argv) {
    FILE *out = argc > 1 ? fopen(argv[1], "w") : stdout;
    fprintf(out, "%s\n", greeting());
    fflush(out);
    while (argc > 1) pause();
    return 0;
}
END
    dpkg-deb --root-owner-group --build "$root" "/tmp/greet_$1.deb" >/dev/null
    rm -r "$root"
}

# stays NAME: starts `greet` in the account's container, where it keeps running; its process ID is
# in `resident`.
# shellcheck disable=SC2034 # for the caller
stays() {
    kiv-run "$1" greet "/home/$1/greeting" &
    resident=$!
    disown "$resident"
    eventually grep -q . "/home/$1/greeting"
}
