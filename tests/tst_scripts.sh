#!/usr/bin/env bash
# Tests of the commands at the root of the project and of scripts/install-packages. Outside programs
# are played by small stand-ins in a folder that is first, or alone, on PATH.
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

# A machine of its own: the programs that the script may use, nothing installed, user id $1.
fake_machine() {
    rm -rf "${work:?}/bin" "$work/calls"
    mkdir "$work/bin"
    : >"$work/calls"
    local name
    for name in bash cat chmod dirname grep mktemp readlink rm sed tee; do
        ln -s "$(command -v "$name")" "$work/bin/$name"
    done
    stand_in id "echo $1"
    stand_in dpkg-query 'exit 1'
    stand_in apt-get "echo \"apt-get \$*\" >>'$work/calls'
        echo \"frontend \$DEBIAN_FRONTEND\" >>'$work/calls'
        case \$* in *install*) cat \"\$POLICY_RC_D\" >>'$work/calls'; echo 'Setting up sqlite3 (3.40) ...' ;; esac"
}

install_packages() {
    run_command env -u DEBIAN_FRONTEND PATH="$work/bin" POLICY_RC_D="$work/policy-rc.d" \
        "$work/bin/bash" "$root/scripts/install-packages" "$@"
}

for script in run test bench .ci/run scripts/fuzz scripts/install-packages scripts/common.sh tests/tst_scripts.sh benchmarks/plot; do
    check "$script has no syntax error" bash -n "$root/$script"
done

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
check "packages: the lists are read first" [ "$(grep -o ' update$\| install ' "$work/calls" | tr '\n' ' ')" = " update  install  " ]
check "packages: no recommended packages" called 'install -y --no-install-recommends'
check "packages: a missing package is installed" called ' sqlite3 '
check "packages: no question is asked" called 'frontend noninteractive'
check "packages: says what it installs" says "missing packages with apt-get: "
check "packages: shows each package" says "  sqlite3"
check "packages: no service starts meanwhile" called 'exit 101'
check "packages: the policy is gone afterwards" absent "$work/policy-rc.d"

fake_machine 0
stand_in dpkg-query "case \$* in *' sqlite3') exit 1 ;; *) printf installed ;; esac"
install_packages
check "packages: only what is missing is installed" called 'recommends sqlite3$'

fake_machine 0
install_packages packages-bench
check "packages: another list is installed when it is named" called ' gnuplot-nox '
check "packages: a list that is not named is left alone" not_called ' sqlite3'

fake_machine 1000
stand_in sudo "echo \"sudo \$*\" >>'$work/calls'"
install_packages packages-fuzz
check "packages: another list goes through sudo too" called 'install-packages packages-fuzz$'

fake_machine 0
stand_in apt-get 'case $* in *install*) echo "E: disk is full"; exit 100 ;; esac'
install_packages
check "packages: a failed installation fails" exits_with 1
check "packages: a failed installation says why" says "E: disk is full"
check "packages: the policy is gone after a failure" absent "$work/policy-rc.d"

fake_machine 0
stand_in apt-get "case \$* in *update*) echo 'E: some other source'; exit 100 ;; esac; echo \"\$*\" >>'$work/calls'"
install_packages
check "packages: a broken source elsewhere does not stop the installation" called install
check "packages: a broken source elsewhere is told" says "E: some other source"

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
check "packages: another distribution is told what is needed" says "This is no Debian"
check "packages: another distribution goes on" exits_with 0

echo
[ "$failures" -eq 0 ] || { echo "$failures checks failed"; exit 1; }
echo "All checks passed"
