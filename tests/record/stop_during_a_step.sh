#!/usr/bin/env bash
# The camera's shell recording a station run is stopped by SIGNAL while a step's command waits
# (CLI_LvdsTrain in the test firmware never returns): it must end by that signal, as it would
# without the recording, and leave the recording of the run up to there.
#   stop_during_a_step.sh SIGNAL SHELL RECORDER CMAKE WORK
set -u
signal=$1 shell=$2 recorder=$3 cmake=$4 work=$5
here=$(dirname "$0")
rm -rf "$work"
mkdir -p "$work"
# A background job of a script starts with SIGINT ignored; the station's shell has it at its default.
env --default-signal="$signal" CLIDRIVER_RECORDER="$recorder" \
    "$shell" --record "$work/recording" "$here/stopped.cli" >"$work/out.txt" 2>&1 &
pid=$!
for _ in $(seq 300); do
    grep -q "LVDS training: waiting for the sensor to lock" "$work/out.txt" && break
    sleep 0.1
done
if ! grep -q "LVDS training: waiting for the sensor to lock" "$work/out.txt"; then
    echo "the run never reached its waiting step:"
    cat "$work/out.txt"
    kill -KILL "$pid"
    exit 1
fi
kill -"$signal" "$pid"
wait "$pid"
status=$?
want=$((128 + $(kill -l "$signal")))
if [[ $status -ne $want ]]; then
    echo "the shell stopped by SIG$signal exited $status, not $want (ended by the signal):"
    cat "$work/out.txt"
    exit 1
fi
"$cmake" -DSCENARIO="$work/recording/scenario.toml" -P "$here/check_cut_off_recording.cmake" || exit 1
echo "stopped by SIG$signal during step 2: exit $status, recording kept"
