# Functions that show the progress of long runs. Sourced by scripts/common.sh and
# scripts/install-packages.
# shellcheck shell=bash

# The longest time without output, in seconds.
quiet_limit=8

# with_signs_of_life WHAT: passes its input through line by line, and prints that WHAT is still
# running when there was no line for a while.
with_signs_of_life() {
    local what=$1 start=$SECONDS line part='' status
    while true; do
        status=0
        IFS= read -r -t "$quiet_limit" line || status=$?
        # The status of read is above 128 after a timeout; the part of the line read so far is kept.
        if [ "$status" -gt 128 ]; then
            part+=$line
            echo "$what, $((SECONDS - start)) s"
            continue
        fi
        line=$part$line
        part=''
        if [ "$status" -eq 0 ]; then
            printf '%s\n' "$line"
        else
            [ -z "$line" ] || printf '%s\n' "$line"
            return 0
        fi
    done
}

# show_steps WHAT: passes its input on line by line. On a terminal a line below it tells how many of the
# steps are done, how many of them failed, and for how long it goes on. It is drawn on standard error, five
# times a second at most, and erased at the end. Steps are lines of ctest ("12/34 Test #7: ...") and lines
# like "[3/24] types", which are not passed on. Where standard error is no terminal, this is
# with_signs_of_life WHAT.
        # Soon after a line has taken its place, then once a second.
        # Some locales have a comma in it.
# show_build: shows the output of ninja. A terminal gets one line with progress and time; other
# outputs get a line for every ten percent and at least every few seconds. Both get every warning
# and error.
show_build() {
    local start=$SECONDS line part='' status step='' shown=0 tenth total terminal='' limit=$quiet_limit
    local spoken=$SECONDS
    if [ -t 1 ]; then
        terminal=yes
        limit=1
    fi
    while true; do
        status=0
        IFS= read -r -t "$limit" line || status=$?
        if [ "$status" -gt 128 ]; then
            part+=$line
            if [ -n "$terminal" ]; then
                printf '\r\033[K   %s' "${step:+$step, }$((SECONDS - start)) s"
            else
                echo "   ${step:-the first step is running}, $((SECONDS - start)) s"
                spoken=$SECONDS
            fi
            continue
        fi
        line=$part$line
        part=''
        if [[ $line =~ ^\[([0-9]+)/([0-9]+)\]\  ]]; then
            total=${BASH_REMATCH[2]}
            step="${BASH_REMATCH[1]} of $total steps"
            tenth=$((10 * BASH_REMATCH[1] / total))
            if [ -n "$terminal" ]; then
                printf '\r\033[K   %s' "$step, $((SECONDS - start)) s"
            elif [ "$tenth" -gt "$shown" ]; then
                shown=$tenth spoken=$SECONDS
                echo "   ${tenth}0% of $total steps, $((SECONDS - start)) s"
            elif [ $((SECONDS - spoken)) -ge "$quiet_limit" ]; then
                spoken=$SECONDS
                echo "   $step, $((SECONDS - start)) s"
            fi
        elif [ "$line" = "ninja: no work to do." ]; then
            :
        elif [ -n "$line" ] || [ "$status" -eq 0 ]; then
            printf '%s%s\n' "${terminal:+$'\r\033[K'}" "$line"
        fi
        if [ "$status" -ne 0 ]; then
            [ -z "$terminal" ] || printf '\r\033[K'
            return 0
        fi
    done
}
