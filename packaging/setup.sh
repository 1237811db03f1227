# shellcheck shell=bash
# The set-up that ./kavaro, ./check and .ci/run share: packages, configuration, build.
# To be sourced, with `root` set to the checkout's folder. Everything here prints on standard error alone, so that the
# output of the program that follows stays clean, and nothing here reads standard input.
: "${root:?}"

say() { printf 'kavaro: %s\n' "$*" >&2; }
die() {
    say "$@"
    exit 1
}

# The lines of package lists without comments.
read_packages() { sed -e 's/#.*//' -e 's/[[:space:]]//g' -e '/^$/d' "$@"; }

# Fills `required` and `optional` with what the lists name and the system lacks.
find_missing() {
    local -A installed=()
    local status name line
    while read -r status name; do
        [[ $status != installed ]] || installed[$name]=1
    done < <(dpkg-query -W -f '${db:Status-Status} ${Package}\n')
    required=() optional=()
    while read -r line; do
        for name in $(tr '|' ' ' <<<"${line%\?}"); do
            [[ -z ${installed[$name]-} ]] || continue 2
        done
        if [[ $line == *\? ]]; then optional+=("${line%\?}"); else required+=("$line"); fi
    done < <(read_packages "$@")
}

# Prints the first of the packages "a|b" that apt can install, nothing when there is none.
installable() {
    local name policy
    for name in $(tr '|' ' ' <<<"$1"); do
        policy=$(LC_ALL=C apt-cache policy "$name")
        if [[ $policy =~ Candidate:\ [^\(] ]]; then
            printf '%s\n' "$name"
            return
        fi
    done
}

# apt-get as root, without questions; waits when another one is at work.
apt_get() {
    local prefix=()
    [[ $(id -u) == 0 ]] || prefix=(sudo)
    "${prefix[@]}" env DEBIAN_FRONTEND=noninteractive NEEDRESTART_SUSPEND=1 \
        apt-get -q -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=600 "$@" </dev/null >&2
}

# Installs the packages named, "a|b" forms included. Those after "--" may be missing from the system's archive.
install_packages() {
    local names=() name found may_miss=
    if [[ $(id -u) != 0 ]] && ! command -v sudo >/dev/null; then
        name=$(printf ' %s' "${@%%|*}")
        die "packages are missing, and there is neither root nor sudo to install them. As root, run:
  apt-get install --no-install-recommends${name/ --/}"
    fi
    apt_get update || say "the package index could not be renewed; going on with the one that is there"
    for name in "$@"; do
        if [[ $name == -- ]]; then
            may_miss=1
            continue
        fi
        found=$(installable "$name")
        if [[ -n $found ]]; then
            names+=("$found")
        elif [[ -z $may_miss ]]; then
            die "this system offers no package '$name' (see packaging/packages.debian)"
        fi
    done
    [[ ${#names[@]} == 0 ]] || say "installing: ${names[*]}"
    [[ ${#names[@]} == 0 ]] || apt_get install -y --no-install-recommends "${names[@]}" ||
        die "installing packages failed, see above"
}

# Says what to install on a system without apt, by the names that the packages have on Debian.
list_packages() {
    say "packages are installed by themselves on Debian and Ubuntu only. Here, install what stands for:"
    read_packages "$@" | sed -e 's/^/  /' -e 's/?$/ (may be missing)/' -e 's/|/ or /' >&2
}

# ensure_packages STAMP LIST...: installs what is missing. The stamp holds the lists' sum and the state of the package
# data base: while neither changes nothing is asked and nothing runs.
ensure_packages() {
    local stamp=$root/build/.$1 sum state required=() optional=()
    shift
    package_lists=("$@")
    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        local tool
        for tool in c++ cmake pkg-config; do
            command -v "$tool" >/dev/null && continue
            list_packages "$@"
            die "'$tool' was not found"
        done
        return
    fi
    sum=$(cat "$@" | cksum)
    state=$(stat -c "%i %Y %s" /var/lib/dpkg/status 2>/dev/null || true)
    [[ ! -f $stamp || $(<"$stamp") != "$sum $state" ]] || return 0
    find_missing "$@"
    if [[ ${#required[@]} != 0 ]]; then
        install_packages "${required[@]}" -- "${optional[@]}"
        find_missing "$@"
        [[ ${#required[@]} == 0 ]] || die "still missing after the installation: ${required[*]}"
    fi
    printf '%s\n' "$sum $(stat -c "%i %Y %s" /var/lib/dpkg/status 2>/dev/null || true)" >"$stamp"
}

# Makes build/ and says so clearly when this user may not write there.
prepare_build_folder() {
    local folder
    mkdir -p "$root/build" 2>/dev/null || true
    for folder in "$root/build" "$root/build/$1" "$root/build/.lock"; do
        [[ ! -e $folder && $folder != "$root/build" ]] || [[ -w $folder ]] ||
            die "cannot write to '$folder' (owner: $(stat -c %U "$folder" 2>/dev/null || stat -c %U "$root")):" \
                "run this as its owner, or in a checkout of your own"
    done
    if [[ ! -w ${HOME:-/nonexistent} && -z ${CCACHE_DIR-} ]]; then
        export CCACHE_DIR=$root/build/.ccache
    fi
}

# How many compilers at a time: one a core, and a gibibyte of memory for each.
job_count() {
    local jobs memory limit
    jobs=$(nproc)
    memory=$(awk '/^MemAvailable:/ { print int($2 / 1048576) }' /proc/meminfo)
    limit=$(cat /sys/fs/cgroup/memory.max 2>/dev/null || true)
    [[ ! $limit =~ ^[0-9]+$ ]] || ((limit / 1073741824 >= memory)) || memory=$((limit / 1073741824))
    ((jobs <= memory)) || jobs=$memory
    ((jobs >= 1)) || jobs=1
    printf '%s\n' "$jobs"
}

# GCC 12 is the oldest that will do: where the system's g++ is older the newer one beside it is taken.
choose_compiler() {
    [[ -z ${CXX-} ]] && command -v g++ >/dev/null || return 0
    local major
    major=$(g++ -dumpversion)
    ((${major%%.*} < 12)) || return 0
    command -v g++-12 >/dev/null || ! command -v apt-get >/dev/null || install_packages g++-12
    export CXX=g++-12
}

# configure PRESET: once, and again when the presets changed or the checkout was moved.
configure() {
    local folder=$root/build/$1 log=$root/build/.configure.$1.log
    if [[ -f $folder/CMakeCache.txt ]] &&
        ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$folder/CMakeCache.txt"; then
        say "the checkout was moved: starting build/$1 again"
        rm -rf -- "$folder"
    fi
    if [[ -f $folder/build.ninja && $folder/.configured -nt $root/CMakePresets.json ]]; then
        return
    fi
    choose_compiler
    say "configuring ($1)"
    if ! (cd "$root" && cmake --preset "$1") </dev/null >"$log" 2>&1; then
        cat "$log" >&2
        command -v apt-get >/dev/null || list_packages "${package_lists[@]}"
        die "configuring failed, see above"
    fi
    touch "$folder/.configured"
}

# The build's output, without the lines that say that nothing is to do; on a terminal its steps share one line.
show_progress() {
    local line columns=0 open=
    if [[ -t 2 && ${TERM:-dumb} != dumb ]]; then columns=$(tput cols 2>/dev/null || echo 80); fi
    while IFS= read -r line || [[ -n $line ]]; do
        case $line in
            'ninja: no work to do.' | 'ninja: Entering directory'* | *'Re-checking globbed directories...') continue ;;
        esac
        if ((columns > 1)) && [[ $line =~ ^\[[0-9]+/[0-9]+\] ]]; then
            printf '\r\033[K%s' "${line:0:columns-1}"
            open=1
        else
            printf '%s%s\n' "${open:+$'\r\033[K'}" "$line"
            open=
        fi
    done >&2
    [[ -z $open ]] || printf '\r\033[K' >&2
}

# What root built in somebody else's checkout is the owner's, so that the owner can go on building.
give_back() {
    [[ $(id -u) == 0 && $(stat -c %u "$root") != 0 ]] || return 0
    find "$root/build" -user 0 -exec chown -h --reference="$root" {} +
}

# build PRESET TARGET...: one at a time in a checkout, whoever asks; the lock is gone with the build.
build() {
    local preset=$1 status=0
    shift
    (
        cd "$root"
        if command -v flock >/dev/null && ! flock -n 9; then
            say "waiting for another build in this checkout"
            flock 9
        fi
        configure "$preset"
        cmake --build "$root/build/$preset" --parallel "$(job_count)" --target "$@" </dev/null 2>&1 | show_progress
    ) 9>"$root/build/.lock" || status=$?
    give_back
    ((status == 0)) || die "the build failed, see above"
}
