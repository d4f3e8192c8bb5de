# Sourced by the device tests: starts a private PulseAudio whose runtime folder and socket live in
# "$work", with no D-Bus and never autospawned, and points SDL and libpulse at it. Arguments:
# --load options for the server's modules (the protocol module comes first). Sets paPid; a test's
# cleanup kills it. Needs die() and $work from the caller.
pa() { timeout 5 pactl "$@"; }

startPrivatePulse() {
    mkdir -p "$work/runtime" "$work/state"
    chmod 700 "$work/runtime"
    echo "autospawn = no" >"$work/client.conf"
    export XDG_RUNTIME_DIR="$work/runtime" PULSE_RUNTIME_PATH="$work/runtime"
    export PULSE_STATE_PATH="$work/state" PULSE_CLIENTCONFIG="$work/client.conf"
    export PULSE_SERVER="unix:$work/runtime/native" SDL_NO_SIGNAL_HANDLERS=1
    unset DBUS_SESSION_BUS_ADDRESS VANTELO_SOUNDS_OUTPUT
    # Under the sanitizers, what the uninstrumented sound libraries do themselves is not reported:
    # SDL 2.26.5's PulseAudio hotplug thread never releases the operations it starts when a sink
    # comes or goes, and libpulse's lock-free memory pools look like races to ThreadSanitizer.
    # Reports with our own code on top are still made.
    echo "leak:pa_xmalloc" >"$work/lsan.supp"
    printf 'race:libpulse\nrace:libSDL2\n' >"$work/tsan.supp"
    export LSAN_OPTIONS="suppressions=$work/lsan.supp:print_suppressions=0${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
    export TSAN_OPTIONS="suppressions=$work/tsan.supp:print_suppressions=0${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
    local loads=(--load="module-native-protocol-unix socket=$work/runtime/native auth-anonymous=1")
    for module in "$@"; do
        loads+=(--load="$module")
    done
    # The outer timeout only matters if the test is killed before its trap can run.
    timeout -k 2 60 pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no \
        "${loads[@]}" >"$work/pa.log" 2>&1 &
    paPid=$!
    for _ in $(seq 1 250); do
        pa info >/dev/null 2>&1 && return 0
        sleep 0.02
    done
    die "the private PulseAudio did not answer within 5 s"
}
