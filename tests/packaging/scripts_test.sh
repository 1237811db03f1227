#!/usr/bin/env bash
# ./kavaro and packaging/setup.sh on systems that are not this one: only the commands put into a folder are found, and
# those that would change the system or take long are stand-ins that write down how they were called.
set -uo pipefail

here=$(mktemp -d "${TMPDIR:-/tmp}/kavaro-test-XXXXXX")
trap 'rm -rf -- "$here"' EXIT
passed=0 failed=0

# A checkout with a space in its path, and a system with what every Debian has.
fresh() {
    rm -rf -- "${here:?}"/*
    checkout="$here/my checkout"
    bin=$here/bin
    mkdir -p "$checkout/src" "$checkout/cmake" "$bin" "$here/elsewhere" "$here/home"
    cp -r "$KAVARO_SOURCE_DIR/packaging" "$KAVARO_SOURCE_DIR/kavaro" "$KAVARO_SOURCE_DIR/CMakePresets.json" "$checkout"
    touch "$checkout/CMakeLists.txt"
    local tool
    for tool in bash env sh readlink dirname cat cksum stat sed tr grep awk nproc mkdir cp find rm touch flock; do
        ln -s "$(command -v "$tool")" "$bin/$tool"
    done
    export FAKE_UID=0 HERE=$here
    : >"$here/calls"
    printf '%s\n' g++ >"$here/installed"
    sed -e 's/#.*//' -e 's/?$//' "$checkout/packaging/packages.debian" | tr '|' '\n' |
        grep -vx -e ccache -e dbus-daemon >"$here/archive"
    # shellcheck disable=SC2016
    {
        stub id 'echo "$FAKE_UID"'
        stub dpkg-query 'echo dpkg-query >>"$HERE/calls"; sed "s/^/installed /" "$HERE/installed"'
        # More than a pipe holds: whoever stops reading early ends it with an error.
        stub apt-cache '! grep -qx "$2" "$HERE/archive" || printf "%s:\n  Candidate: 1.0\n%200000s\n" "$2" table'
        stub apt-get 'echo "apt-get $*" >>"$HERE/calls"; while (($#)) && [[ $1 != install ]]; do shift; done
            (($#)) || exit 0; shift; for name; do [[ $name == -* ]] || echo "$name" >>"$HERE/installed"; done; echo noise'
        stub cmake 'echo "cmake $1" >>"$HERE/calls"
            if [[ $1 == --preset ]]; then
                [[ ! -e $HERE/bad-configuration ]] || { echo "CMake Error: no such thing"; exit 1; }
                mkdir -p "build/$2"; touch "build/$2/build.ninja"
                echo "CMAKE_HOME_DIRECTORY:INTERNAL=$PWD" >"build/$2/CMakeCache.txt"; exit
            fi
            [[ ! -e $HERE/bad-source ]] || { echo "x.cpp:1: error: wrong"; exit 1; }
            echo "[0/1] Re-checking globbed directories..."
            program=$2/Kavaro.app/Contents/Linux/kavaro
            if [[ -e $program ]]; then echo "ninja: no work to do."; exit; fi
            mkdir -p "${program%/*}"; cp "$HERE/program" "$program"; echo "[1/1] Linking"'
        stub g++ 'echo 12'
    }
    cat >"$here/program" <<'EOF'
#!/usr/bin/env bash
echo "$PWD"
printf '<%s>\n' "$@"
cat
EOF
    chmod +x "$here/program"
}

stub() {
    rm -f -- "$bin/$1" # it may be a link to the system's own
    printf '#!/usr/bin/env bash\n%s\n' "$2" >"$bin/$1"
    chmod +x "$bin/$1"
}

# Runs the script from another folder; fills out, err and status.
run() {
    (cd "$here/elsewhere" && env -i PATH="$bin" HOME="$here/home" HERE="$HERE" FAKE_UID="$FAKE_UID" "$@") \
        >"$here/out" 2>"$here/err" <<<"input"
    status=$?
}

expect() {
    local what=$1
    shift
    if "$@"; then
        passed=$((passed + 1))
        return
    fi
    failed=$((failed + 1))
    printf 'FAILED: %s\n  %s\n-- status %s, out:\n' "$what" "$*" "$status"
    cat "$here/out"
    echo "-- err:"
    cat "$here/err"
    echo "-- calls:"
    cat "$here/calls"
}
is() { [[ $1 == "$2" ]]; }
has() { grep -qF -- "$2" "$1"; }
lacks() { ! grep -qF -- "$2" "$1"; }

fresh
run "$checkout/kavaro" size "a b" ""
expect "a fresh machine runs the program" is "$status" 0
expect "output holds the program's own words alone" is "$(<"$here/out")" "$here/elsewhere
<size>
<a b>
<>
input"
expect "what is missing is installed" has "$here/calls" "install -y --no-install-recommends cmake ninja-build"
expect "what is there is not" lacks "$here/calls" "g++"
expect "the first package that the system offers is taken" grep -q 'install.* dbus ' "$here/calls"
expect "an optional package may be missing" lacks "$here/calls" ccache
expect "the package tools' output goes to standard error" has "$here/err" noise

: >"$here/calls"
run "$checkout/kavaro"
expect "a run with nothing to do prints nothing" is "$(<"$here/err")" ""
expect "and asks for no package" is "$(<"$here/calls")" "cmake --build"

ln -s "../my checkout/kavaro" "$here/elsewhere/link"
run ./link version
expect "a link leads to the checkout" is "$status" 0

echo "another" >>"$checkout/packaging/packages.debian"
run "$checkout/kavaro"
expect "a package that no archive has is named" has "$here/err" "no package 'another'"
expect "and is an error" is "$status" 1

fresh
FAKE_UID=1000
run "$checkout/kavaro"
expect "neither root nor sudo: an error" is "$status" 1
expect "that says what to install" has "$here/err" "apt-get install --no-install-recommends cmake ninja-build pkg-config"
expect "as packages, not as alternatives" has "$here/err" " dbus-daemon gettext"
expect "nothing was tried" lacks "$here/calls" apt-get

fresh
FAKE_UID=1000
# shellcheck disable=SC2016
stub sudo 'echo sudo >>"$HERE/calls"; exec "$@"'
run "$checkout/kavaro"
expect "a user with sudo installs by it" is "$status $(grep -c '^sudo' "$here/calls")" "0 2"

fresh
rm "$bin/apt-get" "$bin/dpkg-query"
run "$checkout/kavaro"
expect "another system: what to install is said" has "$here/err" "libicu-dev"
expect "with the tool that was not found" has "$here/err" "'c++' was not found"
expect "and an error" is "$status" 1

# Files that the tests of root leave would keep the owner's from running.
fresh
cp "$KAVARO_SOURCE_DIR/check" "$checkout"
sed -e 's/#.*//' -e 's/?$//' "$checkout/packaging/packages.check.debian" | tr '|' '\n' >>"$here/archive"
# shellcheck disable=SC2016
{
    stub ctest 'echo ctest >>"$HERE/calls"; echo "the closing line"; exit 8'
    stub find 'echo "find $1" >>"$HERE/calls"'
    stub stat '[[ "$1 $2" != "-c %u" ]] || echo 1000'
}
run "$checkout/check"
expect "the tests' exit code and closing line are those of check" is "$status $(<"$here/out")" "8 the closing line"
expect "what root made is given back after the tests" is "$(tail -n 2 "$here/calls")" "ctest
find $checkout/build"

fresh
touch "$here/bad-configuration"
run "$checkout/kavaro"
expect "a failed configuration is shown" has "$here/err" "CMake Error: no such thing"
expect "and is an error" is "$status" 1

fresh
touch "$here/bad-source"
run "$checkout/kavaro"
expect "a failed build is shown" has "$here/err" "x.cpp:1: error: wrong"
expect "and is an error" is "$status $(<"$here/out")" "1 "

fresh
run "$checkout/kavaro"
mv "$checkout" "$here/moved checkout"
run "$here/moved checkout/kavaro"
expect "a moved checkout is built anew" has "$here/err" "the checkout was moved"
expect "and runs" is "$status" 0

printf '%d passed, %d failed\n' "$passed" "$failed"
((failed == 0))
