# shellcheck shell=bash disable=SC2154
# Sourced by tst_package.sh. The first day of a till on which the package was just installed: a service
# accepts, one refuses for good, one is away and comes back, and queuectl alone is asked what became of it.

ctl() { QUEUE_ROOT=$root LC_ALL=C.UTF-8 "$root/usr/bin/queuectl" "$@" 2>&1; }
ctl_ru() { QUEUE_ROOT=$root LC_ALL=ru_RU.UTF-8 "$root/usr/bin/queuectl" "$@" 2>&1; }

# says PATTERN COMMAND...: an extended regular expression in its output; it shows all of it otherwise.
says() {
    local pattern=$1 output
    shift
    output=$("$@")
    grep -qE -- "$pattern" <<<"$output" || {
        echo "$output"
        false
    }
}
# ends_with CODE COMMAND...
ends_with() {
    local code=0
    "${@:2}" >"$work/output" || code=$?
    [ "$code" -eq "$1" ] || {
        cat "$work/output"
        echo "  exit code $code"
        false
    }
}
# until_true COMMAND...: within 20 seconds.
until_true() {
    local end=$((SECONDS + 20))
    until "$@" >"$work/output" 2>&1; do
        [ "$SECONDS" -lt "$end" ] || {
            cat "$work/output"
            return 1
        }
        sleep 0.2
    done
}

next_port=28100
# take_port NAME: sets NAME to a port that nobody listens on.
take_port() {
    while (exec 3<>"/dev/tcp/127.0.0.1/$next_port") 2>/dev/null; do next_port=$((next_port + 1)); done
    printf -v "$1" %s "$next_port"
    next_port=$((next_port + 1))
}

stands=()
# play PORT TYPE OPTION...: the outside service of a type, for as long as the test wants it; sets $played.
play() {
    LC_ALL=C.UTF-8 "$root/usr/bin/queue-stand" --scenarios "$root/usr/share/queue-stand/scenarios" \
        --port "$1" --type "${@:2}" >"$work/stand-$1.log" 2>&1 </dev/null &
    played=$!
    stands+=("$played")
    until_true grep -q 'Ctrl+C ends it' "$work/stand-$1.log"
}
end_stands() {
    local process
    for process in "${stands[@]}"; do
        kill "$process" 2>/dev/null && wait "$process" 2>/dev/null
    done
    stands=()
}

# put_row TYPE BODY OPTION...
put_row() {
    printf %s "$2" >"$work/body.json"
    ctl put "$1" "$work/body.json" "${@:3}" >"$work/output" && ctl start "$1" >"$work/output"
}

# tried COUNT: that many messages are on record.
tried() { [ "$(ctl history --json | grep -c '^{')" -ge "$1" ]; }

first_day() {
    local accepting declining troubled trouble
    take_port accepting
    take_port declining
    take_port troubled

    check "without settings the service answers" until_true ctl errors
    check "an installation without rows is nothing to warn of" \
        same "$(ctl doctor | grep -E '^warning +(journal|rows|database|port)')" ""
    check "nor for a monitoring server" says '^QUEUE OK - ' ctl check --dropped

    check "a service that accepts is played" play "$accepting" heineken
    check "one that refuses for good is played" play "$declining" raiffeisensbp --state refundStatus=DECLINED
    check "one in trouble is played" play "$troubled" cardlab --status 503
    trouble=$played
    local at=http://127.0.0.1
    check "a receipt is written" put_row heineken \
        "{\"url\": \"$at:$accepting/sales\", \"body\": \"{\\\"receipt\\\": \\\"4711\\\"}\"}" --card 7770001112220017
    check "a refund is written" put_row raiffeisensbp \
        "{\"urls\": [\"$at:$declining/qr\", \"$at:$declining/refunds\", \"$at:$declining/refunds/state\"],
          \"body\": \"{\\\"order\\\": \\\"4711\\\", \\\"refundId\\\": \\\"R7\\\"}\"}"
    check "an operation of a card is written" put_row cardlab \
        "{\"url\": \"$at:$troubled/cards\", \"body\": \"{\\\"receipt\\\": \\\"5001\\\"}\"}"

    check "each of them has been tried" until_true tried 3

    # What was dropped today, and why?
    check "what was dropped today, and why" says 'raiffeisensbp +dropped .* 4711 R7 .*DECLINED$' \
        ctl history --verdict dropped --since today
    check "and nothing else was" same "$(ctl history --verdict dropped --since today | wc -l)" 2
    check "in Russian" says 'raiffeisensbp +снято с доставки .* 4711 R7 .*DECLINED$' \
        ctl_ru history --verdict dropped --since today

    # What became of receipt 4711?
    check "what became of receipt 4711: it was delivered" says 'heineken +delivered +1 +[*]{4}0017 +4711 ' \
        ctl history --reference 4711 --since yesterday
    check "and its refund was not" says 'raiffeisensbp +dropped ' ctl history --reference 4711 --since yesterday
    check "by its number" says '^Message 1 \(heineken, 4711, card [*]{4}0017\) was delivered at ' ctl why 1
    check "the refund by its number" says 'was dropped at .*the service did not do what was asked.*DECLINED' ctl why 2
    check "in Russian" says '^Сообщение 2 .*снято с доставки в .*сервис его не выполнил: .*DECLINED' ctl_ru why 2

    # May the shift be closed?
    check "the shift may not be closed" ends_with 1 ctl settle --wait 1
    check "what blocks it, and who must act" says "^cardlab: the operator of 127.0.0.1:$troubled must" \
        ctl settle --wait 0
    check "in Russian" says '^Смену закрывать рано: .*\(1\)' ctl_ru settle --wait 0
    check "a service is away" says '^[0-9:]+ +- .*cardlab +1  .*503' ctl outages
    check "that a start may pass the refused row over is said" says '^Row 3 was refused before' ctl start cardlab
    kill "$trouble"
    wait "$trouble" 2>/dev/null
    check "the service is back" play "$troubled" cardlab
    check "the shift may be closed" ends_with 0 ctl settle --wait 30
    check "what was not done is not forgotten" says '^Dropped: raiffeisensbp: 1 ' ctl settle
    check "in Russian" says '^Смену можно закрыть: ' ctl_ru settle

    # Which services were away, and when?
    check "which services were away, and when" says '^([0-9]{2}:[0-9:]{5} +){2}[0-9].* cardlab +1 ' ctl outages
    check "and no others" same "$(ctl outages | grep -cE '^[0-9]{2}:')" 1
    check "in Russian" says '^([0-9]{2}:[0-9:]{5} +){2}[0-9].* cardlab +1 ' ctl_ru outages --since yesterday
    check "nothing waits" says '^Nothing waits\.$' ctl status
    end_stands
}
