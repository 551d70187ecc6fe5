# Functions of ./run, ./test, ./bench and .ci/run, which source this file. Changes to the root of
# the project, $root.
# shellcheck shell=bash

root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
cd "$root" || exit 1
# shellcheck source=scripts/progress.sh
source "$root/scripts/progress.sh"

# Qt's tools warn about a locale that is not UTF-8.
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

# Gives folders that root has made in another user's checkout to that user.
give_back() {
    if [ "$(id -u)" -eq 0 ] && [ "$(stat -c %u "$root")" -ne 0 ]; then
        for folder in build .queue-demo; do
            if [ -d "$folder" ]; then chown -R --reference="$root" "$folder"; fi
        done
    fi
}

# Makes the folder writable, also after an earlier run by root.
own_folder() {
    local folder=$1
    mkdir -p "$folder" 2>/dev/null || true
    local foreign
    foreign=$(find "$folder" ! -uid "$(id -u)" -print -quit 2>/dev/null) || true
    if [ "$(id -u)" -eq 0 ] || { [ -w "$folder" ] && [ -z "$foreign" ]; }; then
        return 0
    fi
    if ! command -v sudo >/dev/null || ! [ -w "$root" ]; then
        fail "$root/$folder cannot be written by $(id -un). Change its owner to this account, or work on your own copy."
    fi
    say "Taking over $folder/, which an earlier run by another account made (sudo chown)"
    sudo -- chown -R "$(id -u):$(id -g)" "$root/$folder"
}

# install_packages [LIST...]: lists in the folder scripts; default "packages".
install_packages() {
    [ $# -gt 0 ] || set -- packages
    say "Checking for the packages of ${*/#/scripts/}"
    "$root/scripts/install-packages" "$@"
}

# build PRESET [OPTION...] [-- TARGET...]: configures and builds the targets, by default all. Prints
# first how much there is to build.
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
    local log=build/configure-$preset.log
    if ! cmake --preset "$preset" "${options[@]}" >"$log" 2>&1 | with_signs_of_life "   configuring"; then
        cat "$log" >&2
        exit 1
    fi
    sed -n 's/^-- Logging: /It logs with: /p' "$log"
    say "Building build/$preset$(size_of_build "$preset" "${targets[@]:1}")"
    compile "$preset" "${targets[@]}"
}

# size_of_build PRESET TARGET...: prints the size and estimated time of a first build. The estimate:
# 0.7 s of processor time per step, measured, and 10 s for the precompiled headers, for which all
# other steps wait.
size_of_build() {
    local preset=$1 steps seconds
    shift
    [ ! -e "build/$preset/.ninja_log" ] || return 0
    steps=$(ninja -C "build/$preset" -t commands "$@" | wc -l)
    seconds=$((steps * 7 / 10 / $(nproc) + 10))
    echo ": $steps steps, about $(((seconds + 59) / 60)) min on $(nproc) idle processors"
}

# compile PRESET [CMAKE-OPTION...]
compile() {
    local preset=$1
    shift
    # Keeps ninja's colours, although its output is a pipe.
    [ ! -t 1 ] || export CLICOLOR_FORCE=1
    cmake --build --preset "$preset" -j "$(nproc)" "$@" 2>&1 | show_build
}

# ccache fails the build if it cannot write its folder.
use_writable_ccache() {
    local folder=${CCACHE_DIR:-${XDG_CACHE_HOME:-${HOME:-/nonexistent}/.cache}/ccache}
    if ! mkdir -p "$folder" 2>/dev/null || ! [ -w "$folder" ]; then
        export CCACHE_DIR=$root/build/ccache
    fi
}

# with_duration TITLE COMMAND...: runs the command and prints how long it took.
with_duration() {
    local title=$1 start=$SECONDS
    shift
    say "$title"
    "$@"
    say "$title: $((SECONDS - start)) s"
}
