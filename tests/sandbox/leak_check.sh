#!/usr/bin/env bash
# Runs virtual gateways from outside and checks that none left anything on
# the machine: namespaces, mounts, processes, files, links, host name.
# shellcheck disable=SC2016,SC2034 # check() evaluates its condition later
set -uo pipefail
VGW=$(dirname "$(readlink -f "$0")")/../../tools/vgw/vgw
failed=0
check() { if eval "$2"; then echo "ok   $1"; else echo "FAIL $1"; failed=1; fi; }

tag=vgw-leak-$$ nap=$((100000 + $$)) # names no other run uses
netns=$(ip netns list) links=$(ip -br link) name=$(hostname)

"$VGW" run -- bash -c "
    set -e
    sleep $nap &
    vgw lan up
    vgw host add pc eth1 02:00:00:00:20:01 192.168.1.10/24
    vgw host exec pc sleep $((nap + 1)) &
    vgw host exec pc ping -c 1 -W 2 192.168.1.1 >/dev/null
    vgw usb plug sda1 2>/dev/null && vgw usb plug sdb1 2>/dev/null && mkdir /mnt/x && mount /dev/sdb1 /mnt/x
    echo x > /etc/$tag; echo x > /tmp/$tag; hostname $tag"
rc=$?; check "CMD succeeded" '[ $rc = 0 ]'
"$VGW" run -- false
rc=$?; check "exit status 1 of CMD" '[ $rc = 1 ]'
"$VGW" run -- sh -c 'exit 7'
rc=$?; check "exit status 7 of CMD" '[ $rc = 7 ]'

# A SIGTERM to vgw alone (unshare would ignore it) ends the whole sandbox.
"$VGW" run -- bash -c "sleep $((nap + 2)) & exec sleep 60" 2>/dev/null &
run=$!
for _ in $(seq 50); do pgrep -f "^sleep $((nap + 2))\$" >/dev/null && break; sleep 0.1; done
start=$SECONDS
kill -TERM $run
wait $run
rc=$?; check "SIGTERM ends the sandbox at once" '[ $rc = 137 ] && [ $((SECONDS - start)) -lt 5 ]'

check "no process left" '! pgrep -f "^sleep ($nap|$((nap + 1))|$((nap + 2)))\$" >/dev/null'
check "no network namespace left" '[ "$(ip netns list)" = "$netns" ]'
check "the machine's links untouched" '[ "$(ip -br link)" = "$links" ]'
check "no mount left" '! grep -q vgw /proc/self/mountinfo'
check "no loop device left, mounted or not" '! losetup -a | grep -q "/vgw/usb/"'
check "no temporary directory left" '! compgen -G "/tmp/vgw.*" >/dev/null'
check "/etc and /tmp untouched" '[ ! -e /etc/$tag ] && [ ! -e /tmp/$tag ]'
check "host name untouched" '[ "$(hostname)" = "$name" ]'
exit $failed
