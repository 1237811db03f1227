#!/usr/bin/env bash
# Proves the scripts on a machine that has nothing: a Debian root folder made by debootstrap with the smallest set of
# packages, this repository cloned into a folder with a space in its path, `./kavaro version` and
# `./kavaro size --json /usr` in it, the result held against find.
#
#   packaging/fresh_machine_test.sh [--user] [--check] [--keep] [--suite SUITE] [--packages-only]
#
#   --user           as a user with sudo, and after that as root in that user's checkout (otherwise: as root)
#   --check          also ./check
#   --keep           leave the root folder for a look
#   --packages-only  stop when the packages are installed, before anything is built
#
# Needs root and debootstrap. Mirror, proxy and certificates are those of this machine's apt. What is cloned is the last
# commit. All mounts are in a mount namespace of this script's own, so that none is left whatever ends it.
set -euo pipefail

say() { printf '== %s\n' "$*" >&2; }
fail() {
    say "FAILED: $*"
    exit 1
}

repository=$(dirname -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")")

# The part that runs in the namespace: mounts, and a command in the root folder.
if [[ ${1-} == --inside ]]; then
    target=$2
    shift 2
    mount -t proc proc "$target/proc"
    mount --rbind /dev "$target/dev"
    exec chroot "$target" /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        TERM=dumb LANG=C.UTF-8 "$@"
fi

suite=bookworm user='' check='' keep='' packages_only=''
while (($#)); do
    case $1 in
        --user) user=person ;;
        --check) check=1 ;;
        --keep) keep=1 ;;
        --packages-only) packages_only=1 ;;
        --suite)
            suite=${2:?--suite SUITE}
            shift
            ;;
        *)
            sed -n '2,/^set -/s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
            exit 2
            ;;
    esac
    shift
done
[[ $(id -u) == 0 ]] || fail "this needs root"
command -v debootstrap >/dev/null || fail "this needs debootstrap: apt-get install debootstrap"

target=$(mktemp -d "${TMPDIR:-/tmp}/kavaro-fresh.XXXXXX")
chmod 755 "$target"
clean_up() {
    if [[ -n $keep ]]; then
        say "left for a look: $target"
    else
        rm -rf --one-file-system -- "$target"
    fi
}
trap clean_up EXIT

# inside COMMAND...: in the new machine, as root.
inside() {
    unshare --mount --pid --fork --kill-child --propagation private -- "$(readlink -f -- "${BASH_SOURCE[0]}")" --inside \
        "$target" "$@"
}

# Where this machine's apt gets the suite from, and through what.
# shellcheck disable=SC2016
mirror=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
    awk -v suite="$suite" '($2 == suite || $3 == suite) && $4 == "main" { print $1; exit }')
[[ -n $mirror ]] || fail "this machine's apt has no source for $suite"
proxy=$(apt-config shell value Acquire::http::Proxy)
proxy=${proxy#value=}
proxy=${proxy//\'/}
[[ -z $proxy || $proxy == DIRECT ]] || export http_proxy=$proxy
certificates=$(apt-config shell value Acquire::https::CAInfo)
certificates=${certificates#value=}
certificates=${certificates//\'/}

say "making the machine ($suite, minbase)"
debootstrap --variant=minbase "$suite" "$target" "$mirror" >"$target.log" 2>&1 || {
    cat "$target.log" >&2
    rm -f "$target.log"
    fail "debootstrap"
}
rm -f "$target.log"
cp /etc/hosts /etc/resolv.conf "$target/etc/"
apt-config dump | grep -E '^Acquire::(http|https)::(Proxy|CAInfo|Verify)' >"$target/etc/apt/apt.conf.d/90host" || true
if [[ -n $certificates ]]; then
    mkdir -p "$target$(dirname -- "$certificates")"
    cp -- "$certificates" "$target$certificates"
fi
if [[ $mirror == https:* && -f /etc/ssl/certs/ca-certificates.crt ]]; then
    mkdir -p "$target/etc/ssl/certs"
    cp /etc/ssl/certs/ca-certificates.crt "$target/etc/ssl/certs/"
fi

home=/root
as_person=(env HOME=/root)
if [[ -n $user ]]; then
    home=/home/$user
    inside apt-get -q update >&2
    inside env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends sudo >&2
    inside useradd --create-home "$user"
    printf '%s ALL=(ALL) NOPASSWD: ALL\n' "$user" >"$target/etc/sudoers.d/$user"
    as_person=(runuser -u "$user" -- env "HOME=$home")
fi
checkout="$home/my checkout/kavaro"
mkdir -p "$target$home/my checkout"
git clone --quiet --no-hardlinks "$repository" "$target$checkout"
[[ -z $user ]] || inside chown -R "$user:" "$home/my checkout"

if [[ -n $packages_only ]]; then
    say "installing the packages alone"
    # shellcheck disable=SC2016
    inside "${as_person[@]}" bash -c 'set -euo pipefail; root=$1; source "$root/packaging/setup.sh"
        prepare_build_folder release
        ensure_packages packages.check "$root/packaging/packages.debian" "$root/packaging/packages.check.debian"' \
        bash "$checkout"
    say "packages: passed"
    exit
fi

say "./kavaro version, from another folder"
begin=$SECONDS
# shellcheck disable=SC2016
inside "${as_person[@]}" sh -c 'cd / && exec "$0" version' "$checkout/kavaro" || fail "./kavaro version"
say "that took $((SECONDS - begin)) s from nothing"

say "./kavaro size --json /usr"
begin=$SECONDS
inside "${as_person[@]}" "$checkout/kavaro" size --json /usr >"$target/usr.json" 2>"$target/usr.err" || {
    cat "$target/usr.err" >&2
    fail "./kavaro size"
}
[[ ! -s $target/usr.err ]] || {
    cat "$target/usr.err" >&2
    fail "a second run printed the above on standard error"
}
say "that took $((SECONDS - begin)) s"

# The first "files" and "folders" are the asked folder's own.
number() { grep -oE "\"$1\": *[0-9]+" "$target/usr.json" | head -n 1 | grep -oE '[0-9]+$'; }
files=$(find "$target/usr" ! -type d | wc -l)
folders=$(find "$target/usr" -mindepth 1 -type d | wc -l)
say "files: $(number files), find says $files; folders: $(number folders), find says $folders"
[[ $(number files) == "$files" ]] || fail "the number of files differs"
[[ $(number folders) == "$folders" || $(number folders) == $((folders + 1)) ]] || fail "the number of folders differs"

if [[ -n $user ]]; then
    say "root, in the user's checkout"
    inside env HOME=/root "$checkout/kavaro" version || fail "./kavaro version as root"
fi
if [[ -n $check ]]; then
    say "./check"
    inside "${as_person[@]}" "$checkout/check" || fail "./check"
fi
say "passed"
