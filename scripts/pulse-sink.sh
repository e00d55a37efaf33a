# Sourced by the benchmark scripts: a private PulseAudio server with a null
# sink, which plays at its own pace in real time, made the ALSA default
# device of a scratch HOME (ALSA's pulse plugin).
#
#   pulse_start DIR RATE         0 when the server answers; it logs to DIR/pulse.log
#   pulse_stop                   stops the server (also safe when none runs)
#   sound_output DIR             the server, else an ALSA file device in DIR; says which
#   on_display CMD...            runs CMD on the display there is, else on a private Xvfb
pulse_pid=""
# The server plays in real time on a machine that may be busy: where the
# user may, it runs at a real-time priority, as a sound server does on a
# desktop (the sink's thread asks for one itself, above a spinning
# real-time benchmark at 50; the main thread and the recorder through chrt).
# IXMOD_BENCH_SOUND_RT=no keeps all of it at normal priority instead: its
# real-time threads run on whichever core they can take at once, often the
# run loop's (docs/platform.md, "Processor").
pulse_rt=""
pulse_realtime=yes
if [ "${IXMOD_BENCH_SOUND_RT:-yes}" = no ]; then
  pulse_realtime=no
elif chrt -f 60 true 2>/dev/null; then
  pulse_rt="chrt -f 60"
fi

pulse_start() {
  local dir=$1 rate=$2
  command -v pulseaudio >/dev/null && command -v pactl >/dev/null || return 1
  # Private to this run: its own HOME, runtime and state folders and
  # socket, no default script, no idle exit.
  mkdir -p "$dir/run" "$dir/state" "$dir/.config/pulse"
  printf 'realtime-priority = 70\nrealtime-scheduling = %s\n' "$pulse_realtime" >"$dir/.config/pulse/daemon.conf"
  export HOME="$dir" XDG_RUNTIME_DIR="$dir/run" XDG_CONFIG_HOME="$dir/.config" PULSE_RUNTIME_PATH="$dir/run" \
    PULSE_STATE_PATH="$dir/state" PULSE_SERVER="unix:$dir/pulse.sock"
  unset PULSE_SINK PULSE_SOURCE
  pulseaudio -n --daemonize=no --use-pid-file=no --exit-idle-time=-1 --log-target=stderr --log-level=info \
    --realtime=$pulse_realtime --high-priority=$pulse_realtime \
    -L "module-native-protocol-unix socket=$dir/pulse.sock auth-anonymous=1" \
    -L "module-null-sink sink_name=bench rate=$rate channels=2 format=s16le" >"$dir/pulse.log" 2>&1 &
  pulse_pid=$!
  for _ in $(seq 1 100); do
    pactl info >/dev/null 2>&1 && break
    kill -0 "$pulse_pid" 2>/dev/null || break
    sleep 0.05
  done
  pactl info >/dev/null 2>&1 || return 1
  # The server puts its main thread (the clients' requests) back to normal
  # scheduling when it starts.
  [ -n "$pulse_rt" ] && chrt -f -p 60 "$pulse_pid" >/dev/null 2>&1
  printf 'pcm.!default { type pulse server "unix:%s/pulse.sock" }\nctl.!default { type pulse server "unix:%s/pulse.sock" }\n' \
    "$dir" "$dir" >"$dir/.asoundrc"
  return 0
}

pulse_stop() {
  [ -n "$pulse_pid" ] || return 0
  kill "$pulse_pid" 2>/dev/null
  for _ in $(seq 1 20); do
    kill -0 "$pulse_pid" 2>/dev/null || break
    sleep 0.05
  done
  kill -KILL "$pulse_pid" 2>/dev/null
  wait "$pulse_pid" 2>/dev/null
  pulse_pid=""
}

# The server's threads and their scheduling, e.g. "pulseaudio FF 60, null-sink RR 70".
pulse_threads() {
  ps -L -o comm=,cls=,rtprio= -p "$pulse_pid" 2>/dev/null |
    awk '{ printf "%s%s %s%s", sep, $1, $2, ($3 == "-" ? "" : " " $3); sep = ", " }'
}

sound_output() {
  if pulse_start "$1" 44100; then
    echo "sound output: a private PulseAudio null sink (paced); its threads: $(pulse_threads)"
  else
    printf 'pcm.!default { type file slave.pcm "null" file "%s/sound.raw" format "raw" }\n' "$1" >"$1/.asoundrc"
    export HOME="$1"
    echo "sound output: an ALSA file device (no sound server could be started; not paced)"
  fi
}

on_display() {
  if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
    "$@"
  else
    "$repo/scripts/xvfb-run.sh" "$@"
  fi
}

# The start of a run of the benchmark or the soak: a scratch folder ($work,
# removed at exit with the sound server), the start time and a title line.
run_start() {
  work=$(mktemp -d)
  trap 'pulse_stop; rm -rf "$work"' EXIT
  trap 'exit 1' INT TERM
  started=$(date +%s)
  echo "$1, $(nproc) cores, $(uname -sr)"
}
