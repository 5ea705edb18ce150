#!/bin/sh
# observer.sh PROGRAM DEMO DELETER DIRECTORY EXISTING ADDED
#
# Runs the program on reports of which one is there before it starts, and another comes. It gets its
# Enter when it has told that both are gone. What it prints is in the file "told" of the directory.
set -eu
program=$1 demo=$2 deleter=$3 directory=$4 existing=$5 added=$6

wait_for() {
  tries=0
  until grep -q "^$1\$" "$directory/told"; do
    tries=$((tries + 1))
    [ $tries -lt 3000 ]
    sleep 0.01
  done
}

"$demo" --role watcher "$directory" "$existing"
mkfifo "$directory/input"
: >"$directory/told"
"$program" "$directory/reports" <"$directory/input" >"$directory/told" &
exec 3>"$directory/input"
wait_for "$existing existing"
"$demo" --role watcher "$directory" "$added"
wait_for "$added added"
"$demo" --role consent "$directory" "$added"
wait_for "$added updated"
"$deleter" "$directory/reports"
wait_for "$existing removed"
wait_for "$added removed"
echo >&3
wait $!
