#!/bin/sh
# Lease-change script of dnsmasq: reports each granted lease to the host
# tracker as "MAC,SECONDS,IP,NAME", with "*" for a client that gave no name.
# dnsmasq calls it with ACTION MAC IP [NAME].
[ "$1" = add ] || [ "$1" = old ] || exit 0
exec python3 "$(dirname "$0")/send.py" unix /tmp/leasetime_unix "$2,${DNSMASQ_TIME_REMAINING:-0},$3,${4:-*}"
