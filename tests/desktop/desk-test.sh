#!/usr/bin/env bash
# The companion on a real desktop brought up headless by the desk kit, with the desktop's own
# tray host and input path: the item registers, a click on the icon opens the panel, and
# Escape, a click elsewhere and the icon each close it again.
#   desk-test.sh DESKTOP ICON_X ICON_Y PLATFORM...
# Exit 77 (skipped) without the kit or root; the kit installs the desktop's packages itself.
set -uo pipefail
desktop=$1 ix=$2 iy=$3
shift 3
: "${HARKLINE_MENUBAR:?}" "${HARKLINE_DEMO_DAEMON:?}"

desk=${HARKLINE_DESK:-}
for candidate in "$desk" "$(dirname "$0")/../../../shared/desktops/desk" /work/shared/desktops/desk; do
  [ -n "$candidate" ] && [ -x "$candidate" ] && desk=$candidate && break
done
[ -x "$desk" ] || { echo "SKIP: no desk kit (set HARKLINE_DESK)"; exit 77; }
[ "$(id -u)" = 0 ] || { echo "SKIP: the desk kit needs root"; exit 77; }

# Wayland desktops run as nobody: the programs go where that user can read them.
bin=$(mktemp -d /tmp/harkline-desk.XXXXXX)
chmod 755 "$bin"
cp "$HARKLINE_MENUBAR" "$HARKLINE_DEMO_DAEMON" "$bin/"
menubar=$bin/$(basename "$HARKLINE_MENUBAR")
daemon=$bin/$(basename "$HARKLINE_DEMO_DAEMON")

id=$("$desk" up "$desktop" 2>/dev/null) || { echo "FAIL: desk up $desktop"; rm -rf "$bin"; exit 1; }
trap '"$desk" down "$id" >/dev/null 2>&1; rm -rf "$bin"' EXIT
failures=0
fail() { echo "FAIL: $desktop/$platform: $*"; failures=$((failures + 1)); }
run() { "$desk" run "$id" -- "$@" 2>/dev/null; }
act() { "$desk" "$1" "$id" "${@:2}" >/dev/null 2>&1 || true; }

# Whether the panel is mapped: from the compositor's tree on sway, from X elsewhere.
panel_shown() {
  case $desktop in
  sway) run swaymsg -t get_tree | grep -q '"name": "harkline"' ;;
  *) run xdotool search --onlyvisible --name '^harkline$' >/dev/null ;;
  esac
}
# wait_for STATE: the panel reaches "shown" or "hidden" within 5 s.
wait_for() {
  local i
  for i in $(seq 50); do
    if panel_shown; then [ "$1" = shown ] && return 0; else [ "$1" = hidden ] && return 0; fi
    sleep 0.1
  done
  return 1
}
# Escape to the panel. sway's virtual keyboard (wtype) reaches Wayland clients but here never an
# XWayland one, whatever has the focus: there the key goes in through XTEST, once the X server
# says the panel has the keyboard focus.
escape() {
  if [ "$desktop/$platform" = sway/xcb ]; then
    local i focused=
    for i in $(seq 50); do
      [ "$(run xdotool getwindowfocus getwindowname)" = harkline ] && focused=1 && break
      sleep 0.1
    done
    [ -n "$focused" ] || fail "no keyboard focus within 5 s"
    run xdotool key Escape
  else
    act key Escape
  fi
}
registered() {
  run dbus-send --session --print-reply --dest=org.kde.StatusNotifierWatcher \
    /StatusNotifierWatcher org.freedesktop.DBus.Properties.Get \
    string:org.kde.StatusNotifierWatcher string:RegisteredStatusNotifierItems |
    grep -q "StatusNotifierItem-"
}
# A point of the screen far from the icon and from the panel, which opens by the icon or in
# the middle of the screen.
ox=40 oy=$((iy < 400 ? 700 : 100))

"$desk" run -b "$id" -- "$daemon" >/dev/null 2>&1
for platform in "$@"; do
  pid=$("$desk" run -b "$id" -- env QT_QPA_PLATFORM="$platform" "$menubar" 2>&1 |
    sed -n 's/.*started pid \([0-9]*\).*/\1/p')
  ok=
  for i in $(seq 100); do
    if registered; then ok=1 && break; fi
    sleep 0.1
  done
  [ -n "$ok" ] || fail "no item registered"
  sleep 1 # the host lays its new icon out

  # A person takes a moment between seeing the panel and pressing a key; the window manager
  # gives it the focus in that moment.
  act click "$ix" "$iy"
  wait_for shown || fail "a click on the icon did not open the panel"
  sleep 0.5
  escape
  wait_for hidden || fail "Escape did not close the panel"
  sleep 0.5
  act click "$ix" "$iy"
  wait_for shown || fail "a second click on the icon did not open the panel"
  sleep 0.5
  act click "$ox" "$oy"
  wait_for hidden || fail "a click elsewhere did not close the panel"
  sleep 0.5
  act click "$ix" "$iy"
  wait_for shown || fail "a third click on the icon did not open the panel"
  sleep 0.5
  act click "$ix" "$iy"
  wait_for hidden || fail "a click on the icon did not close the panel"

  [ -n "$pid" ] && kill "$pid" 2>/dev/null
  for i in $(seq 50); do registered || break; sleep 0.1; done
  echo "$desktop/$platform: done"
done
[ "$failures" = 0 ] && echo "PASS: $desktop $*" || exit 1
