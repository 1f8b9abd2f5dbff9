#!/bin/sh
# The main application as a script: says that it was started, stays for a while, and ends when it is told to.
echo "started $$ $(date +%s)" >>"${ORVIN_HELLO:-${XDG_DATA_HOME:-$HOME/.local/share}/orvin-hello}"
sleep "${ORVIN_STAY:-8}" &
trap 'kill $!; exit 0' TERM INT
wait $!
