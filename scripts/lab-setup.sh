#!/usr/bin/env bash
# Prepares a lab machine for the test account USER. Run once as root; a
# second run changes nothing. Says what it changed and what is left to do.
#
#   lab-setup.sh USER [RTPRIO]
#
# - USER joins the groups lp (parallel ports through ppdev) and dialout
#   (serial ports).
# - USER may raise the program's priority without root: a limits entry
#   (/etc/security/limits.d/ixmod.conf) allows real-time priority up to
#   RTPRIO (default 50, the program's "realtime-priority"), nice -10 and
#   locked memory. A limits entry is chosen over a file capability on the
#   program: it is given to this account only (not to everyone who can
#   start the program), it survives updates of the package (a capability is
#   lost whenever the file is replaced), and it does not put the program in
#   secure mode, where the C library ignores parts of the environment.
# - The ppdev module is loaded now and at every boot.
set -u
user=${1:-}
rtprio=${2:-50}
if [ -z "$user" ] || [ "$user" = "-h" ] || [ "$user" = "--help" ]; then
  echo "usage: $0 USER [RTPRIO]" >&2
  exit 2
fi
if [ "$(id -u)" -ne 0 ]; then
  echo "$0: run as root (sudo $0 $user)" >&2
  exit 2
fi
if ! id "$user" >/dev/null 2>&1; then
  echo "$0: no user $user" >&2
  exit 2
fi
case $rtprio in
  ''|*[!0-9]*) echo "$0: RTPRIO must be 1..99" >&2; exit 2 ;;
esac
if [ "$rtprio" -lt 1 ] || [ "$rtprio" -gt 99 ]; then
  echo "$0: RTPRIO must be 1..99" >&2
  exit 2
fi

changed=0
left=()
say() { printf '%-9s %s\n' "$1" "$2"; }

for group in lp dialout; do
  if ! getent group "$group" >/dev/null; then
    say "missing:" "group $group does not exist on this machine"
    left+=("create the group $group, then run this again")
  elif id -nG "$user" | tr ' ' '\n' | grep -qx "$group"; then
    say "kept:" "$user is in $group"
  else
    usermod -aG "$group" "$user" && say "changed:" "$user added to $group" && changed=1
    left+=("$user logs out and in again, so that the new groups apply")
  fi
done

limits=/etc/security/limits.d/ixmod.conf
want="# Written by lab-setup.sh: the test may raise its priority.
$user - rtprio $rtprio
$user - nice -10
$user - memlock unlimited"
if [ -f "$limits" ] && grep -q "^$user - rtprio $rtprio\$" "$limits" && grep -q "^$user - nice -10\$" "$limits" &&
   grep -q "^$user - memlock unlimited\$" "$limits"; then
  say "kept:" "$limits allows $user real-time priority $rtprio, nice -10, locked memory"
else
  mkdir -p /etc/security/limits.d
  others=""
  [ -f "$limits" ] && others=$(grep -v -e "^$user " -e '^# Written by lab-setup.sh' "$limits")
  { echo "$want"; [ -n "$others" ] && echo "$others"; } > "$limits"
  say "changed:" "$limits allows $user real-time priority $rtprio, nice -10, locked memory"
  changed=1
  left+=("$user logs out and in again, so that the limits apply (check: ulimit -r -e shows $rtprio and 30)")
fi
if ! grep -qs pam_limits /etc/pam.d/common-session /etc/pam.d/common-session-noninteractive; then
  left+=("limits are applied at login by pam_limits, which /etc/pam.d/common-session does not load here: add the line 'session required pam_limits.so' to it or to the display manager's PAM file")
fi

modules=/etc/modules-load.d/ixmod.conf
if grep -qsx ppdev "$modules"; then
  say "kept:" "$modules loads ppdev at boot"
else
  mkdir -p /etc/modules-load.d
  echo ppdev >> "$modules"
  say "changed:" "$modules loads ppdev at boot"
  changed=1
fi
if [ -d /sys/module/ppdev ]; then
  say "kept:" "ppdev is loaded"
elif modprobe ppdev 2>/dev/null; then
  say "changed:" "ppdev loaded"
  changed=1
else
  left+=("the ppdev module could not be loaded: a kernel without it cannot reach parallel ports through /dev/parport*")
fi

cat <<'EOF'

About parallel ports: the program reaches a port through ppdev (/dev/parport0,
group lp), by direct I/O at an address such as 0x378 (only as root), or as a
simulated port in a file. The printer driver, module lp, claims every port it
finds; a port it holds cannot be claimed ("unload the lp module" in the log).
Where no printer is on the port, unload it (modprobe -r lp) and keep it from
loading (a line "blacklist lp" in /etc/modprobe.d/ixmod-lp.conf).
EOF
if [ -d /sys/module/lp ]; then
  left+=("the lp module is loaded and holds the parallel ports: modprobe -r lp, and blacklist it if no printer needs it")
fi
if ! ls /dev/parport* >/dev/null 2>&1; then
  left+=("no /dev/parport* on this machine: set lpt1-device in the configuration to the port's address, or fit a parallel port card")
fi

echo
[ "$changed" -eq 0 ] && echo "Nothing changed: the machine was set up already."
left+=("as $user, run: ixmod -check -cfg=YOUR.cfg  (status 0: fit; every row marked NO says what is missing)")
echo "Left to do:"
printf '%s\n' "${left[@]}" | awk '!seen[$0]++ { print "  - " $0 }'
