#!/usr/bin/env bash
# Recording through a real sound server. A private PulseAudio has a null sink whose monitor,
# remapped as an ordinary microphone, is the default source: the library plays a 1 kHz tone on the
# sink and records the default microphone through SDL, and the recording must hold the tone.
#
# Usage: pulse-recording.sh PATH/TO/vantelo-sounds
# Exit 0 when it passes, 1 when it fails, 77 (skipped) when the sound server is not installed.
set -uo pipefail

readonly kSkip=77
readonly kSinkOptions=(sink_name=vsink norewinds=1 rate=48000 channels=2
    sink_properties=device.description=VirtualSink)

cli=${1:?usage: pulse-recording.sh PATH/TO/vantelo-sounds}
source "$(dirname "$0")/private-pulse.sh"
for tool in pulseaudio:pulseaudio pactl:pulseaudio-utils sox:sox ffmpeg:ffmpeg ffprobe:ffmpeg; do
    if ! command -v "${tool%%:*}" >/dev/null; then
        echo "SKIP: ${tool%%:*} is not installed (package ${tool#*:}; scripts/install-deps installs it)"
        exit $kSkip
    fi
done

work="$(mktemp -d)"
paPid=""
trap '[ -n "$paPid" ] && kill "$paPid" 2>/dev/null && wait "$paPid" 2>/dev/null; rm -rf "$work"' EXIT
die() {
    echo "FAIL: $*" >&2
    for file in events.jsonl cli.err; do
        echo "--- $file ---" >&2
        cat "$work/$file" >&2 2>/dev/null
    done
    echo "--- pulseaudio log (tail) ---" >&2
    tail -n 20 "$work/pa.log" >&2 2>/dev/null
    exit 1
}

startPrivatePulse "module-null-sink ${kSinkOptions[*]}" \
    "module-remap-source master=vsink.monitor source_name=vmic"
pa set-default-sink vsink && pa set-default-source vmic || die "pactl set-default failed"

sox -n -r 48000 -c 2 "$work/tone.wav" synth 1.0 sine 1000 vol 0.5 || die "sox could not make the tone"
cat >"$work/scenario.json" <<EOF2
{
  "duration": 3.0,
  "recordPermission": "granted",
  "microphone": { "device": true },
  "steps": [
    { "at": 0.0, "do": "play", "file": "tone.wav", "loop": true },
    { "at": 0.5, "do": "startRecording", "maxDuration": 1.5, "tag": "rec" }
  ]
}
EOF2
mkdir -p "$work/cache"
XDG_CACHE_HOME="$work/cache" SDL_AUDIODRIVER=pulseaudio timeout -k 5 30 "$cli" run \
    "$work/scenario.json" --realtime --events "$work/events.jsonl" >"$work/cli.out" 2>"$work/cli.err" ||
    die "vantelo-sounds exited with status $?"

file="$work/cache/tmpRecording.m4a"
grep -F '"tag":"rec"' "$work/events.jsonl" | grep -qF "\"url\":\"$file\",\"error\":null" ||
    die "the recording's completion did not receive the file"
stream="$(ffprobe -v error -show_entries stream=codec_name,sample_rate,channels -of csv=p=0 "$file")"
[ "$stream" = "aac,16000,1" ] || die "the file is \"$stream\", expected aac,16000,1"
ffmpeg -v error -i "$file" -ac 1 "$work/recorded.wav" || die "the recording does not decode"
seconds="$(soxi -D "$work/recorded.wav")"
stats="$(sox "$work/recorded.wav" -n trim 0.2 stat 2>&1)"
rms="$(awk '/RMS +amplitude/ { print $3 }' <<<"$stats")"
hz="$(awk '/Rough +frequency/ { print $3 }' <<<"$stats")"
echo "recorded ${seconds} s, RMS ${rms}, ${hz} Hz"
awk -v s="$seconds" -v r="$rms" -v f="$hz" \
    'BEGIN { exit !(s > 1.35 && s < 1.65 && r > 0.1 && f > 980 && f < 1020) }' ||
    die "the recording does not hold the tone for 1.5 s"
