#!/bin/sh
# Run by the package tree's checks: test.sh PACKAGE VERSION, on the target's root.
set -eu

case "$1" in
appident)
	[ -x /usr/sbin/appident ]
	sh -n /etc/init.d/appident
	# The gate lets the program through at once on a box that has been up for longer than the limit.
	[ "$(/usr/libexec/appident/clock-gate 0 echo started)" = started ]
	/usr/libexec/appident/reserve-names appident /tmp/.appident.ipc
	[ -f /tmp/.appident.ipc ]
	;;
appident-feed)
	sh -n /etc/init.d/appident-feed
	appident-feed --version | grep -qF "$2"
	;;
appident-home)
	sh -n /etc/init.d/appident-home
	appident-home --version | grep -qF "$2"
	;;
appidentctl)
	appidentctl --version | grep -qF "$2"
	;;
esac
