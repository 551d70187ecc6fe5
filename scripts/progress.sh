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

# show_steps WHAT: passes its input through line by line. On a terminal, a line below it shows how many
# steps are done, how many of them failed, and the time. It is drawn on standard error at most five times
# a second, and erased at the end. Steps are lines of ctest ("12/34 Test #7: ...") and lines like
# "[3/24] types"; the latter are not passed through. If standard error is not a terminal, this does the
# same as with_signs_of_life WHAT.
show_steps() {
    if ! [ -t 2 ] || [ "${TERM:-dumb}" = dumb ]; then
        with_signs_of_life "$1"
        return
    fi
    local start=$SECONDS line part='' status step='' failed=0 shown='' text drawn=0 now columns=''
    read -r _ columns < <(stty size <&2 2>/dev/null) || true
    [[ $columns =~ ^[1-9][0-9]*$ ]] || columns=80
    while true; do
        status=0
        # Soon after a line has taken its place, then once a second.
        if [ -n "$shown" ]; then
            IFS= read -r -t 1 line || status=$?
        else
            IFS= read -r -t 0.2 line || status=$?
        fi
        if [ "$status" -gt 128 ]; then
            part+=$line
        else
            line=$part$line
            part=''
            if [[ $line =~ ^\[([0-9]+)/([0-9]+)\]\ (.*) ]]; then
                step="${BASH_REMATCH[1]} of ${BASH_REMATCH[2]}, ${BASH_REMATCH[3]}, "
            elif [ -n "$line" ] || [ "$status" -eq 0 ]; then
                if [[ $line =~ ^\ *([0-9]+)/([0-9]+)\ Test\ +# ]]; then
                    step="${BASH_REMATCH[1]} of ${BASH_REMATCH[2]} tests, "
                    [[ $line != *'***'* ]] || failed=$((failed + 1))
                fi
                [ -z "$shown" ] || printf '\r\033[K' >&2
                shown=''
                printf '%s\n' "$line"
            fi
            if [ "$status" -ne 0 ]; then
                [ -z "$shown" ] || printf '\r\033[K' >&2
                return 0
            fi
        fi
        text="   $step"
        [ "$failed" -eq 0 ] || text+="$failed failed, "
        text+="$((SECONDS - start)) s"
        # Some locales have a comma in it.
        now=${EPOCHREALTIME//[.,]/}
        if [ "$text" != "$shown" ] && [ $((now - drawn)) -ge 200000 ]; then
            printf '\r\033[K%s' "${text:0:columns-1}" >&2
            shown=$text
            drawn=$now
        fi
    done
}

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
                echo "   ${step:-no step is done yet}, $((SECONDS - start)) s"
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
