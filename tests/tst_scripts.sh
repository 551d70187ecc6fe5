#!/usr/bin/env bash
# Tests of the commands at the root of the project and of scripts/install-packages. Outside programs
# are replaced by small scripts in a folder that is first, or alone, on PATH.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# shellcheck source=tests/support/check.sh
source "$root/tests/support/check.sh"

# run_command COMMAND...: keeps what it writes in $output and its exit code in $status.
run_command() {
    status=0
    output=$("$@" 2>&1 </dev/null) || status=$?
}

says() { [[ $output == *"$1"* ]]; }
exits_with() { [ "$status" -eq "$1" ]; }
called() { grep -q -- "$1" "$work/calls"; }
not_called() { ! called "$1"; }
absent() { [ ! -e "$1" ]; }

# stand_in NAME BODY: a program in $work/bin.
stand_in() {
    printf '#!/bin/bash\n%s\n' "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

# A fake machine: the programs that the script may use, nothing installed, user id $1.
fake_machine() {
    rm -rf "${work:?}/bin" "$work/calls"
    mkdir "$work/bin"
    : >"$work/calls"
    local name
    for name in bash cat chmod dirname grep mktemp readlink rm sed sleep tee; do
        ln -s "$(command -v "$name")" "$work/bin/$name"
    done
    stand_in id "echo $1"
    stand_in dpkg-query 'exit 1'
    stand_in dpkg "case \$* in --audit) ;; *) echo \"dpkg \$*\" >>'$work/calls' ;; esac"
    stand_in apt-get "echo \"apt-get \$*\" >>'$work/calls'
        echo \"frontend \$DEBIAN_FRONTEND\" >>'$work/calls'
        case \$* in
        *--print-uris*)
            echo '0 upgraded, 220 newly installed, 0 to remove and 0 not upgraded.'
            echo 'Need to get 176 MB of archives.'
            echo 'After this operation, 740 MB of additional disk space will be used.' ;;
        *install*) cat \"\$POLICY_RC_D\" >>'$work/calls'; echo 'Setting up cmake (3.25) ...' ;;
        esac"
}

install_packages() {
    run_command env -u DEBIAN_FRONTEND PATH="$work/bin" POLICY_RC_D="$work/policy-rc.d" \
        DPKG_ADMINDIR="$work/dpkg" \
        "$work/bin/bash" "$root/scripts/install-packages" "$@"
}

for script in run test bench .ci/run scripts/coverage scripts/fuzz scripts/install-packages scripts/common.sh scripts/progress.sh tests/tst_scripts.sh benchmarks/plot; do
    check "$script has no syntax error" bash -n "$root/$script"
done

# What gcov says of `if (a) f(b);`, where f() may throw and its argument is destroyed on the way, and of
# a function's static and a decision that look alike to gcov.
mkdir "$work/gcov"
cat >"$work/gcov/gcov" <<'STAND_IN'
#!/bin/bash
cat >a.gcov <<'REPORT'
        1:    7:    if (a) f(b);
        1:    7-block  0
branch  0 taken 1 (fallthrough)
branch  1 taken 0
        1:    7-block  1
call    2 returned 1
branch  3 taken 1 (fallthrough)
branch  4 taken 0 (throw)
    $$$$$:    7-block  2
branch  5 never executed
branch  6 never executed
    %%%%%:    7-block  3
branch  7 never executed
branch  8 never executed
        2:    9:    static const bool isReady = a || f(b);
        2:    9-block  0
branch  9 taken 1 (fallthrough)
branch 10 taken 1
        1:    9-block  1
call   11 returned 1
branch 12 taken 1 (fallthrough)
branch 13 taken 0
        1:    9-block  2
branch 14 taken 1 (fallthrough)
branch 15 taken 0
        1:    9-block  3
call   16 returned 1
branch 17 taken 1 (fallthrough)
branch 18 taken 0
        2:   11:    static bool isBoth() { return a && f(b); }
        2:   11-block  0
branch 19 taken 1 (fallthrough)
branch 20 taken 1
        1:   11-block  1
call   21 returned 1
branch 22 taken 1 (fallthrough)
branch 23 taken 0
REPORT
echo "Creating 'a.gcov'"
STAND_IN
chmod +x "$work/gcov/gcov"
(cd "$work/gcov" && PATH="$work/gcov:$PATH" "$root/scripts/gcov-decisions" >/dev/null)
run_command grep '^branch' "$work/gcov/a.gcov"
check "gcov-decisions: the exits of a decision are left alone" says "branch  1 taken 0
"
check "gcov-decisions: the exits of a call are no decision" says "branch  3 taken 0 (throw)
branch  4 taken 0 (throw)"
check "gcov-decisions: what only an exception reaches is no decision" says "branch  5 taken 0 (throw)
branch  6 taken 0 (throw)"
check "gcov-decisions: a decision that was never reached is left alone" says "branch  8 never executed"
check "gcov-decisions: the second look at the guard of a static is no decision" says "branch 10 taken 1
branch 12 taken 0 (throw)
branch 13 taken 0 (throw)
branch 14 "
check "gcov-decisions: a decision in the value of a static is left alone" says "branch 15 taken 0
branch 17 taken 1 (fallthrough)
branch 18 taken 0
"
check "gcov-decisions: a static function on one line is left alone" says "branch 22 taken 1 (fallthrough)
branch 23 taken 0"

run_command "$root/run" --nonsense
check "run: an unknown argument exits with 2" exits_with 2
check "run: an unknown argument shows the usage" says "Usage: ./run"
run_command "$root/run" --service extra
check "run: an argument too many exits with 2" exits_with 2
for option in --type --status --slow --failing --for; do
    run_command "$root/run" "$option"
    check "run: $option without its value exits with 2" exits_with 2
done
run_command "$root/run" --type heineken --service
check "run: the service alone takes no options of the stand" exits_with 2
run_command "$root/bench" --nonsense
check "bench: an unknown argument exits with 2" exits_with 2
check "bench: an unknown argument shows the usage" says "Usage: ./bench"
run_command "$root/bench" --only
check "bench: an option without its value exits with 2" exits_with 2
run_command "$root/scripts/fuzz" nonsense
check "fuzz: an unknown target exits with 2" exits_with 2
check "fuzz: an unknown target shows the usage" says "Usage: scripts/fuzz"
run_command "$root/scripts/fuzz" --seconds soon
check "fuzz: a time that is no number exits with 2" exits_with 2
run_command "$root/test" --faults=forever
check "test: an unknown form of the fault tests exits with 2" exits_with 2
check "test: an unknown form of the fault tests shows the usage" says "Usage: ./test"
run_command "$root/test" --coverage=engine
check "test: a value for --coverage exits with 2" exits_with 2
check "test: a value for --coverage shows the usage" says "Usage: ./test"
run_command "$root/scripts/coverage" --help
check "coverage: --help exits with 0" exits_with 0
check "coverage: --help shows the usage" says "Usage: scripts/coverage"
if command -v python3 >/dev/null; then
    run_command env PYTHONPYCACHEPREFIX="$work/python" python3 -m py_compile "$root/scripts/mutants"
    check "mutants: has no syntax error" exits_with 0
    run_command "$root/scripts/mutants"
    check "mutants: without a folder it exits with 2" exits_with 2
    run_command "$root/scripts/mutants" nonsense
    check "mutants: an unknown folder fails" exits_with 1
    check "mutants: an unknown folder is named" says "scripts/mutants: nonsense: there is no source file"
    run_command "$root/scripts/mutants" engine --sample 0
    check "mutants: a sample of none exits with 2" exits_with 2
    run_command "$root/scripts/mutants" engine --sample 2 --list
    check "mutants: a list has one line for each change" [ "$(wc -l <<<"$output")" = 2 ]
    sample=$("$root/scripts/mutants" engine --sample 5 --list)
    run_command "$root/scripts/mutants" engine --sample 5 --skip 3 --list
    check "mutants: --skip leaves out the first changes of the same sample" [ "$output" = "$(tail -n 2 <<<"$sample")" ]
    run_command "$root/scripts/mutants" engine --skip -1
    check "mutants: a negative number to skip exits with 2" exits_with 2
    run_command env COLUMNS=200 "$root/scripts/mutants" --help
    check "mutants: --help exits with 0" exits_with 0
    check "mutants: --help shows the usage" says "usage: mutants"
    check "mutants: --help says which tests --mariadb adds" says "label mariadb"
    check "mutants: --help says which tests never run" says "label scenarios never run"
fi
# The command asks git for the files of the tree.
if command -v python3 >/dev/null && command -v git >/dev/null; then
    # A tree with two changes. Building does nothing. A quick test notices the first change, and a slow one with
    # the label mariadb the second.
    tree=$work/tree
    mkdir -p "$tree/scripts" "$tree/engine" "$tree/tests/engine" "$work/tools"
    cp "$root/scripts/mutants" "$tree/scripts/"
    printf 'bool first = true;\nbool second = true;\n' >"$tree/engine/a.cpp"
    touch "$tree/tests/engine/CMakeLists.txt"
    git init -q "$tree" && git -C "$tree" add .
    printf '#!/bin/sh\n' | tee "$work/tools/cmake" >"$work/tools/ninja"
    cat >"$work/tools/ctest" <<STAND_IN
#!/bin/bash
[[ \$* != *--output-junit* ]] ||
    echo '<testsuite><testcase name="tst_a" time="0.1"/><testcase name="tst_b" time="20"/></testsuite>' >"\${!#}"
changed=\$(grep false '$tree/build/mutants/source/engine/a.cpp')
echo "\$changed \$QTEST_FATAL_FAIL \$*" >>'$work/test-runs'
touch "\$TMPDIR/left"
echo "\$TMPDIR" >>'$work/test-folders'
case "\$changed \$*" in
*first*-E*tst_b*) exit 8 ;;
*second*mariadb*) exit 0 ;;
*second*-R*tst_b*) exit 8 ;;
esac
STAND_IN
    chmod +x "$work/tools/"*
    # try_changes ARGUMENT...: keeps the number of changes that it tries in $tried.
    try_changes() {
        rm -f "$work/test-runs"
        run_command env PATH="$work/tools:$PATH" "$tree/scripts/mutants" engine "$@"
        tried=$(grep -c -- ' -E ' "$work/test-runs")
    }
    try_changes
    check "mutants: a change that no test notices is printed" says "engine/a.cpp:2: true becomes false"
    check "mutants: the slow tests run if the quick ones notice nothing" grep -q -- 'second.* -R .*tst_b' "$work/test-runs"
    check "mutants: they do not run after a quick one has failed" [ "$(grep -c -- 'first.* -R ' "$work/test-runs")" = 0 ]
    check "mutants: a program ends at its first failure" [ "$(grep -c '^[^1]* 1 ' "$work/test-runs")" = 4 ]
    check "mutants: what an ended program leaves is removed" \
        [ -z "$(while read -r name; do find "$name" 2>/dev/null; done <"$work/test-folders")" ]
    check "mutants: both changes are counted" says "engine: 1 of 2 changes noticed (50 %), 0 more did not build"
    try_changes
    check "mutants: an unnoticed change is tried again, a noticed one is not" [ "$tried" = 1 ]
    try_changes --mariadb
    check "mutants: --mariadb tries what was unnoticed without it" [ "$tried" = 1 ]
    check "mutants: --mariadb notices more" says "engine: 2 of 2 changes noticed (100 %)"
    check "mutants: the record tells whether --mariadb was given" \
        [ "$(python3 -c 'import json, sys; print([entry["mariadb"] for entry in json.load(sys.stdin).values()])' \
            <"$tree/build/mutants/record.json")" = '[False, True]' ]
    try_changes
    check "mutants: a result with --mariadb does not count without it" [ "$tried" = 1 ]
    try_changes --skip 1
    check "mutants: only the changes after those that are skipped are counted" says "engine: 0 of 1 changes noticed"
fi
for command in run test bench; do
    run_command "$root/$command" --help
    check "$command: --help exits with 0" exits_with 0
    check "$command: --help shows the usage" says "Usage: ./$command"
done

fake_machine 0
stand_in dpkg-query 'printf installed'
install_packages
check "packages: nothing missing exits with 0" exits_with 0
check "packages: nothing missing is silent" [ -z "$output" ]
check "packages: nothing missing calls no apt-get" not_called apt-get

fake_machine 0
install_packages
check "packages: root installs" exits_with 0
check "packages: the lists are read first" [ "$(grep -o 'update$\|print-uris install \|Pty=0 install ' "$work/calls" | tr '\n' ,)" = "update,print-uris install ,Pty=0 install ," ]
check "packages: no recommended packages" called 'install -y --no-install-recommends'
check "packages: a missing package is installed" called ' cmake '
check "packages: the size is told before the installation" \
    [ "$(grep -n -o '176 MB to fetch, 740 MB on disk\|^  cmake' <<<"$output" | cut -d: -f2 | tr '\n' ,)" = "176 MB to fetch, 740 MB on disk,  cmake," ]
check "packages: how many they are is told" says "Installing 220 packages"
check "packages: dpkg is left alone" not_called '^dpkg '
check "packages: no question is asked" called 'frontend noninteractive'
check "packages: says what it installs" says "Packages are missing (packages): ca-certificates cmake "
check "packages: shows each package" says "  cmake"
check "packages: no service starts meanwhile" called 'exit 101'
check "packages: the policy is gone afterwards" absent "$work/policy-rc.d"

fake_machine 0
stand_in dpkg-query "case \$* in *' cmake') exit 1 ;; *) printf installed ;; esac"
install_packages
check "packages: only what is missing is installed" called 'recommends cmake$'

fake_machine 0
install_packages packages-bench
check "packages: another list is installed when it is named" called ' gnuplot-nox '
check "packages: a list that is not named is left alone" not_called ' cmake'

fake_machine 1000
stand_in sudo "echo \"sudo \$*\" >>'$work/calls'"
install_packages packages-fuzz
check "packages: another list goes through sudo too" called 'install-packages packages-fuzz$'

# plan_stand_in BODY: an apt-get that reports the size, and otherwise runs the body.
plan_stand_in() {
    stand_in apt-get "echo \"apt-get \$*\" >>'$work/calls'
        case \$* in *--print-uris*) exit 0 ;; $1 esac"
}

fake_machine 0
plan_stand_in '*install*) seq 2000; echo "E: disk is full"; exit 100 ;;'
install_packages
check "packages: a failed installation fails" exits_with 1
check "packages: a failed installation says why" says "E: disk is full"
check "packages: a failed installation says it in a few lines" [ "$(wc -l <<<"$output")" -lt 20 ]
check "packages: a failed installation says where the rest is" \
    [ -s "$(sed -n 's/^The full output of apt-get is in //p' <<<"$output")" ]
rm -f "$(sed -n 's/^The full output of apt-get is in //p' <<<"$output")"
check "packages: the policy is gone after a failure" absent "$work/policy-rc.d"

fake_machine 0
plan_stand_in '*update*) echo "E: The repository of others is not signed."; exit 100 ;;'
install_packages
check "packages: a broken source elsewhere does not stop the installation" called 'apt-get .* install -y'
check "packages: a broken source elsewhere is reported" says "continuing with the others: The repository of others is not signed."

# Without a network apt-get update succeeds with warnings, and finds no package afterwards.
unreachable="W: Failed to fetch http://deb.debian.org/debian/dists/bookworm/InRelease  Temporary failure resolving 'deb.debian.org'"
fake_machine 0
stand_in apt-get "echo \"apt-get \$*\" >>'$work/calls'
    case \$* in
    *update*) echo \"$unreachable\"; echo \"$unreachable\"; echo 'W: Some index files failed to download.' ;;
    *) for i in 1 2 3 4 5 6 7 8 9; do echo \"E: Unable to locate package p\$i\"; done; exit 100 ;;
    esac"
install_packages
check "packages: without a network it fails" exits_with 1
check "packages: without a network it names the cause once" \
    [ "$(grep -c "could not be read: Temporary failure resolving 'deb.debian.org'\.$" <<<"$output")" = 1 ]
check "packages: without a network it says what to do" says "Check the machine's network"
check "packages: without a network it says nothing else" [ "$(wc -l <<<"$output")" -le 4 ]

fake_machine 0
plan_stand_in "*update*) ;; *install*) echo \"E: Failed to fetch http://deb.debian.org/x.deb  Could not connect to deb.debian.org:80. [IP: 192.0.2.1 80]\"; exit 100 ;;"
install_packages
check "packages: a network that goes while packages are fetched is named" \
    says "Packages could not be fetched: Could not connect to deb.debian.org:80."
check "packages: a network that goes fails it" exits_with 1

fake_machine 0
stand_in dpkg "echo \"dpkg \$*\" >>'$work/calls'
    case \$* in --audit) echo 'The following packages are only half configured'; exit 1 ;; *) echo 'Setting up g++ (12) ...' ;; esac"
install_packages
check "packages: an interrupted installation is completed first" \
    [ "$(grep -o '^dpkg --configure -a\|^apt-get.* update' "$work/calls" | cut -d' ' -f1 | tr '\n' ' ')" = "dpkg apt-get " ]
check "packages: an interrupted installation is told" says "An earlier installation was interrupted"
check "packages: after that it installs" says "Packages are installed"

fake_machine 0
mkdir -p "$work/dpkg/updates" && touch "$work/dpkg/updates/0001"
install_packages
check "packages: a journal that dpkg has left is completed too" called '^dpkg --configure -a'
rm -r "$work/dpkg"

fake_machine 0
stand_in dpkg 'case $* in --audit) echo half ;; *) exit 1 ;; esac'
install_packages
check "packages: what dpkg alone cannot complete is left to apt-get" called 'apt-get .*--fix-broken install$'

fake_machine 0
plan_stand_in '*update*) ;; *install*) sleep 10; echo "Setting up cmake (3.25) ..." ;;'
install_packages
check "packages: a long silence has a sign of life" says "  fetching and unpacking packages, 8 s"

# The output of ninja through a pipe.
shown_build() {
    run_command bash -c "source '$root/scripts/progress.sh'; quiet_limit=1; { $1; } | show_build"
}
shown_build 'for i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do echo "[$i/20] Building x"; done'
check "build: a pipe gets a line for every ten percent" [ "$(grep -c '0% of 20 steps' <<<"$output")" = 10 ]
check "build: a pipe gets no line for every step" [ "$(wc -l <<<"$output")" = 10 ]
shown_build 'echo "[1/100] Building x"; sleep 1.5; echo "[2/100] Building y"; echo "y.cpp:1: error: no"'
check "build: a long step has a sign of life" [ "$(grep -c '^   1 of 100 steps, ' <<<"$output")" -ge 1 ]
check "build: an error is shown" says "y.cpp:1: error: no"
shown_build 'for i in 1 2 3 4 5; do echo "[$i/100] Building x"; sleep 0.5; done'
check "build: many quick steps have one too" [ "$(grep -c 'of 100 steps' <<<"$output")" -ge 2 ]

# What show_steps makes of the lines that $1 writes: in a pipe, and on a terminal of its own.
write_steps() {
    printf '%s\n' "source '$root/scripts/progress.sh'" 'quiet_limit=1' \
        "{ $1; } | show_steps '   still at it'" >"$work/steps.sh"
}
shown_steps() {
    write_steps "$1"
    run_command bash "$work/steps.sh"
}
shown_steps_on_terminal() {
    write_steps "$1"
    run_command env TERM="${2:-xterm}" \
        script -qec "stty cols ${3:-80} && bash '$work/steps.sh'" /dev/null
    draws=$(grep -o '   [0-9]* of [0-9]*' <<<"$output" | wc -l)
}
tests_of_ctest="echo ' 1/12 Test  #1: tst_a ... Passed'; sleep 0.6; echo ' 2/12 Test  #2: tst_b ...***Failed'; sleep 0.6"
shown_steps "$tests_of_ctest"
# On a busy machine a sign of life may come between them.
check "steps: a pipe gets the lines alone" \
    same "$(grep -v 'still at it' <<<"$output")" "$(printf ' 1/12 Test  #1: tst_a ... Passed\n 2/12 Test  #2: tst_b ...***Failed')"
shown_steps 'echo a; sleep 1.5'
check "steps: a pipe has a sign of life" says "   still at it, "
shown_steps_on_terminal "$tests_of_ctest"
check "steps: a terminal gets the lines" says 'tst_a ... Passed'
check "steps: a terminal tells how many of them" says '   1 of 12 tests, '
check "steps: a terminal tells how many failed" says '   2 of 12 tests, 1 failed, '
check "steps: the line is erased at the end" [ "${output##*s}" = $'\r\033[K' ]
shown_steps_on_terminal "echo '[3/24] SQLite, types'; sleep 0.6; echo 'a figure'; sleep 0.6"
check "steps: a step is told" says '   3 of 24, SQLite, types, '
check "steps: a step's own line is not passed on" [ "${output/'[3/24]'/}" = "$output" ]
check "steps: the line comes back below other lines" [ "$draws" -ge 2 ]
begun=$SECONDS
shown_steps_on_terminal 'for i in {1..99}; do echo "[$i/99] x"; sleep 0.01; done; sleep 1.5'
check "steps: quick steps are drawn five times a second" [ "$draws" -le $((5 * (SECONDS - begun + 1))) ]
check "steps: the last one is drawn" says '   99 of 99, x, '
shown_steps_on_terminal "echo '[3/24] a very long name'; sleep 0.6" xterm 16
check "steps: a narrow terminal has one line of it" [ "${output/very/}" = "$output" ]
shown_steps_on_terminal "$tests_of_ctest" dumb
check "steps: a dumb terminal gets the lines alone" [ "${output/ of 12/}" = "$output" ]

fake_machine 0
printf '#!/bin/sh\nexit 104\n' >"$work/policy-rc.d"
install_packages
check "packages: a policy that is there is kept" grep -q 104 "$work/policy-rc.d"
rm "$work/policy-rc.d"

fake_machine 1000
install_packages
check "packages: without root and sudo it fails" exits_with 1
check "packages: without root and sudo it names the command" says "apt-get install --no-install-recommends"
check "packages: without root and sudo nothing is called" not_called apt-get

fake_machine 1000
stand_in sudo "echo \"sudo \$*\" >>'$work/calls'"
install_packages
check "packages: an ordinary user goes through sudo" called "sudo -- $root/scripts/install-packages"
check "packages: sudo is announced" says "through sudo"

fake_machine 0
rm "$work/bin/dpkg-query"
install_packages
check "packages: another distribution is told what is needed" says "This is not Debian"
check "packages: another distribution goes on" exits_with 0

echo
[ "$failures" -eq 0 ] || { echo "$failures checks failed"; exit 1; }
echo "All checks passed"
