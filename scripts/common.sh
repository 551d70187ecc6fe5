# Functions of ./run, ./test, ./bench and .ci/run, which source this file. It puts the working
# directory at the root of the project, $root.
# shellcheck shell=bash

root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
cd "$root" || exit 1

# Qt's tools complain of any locale that is not UTF-8.
if [ "$(locale charmap 2>/dev/null)" != UTF-8 ]; then
    export LC_ALL=C.UTF-8
fi

say() {
    printf '== %s\n' "$*"
}

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# A run by root in somebody's checkout leaves folders that their owner can use.
give_back() {
    if [ "$(id -u)" -eq 0 ] && [ "$(stat -c %u "$root")" -ne 0 ]; then
        for folder in build .queue-demo; do
            if [ -d "$folder" ]; then chown -R --reference="$root" "$folder"; fi
        done
    fi
}

# Makes sure that the named folder can be written, also when an earlier run by root made it.
own_folder() {
    local folder=$1
    mkdir -p "$folder" 2>/dev/null || true
    local foreign
    foreign=$(find "$folder" ! -uid "$(id -u)" -print -quit 2>/dev/null) || true
    if [ "$(id -u)" -eq 0 ] || { [ -w "$folder" ] && [ -z "$foreign" ]; }; then
        return 0
    fi
    if ! command -v sudo >/dev/null || ! [ -w "$root" ]; then
        fail "$root/$folder cannot be written by $(id -un). Give it to this account, or work on a copy of your own."
    fi
    say "Taking over $folder/, which an earlier run by another account made (sudo chown)"
    sudo -- chown -R "$(id -u):$(id -g)" "$root/$folder"
}

# install_packages [LIST...]: lists of the folder scripts, "packages" when none is named.
install_packages() {
    [ $# -gt 0 ] || set -- packages
    say "Checking for the packages that ${*/#/scripts/} names"
    "$root/scripts/install-packages" "$@"
}

# build PRESET [OPTION...] [-- TARGET...]: configures and builds, all targets when none is named.
# A terminal shows ninja's line of progress; a file or a pipe gets a line every ten percent, and
# every warning and error.
build() {
    local preset=$1 options=() targets=()
    shift
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    if [ $# -gt 1 ]; then
        shift
        targets=(--target "$@")
    fi

    own_folder build
    trap give_back EXIT
    use_writable_ccache
    say "Configuring build/$preset"
    local log
    log=$(cmake --preset "$preset" "${options[@]}" 2>&1) || fail "$log"
    sed -n 's/^-- Logging: /It logs with: /p' <<<"$log"
    say "Building build/$preset"
    if [ -t 1 ]; then
        cmake --build --preset "$preset" -j "$(nproc)" "${targets[@]}"
    else
        cmake --build --preset "$preset" -j "$(nproc)" "${targets[@]}" 2>&1 | show_progress
    fi
}

# ccache stops the build when it cannot write its folder.
use_writable_ccache() {
    local folder=${CCACHE_DIR:-${XDG_CACHE_HOME:-${HOME:-/nonexistent}/.cache}/ccache}
    if ! mkdir -p "$folder" 2>/dev/null || ! [ -w "$folder" ]; then
        export CCACHE_DIR=$root/build/ccache
    fi
}

show_progress() {
    local line shown=0 tenth total
    while IFS= read -r line; do
        if [[ $line =~ ^\[([0-9]+)/([0-9]+)\]\  ]]; then
            total=${BASH_REMATCH[2]}
            tenth=$((10 * BASH_REMATCH[1] / total))
            if [ "$tenth" -gt "$shown" ]; then
                shown=$tenth
                echo "   ${tenth}0% of $total steps"
            fi
        else
            printf '%s\n' "$line"
        fi
    done
}

# with_duration TITLE COMMAND...: runs the command and says how long it took.
with_duration() {
    local title=$1 start=$SECONDS
    shift
    say "$title"
    "$@"
    say "$title: $((SECONDS - start)) s"
}
