#!/usr/bin/env bash
# Losing the output device on a real sound server. A private PulseAudio with one null sink plays a
# scenario's loop and one-shot through SDL; the sink is unloaded while both play (the last sink:
# SDL reports the device lost), then a new one is loaded. The output must go sdl -> null -> sdl,
# the session's interruption must begin and then end with should-resume, the one-shot's
# completion must run once, and the loop must be heard on the new sink's monitor.
#
# Usage: pulse-device-loss.sh PATH/TO/vantelo-sounds
# Exit 0 when it passes, 1 when it fails, 77 (skipped) when the sound server is not installed.
# It installs nothing (scripts/install-deps does) and bounds every wait.
set -uo pipefail

readonly kSkip=77
# Wall-clock offsets from scenario time 0, in microseconds.
readonly kUnloadAt=1200000
readonly kReloadAt=2500000
# The new sink's monitor is recorded from at least this long after the reload (and after the
# output is back), for kRecordSeconds; the first kRecordSkip seconds are not measured.
readonly kRecordAfterReload=1000000
readonly kRecordSeconds=1.5
readonly kRecordSkip=0.25
# The pad loop is heard at about 0.1 RMS; silence measures 0.
readonly kHeardRms=0.02
# norewinds=1: without it SDL 2.26.5's PulseAudio backend is starved on a null sink.
readonly kSinkOptions=(sink_name=vsink norewinds=1 rate=48000 channels=2
    sink_properties=device.description=VirtualSink)

cli=${1:?usage: pulse-device-loss.sh PATH/TO/vantelo-sounds}
assets="$(cd "$(dirname "$0")/../../assets" && pwd)"
source "$(dirname "$0")/private-pulse.sh"

for tool in pulseaudio:pulseaudio pactl:pulseaudio-utils parecord:pulseaudio-utils sox:sox; do
    if ! command -v "${tool%%:*}" >/dev/null; then
        echo "SKIP: ${tool%%:*} is not installed (package ${tool#*:}; scripts/install-deps installs it)"
        exit $kSkip
    fi
done

work="$(mktemp -d)"
paPid=""
cliPid=""
recordPid=""
cleanup() {
    for pid in "$recordPid" "$cliPid" "$paPid"; do
        [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
    done
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM HUP

events="$work/events.jsonl"
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}
die() {
    fail "$@"
    showDiagnostics
    exit 1
}
showDiagnostics() {
    echo "--- events ---" >&2
    cat "$events" >&2 2>/dev/null
    echo "--- vantelo-sounds stderr ---" >&2
    cat "$work/cli.err" >&2 2>/dev/null
    echo "--- pulseaudio log (tail) ---" >&2
    tail -n 20 "$work/pa.log" >&2 2>/dev/null
}

# Wall-clock time in microseconds, into REPLY.
now() { REPLY=${EPOCHREALTIME//[.,]/}; }
sleepUntil() {
    now
    local left=$(($1 - REPLY))
    ((left > 0)) && sleep "$(printf '%d.%06d' $((left / 1000000)) $((left % 1000000)))"
    return 0
}
micros() { printf '%d.%06d' $(($1 / 1000000)) $(($1 % 1000000)); }

# The events of one type, one per line.
eventsOfType() { grep -F "\"type\":\"$1\"" "$events" 2>/dev/null; }
# A field of one JSON line: strings without their quotes, numbers and null as written.
field() { sed -n "s/.*\"$1\":\"\{0,1\}\([^\",}]*\).*/\1/p"; }
# Waits until the output events, names joined by spaces, are $1 (bounded by $2 microseconds, $3
# says from when), then puts the time it saw them in REPLY; a failure ends the test.
expectOutputs() {
    now
    local deadline=$((REPLY + $2))
    while [ "$(eventsOfType output | field name | paste -sd' ')" != "$1" ]; do
        if ! kill -0 "$cliPid" 2>/dev/null; then
            wait "$cliPid"
            local status=$? signal=""
            cliPid=""
            ((status > 128)) && signal=", signal $(kill -l $((status - 128)))"
            die "vantelo-sounds ended (status $status$signal) before the output went \"$1\""
        fi
        now
        ((REPLY > deadline)) && die "the output did not go \"$1\" within $(($2 / 1000)) ms $3"
        sleep 0.005
    done
    now
}
# The scenario time of output event $1 (1-based), minus the wall-clock moment $2, in ms.
lagMs() {
    awk -v t="$(eventsOfType output | sed -n "$1p" | field t)" -v w="$(micros $(($2 - origin)))" \
        'BEGIN { printf "%.0f", (t - w) * 1000 }'
}

# --- a private sound server with one sink ---
startPrivatePulse "module-null-sink ${kSinkOptions[*]}"
pa set-default-sink vsink || die "pactl set-default-sink vsink failed"
module="$(pa list short modules | awk '$2 == "module-null-sink" { print $1 }')"

# --- the scenario: a loop and a 2.5 s one-shot from t = 0.2 s, 7 s in all ---
sox -n -r 48000 -c 2 "$work/once.wav" synth 2.5 sine 660 vol 0.3 || die "sox could not make the tone"
cat >"$work/scenario.json" <<EOF
{
  "duration": 7.0,
  "steps": [
    { "at": 0.2, "do": "play", "file": "$assets/pad.ogg", "loop": true, "tag": "loop" },
    { "at": 0.2, "do": "play", "file": "once.wav", "tag": "once" }
  ]
}
EOF
SDL_AUDIODRIVER=pulseaudio timeout -k 5 30 "$cli" run "$work/scenario.json" --realtime \
    --events "$events" >"$work/cli.out" 2>"$work/cli.err" &
cliPid=$!

# Scenario time 0 is when the first output event is written; the script's moments are measured
# from when it sees that event (polled every 5 ms).
expectOutputs "sdl" 10000000 "of the start"
origin=$REPLY

sleepUntil $((origin + kUnloadAt))
now
unloadedAt=$REPLY
pa unload-module "$module" || die "pactl unload-module $module failed"
expectOutputs "sdl null" 3000000 "of the unload"
echo "unload -> null output: $(lagMs 2 "$unloadedAt") ms"

sleepUntil $((origin + kReloadAt))
now
reloadedAt=$REPLY
pa load-module module-null-sink "${kSinkOptions[@]}" >/dev/null || die "pactl load-module failed"
pa set-default-sink vsink || die "pactl set-default-sink vsink failed"
# The reopen backs off up to 2 s between attempts; by then the monitor must still be recordable
# before the run ends.
expectOutputs "sdl null sdl" 2500000 "of the reload"
echo "reload -> sdl output: $(lagMs 3 "$reloadedAt") ms"

recordFrom=$((reloadedAt + kRecordAfterReload))
((recordFrom < REPLY + 200000)) && recordFrom=$((REPLY + 200000))
sleepUntil "$recordFrom"
timeout -s INT -k 2 "$kRecordSeconds" parecord --latency-msec=20 --device=vsink.monitor \
    --channels=1 --file-format=wav "$work/monitor.wav" 2>"$work/parecord.err" &
recordPid=$!
wait "$recordPid"
recordPid=""

wait "$cliPid"
status=$?
cliPid=""

# --- what happened ---
[ "$status" -eq 0 ] || fail "vantelo-sounds exited with status $status"

outputs="$(eventsOfType output)"
names="$(field name <<<"$outputs" | paste -sd' ')"
[ "$names" = "sdl null sdl" ] || fail "output events went \"$names\", expected \"sdl null sdl\""
nullT="$(sed -n 2p <<<"$outputs" | field t)"
backT="$(sed -n 3p <<<"$outputs" | field t)"
# Whether the number $1 is below $2 (times, levels).
below() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a < b) }'; }

interruptions="$(eventsOfType interruption)"
count="$(grep -c . <<<"$interruptions")"
began="$(sed -n 1p <<<"$interruptions")"
ended="$(sed -n 2p <<<"$interruptions")"
if [ "$count" -ne 2 ]; then
    fail "expected 2 interruption events (began, ended), saw $count"
elif [ "$(field interruption <<<"$began")" != 1 ] || below "$(field t <<<"$began")" "$nullT"; then
    fail "the first interruption is not \"began\" (interruption 1) after the loss: $began"
elif [ "$(field interruption <<<"$ended")" != 0 ] || [ "$(field options <<<"$ended")" != 1 ] ||
    below "$(field t <<<"$ended")" "$backT"; then
    fail "the second interruption is not \"ended\" with options 1 after the return: $ended"
fi

onceCount="$(eventsOfType completion | grep -cF '"tag":"once"')"
[ "$onceCount" -eq 1 ] || fail "the one-shot's completion ran $onceCount times, expected once"

rms="$(sox "$work/monitor.wav" -n trim "$kRecordSkip" stat 2>&1 | awk '/^RMS +amplitude/ { print $3 }')"
if [ -z "$rms" ]; then
    fail "the monitor recording could not be measured: $(cat "$work/parecord.err")"
else
    echo "monitor from $(micros $((recordFrom - origin))) s: RMS $rms"
    below "$rms" "$kHeardRms" &&
        fail "the loop is not heard on the new sink: monitor RMS $rms, expected above $kHeardRms"
fi

if [ "$failures" -gt 0 ]; then
    showDiagnostics
    exit 1
fi
echo "PASS: sdl -> null -> sdl, began then ended with resume, one completion, loop heard"
