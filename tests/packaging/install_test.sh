#!/usr/bin/env bash
# `cmake --install` into a prefix with a space in its path, and into a staging folder as a package would do it.
set -uo pipefail

here=$(mktemp -d "${TMPDIR:-/tmp}/kavaro-test-XXXXXX")
bus=
clean_up() {
    [[ -z $bus ]] || kill "$bus" 2>/dev/null
    rm -rf -- "$here"
}
trap clean_up EXIT
passed=0 failed=0

expect() {
    local what=$1
    shift
    if "$@"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        printf 'FAILED: %s\n  %s\n' "$what" "$*"
    fi
}
is() { [[ $1 == "$2" ]]; }

# The prefix of a person: everything stays below it.
prefix="$here/my programs"
cmake --install "$KAVARO_BUILD_DIR" --prefix "$prefix" >"$here/log" 2>&1 || {
    cat "$here/log"
    exit 1
}
expect "the client runs through its link" is "$("$prefix/bin/kavaro" --version | head -n 1 | cut -d' ' -f1)" kavaro
expect "the link leads into the one folder" \
    is "$(readlink -f "$prefix/bin/kavarod")" "$(readlink -f "$prefix/Kavaro.app/Contents/Linux/kavarod")"
while read -r resource; do
    expect "resource $resource is installed" cmp -s "$KAVARO_APP_DIR/Resources/$resource" \
        "$prefix/Kavaro.app/Resources/$resource"
done < <(cd "$KAVARO_APP_DIR/Resources" && find . -type f)
expect "the man page is one" grep -q '^\.TH' "$prefix/share/man/man1/kavaro.1"
expect "the completions are a script" bash -n "$prefix/share/bash-completion/completions/kavaro"

# A bus that knows only what was installed starts the installed server for who asks.
cat >"$here/bus.conf" <<EOF
<busconfig>
  <type>session</type>
  <listen>unix:dir=$here</listen>
  <servicedir>$prefix/share/dbus-1/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
  </policy>
</busconfig>
EOF
mkfifo "$here/address"
exec {address_pipe}<>"$here/address"
dbus-daemon --config-file="$here/bus.conf" --nofork --print-address="$address_pipe" &
bus=$!
read -r -t 20 address <&"$address_pipe"
call() { gdbus call --address "$address" --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus --method "$@"; }
answer=$(gdbus call --address "$address" --dest org.kavaro.Kavaro.server --object-path /org/kavaro/Kavaro/server \
    --method org.kavaro.Kavaro.NodeFactoryServer.versionInfo 2>&1)
expect "a bus starts the installed server" grep -q version <<<"$answer"
server=$(call org.freedesktop.DBus.GetConnectionUnixProcessID org.kavaro.Kavaro.server | grep -oE '[0-9]+,' | tr -d ,)
expect "it is the installed one" is "$(readlink "/proc/$server/exe")" "$prefix/Kavaro.app/Contents/Linux/kavarod"
[[ -z $server ]] || kill "$server"

# The policy is one that the bus takes, and it keeps the server's name for root.
sed -e "s#<type>session#<type>system#" -e "/<servicedir>/d" -e "s#<allow own=.*/>#<allow user=\"*\"/>#" \
    -e "s#</busconfig>#<include>$prefix/share/dbus-1/system.d/org.kavaro.Kavaro.conf</include></busconfig>#" \
    "$here/bus.conf" >"$here/system.conf"
kill "$bus"
wait "$bus" 2>/dev/null
dbus-daemon --config-file="$here/system.conf" --nofork --print-address="$address_pipe" &
bus=$!
read -r -t 20 address <&"$address_pipe"
answer=$(call org.freedesktop.DBus.RequestName org.kavaro.Kavaro.server 4 2>&1)
expected="(uint32 1,)"
[[ $(id -u) == 0 ]] || expected="AccessDenied"
expect "root alone may be the server" grep -qF "$expected" <<<"$answer"

# A package's staging folder: the final paths inside the files, the staging folder in none.
DESTDIR="$here/stage" cmake --install "$KAVARO_BUILD_DIR" --prefix /opt >"$here/log" 2>&1 || {
    cat "$here/log"
    exit 1
}
for file in opt/Kavaro.app/Contents/Linux/kavarod usr/local/share/dbus-1/services/org.kavaro.Kavaro.server.service \
    usr/local/share/dbus-1/system-services/org.kavaro.Kavaro.server.service \
    usr/local/lib/systemd/system/kavarod.service etc/dbus-1/system.d/org.kavaro.Kavaro.conf \
    usr/share/polkit-1/actions/org.kavaro.Kavaro.policy usr/local/share/man/man1/kavaro.1; do
    expect "/$file is installed" test -f "$here/stage/$file"
done
expect "a link" is "$(readlink "$here/stage/usr/local/bin/kavaro")" ../../../opt/Kavaro.app/Contents/Linux/kavaro
expect "the service starts the final path" grep -qx 'Exec="/opt/Kavaro.app/Contents/Linux/kavarod"' \
    "$here/stage/usr/local/share/dbus-1/services/org.kavaro.Kavaro.server.service"
expect "no staging path is inside" is "$(grep -rlF "$here" "$here/stage")" ""

printf '%d passed, %d failed\n' "$passed" "$failed"
((failed == 0))
