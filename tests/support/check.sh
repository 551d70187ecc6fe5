# Sourced by the tests that are shell scripts. $failures counts the checks that failed.

failures=0

# check TITLE CONDITION...: CONDITION is a command.
check() {
    local title=$1
    shift
    if "$@"; then
        echo "PASS: $title"
    else
        echo "FAIL: $title"
        failures=$((failures + 1))
    fi
}

same() { [ "$1" = "$2" ] || { printf '  found:    %s\n  expected: %s\n' "$1" "$2"; false; }; }
