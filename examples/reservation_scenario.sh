#!/bin/sh
# Two hosts share a disk of the simulated array by persistent reservations: both register, one
# reserves, the other meets the conflict, takes over, and lets go. Shows each command and what it
# answers; ends with status 1 at the first answer that is not the expected one.
#
# usage: reservation_scenario.sh [KZDDL]    KZDDL: the tool, if it is not in the PATH
set -eu

kzddl=${1:-kzddl}
disk=/dev/sda
store=$(mktemp -d)
trap 'rm -r "$store"' EXIT

step() { printf '\n== %s\n' "$1"; }

# expect STATUS TEXT HOST ARGUMENT...: runs the tool on HOST; it must end with STATUS, and TEXT
# must be in what it says.
expect() {
  status=$1 text=$2 host=$3
  shift 3
  echo "$host\$ kzddl $*"
  result=0
  "$kzddl" --sim --sim-store "$store" --sim-host "$host" "$@" > "$store/said" 2>&1 < /dev/null ||
    result=$?
  sed 's/^/    /; s/ *$//' "$store/said"
  if [ "$result" -ne "$status" ] || ! grep -qF -- "$text" "$store/said"; then
    echo "NOT AS EXPECTED: status $result instead of $status, or no \"$text\""
    exit 1
  fi
}

printf '%-511s\n' "written by host-a" > "$store/block"

step "Both hosts register a key"
expect 0 "Reservation  none" host-a reservations $disk register --new-key a1
expect 0 "00000000000000A1 00000000000000B1" host-b reservations $disk register --new-key b1

step "host-a takes the disk for itself"
expect 0 "exclusive access" host-a reservations $disk reserve --key a1 --type exclusive-access
expect 0 "" host-a write $disk --lba 0 --in "$store/block" --yes

step "host-b meets the reservation"
expect 1 "RESERVATION CONFLICT" host-b read $disk --lba 0 --count 1
expect 1 "RESERVATION CONFLICT" host-b write $disk --lba 0 --in "$store/block" --yes
expect 1 "reserved by another host" host-b reserved $disk
expect 0 "free" host-a reserved $disk
expect 1 "RESERVATION CONFLICT" host-b \
  reservations $disk reserve --key b1 --type exclusive-access

step "host-b takes over: host-a's registration is gone, and it is told so once"
expect 0 "00000000000000B1" host-b \
  reservations $disk preempt --key b1 --new-key a1 --type exclusive-access
expect 1 "REGISTRATIONS PREEMPTED" host-a send $disk --cdb "00 00 00 00 00 00"
expect 0 "ready" host-a ready $disk
expect 1 "RESERVATION CONFLICT" host-a read $disk --lba 0 --count 1
expect 0 "written by host-a" host-b read $disk --lba 0 --count 1

step "host-b lets go"
expect 0 "Reservation  none" host-b reservations $disk release --key b1 --type exclusive-access
expect 0 "Keys         none" host-b reservations $disk register --key b1 --new-key 0
expect 0 "written by host-a" host-a read $disk --lba 0 --count 1

printf '\nAll as expected.\n'
