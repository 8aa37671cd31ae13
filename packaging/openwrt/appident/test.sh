#!/bin/sh
# Run by the package tree's checks: test.sh PACKAGE VERSION, on the target's root.
set -eu

case "$1" in
appident)
	[ -x /usr/sbin/appident ]
	sh -n /etc/init.d/appident
	# The gate lets the program through: at once when the clock is set, after the time limit when it never is.
	mark=$(mktemp)
	[ "$(APPIDENT_CLOCK_MARK=$mark /usr/lib/appident/clock-gate 60 echo started)" = started ]
	rm "$mark"
	[ "$(APPIDENT_CLOCK_MARK=$mark /usr/lib/appident/clock-gate 1 echo started)" = started ]
	;;
appidentctl)
	appidentctl --version | grep -qF "$2"
	;;
esac
