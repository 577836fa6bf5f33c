#!/usr/bin/env bash
# desk-test.sh DESKTOP ICON_X ICON_Y PLATFORM...: on a desk kit desktop the item registers, a click
# on the icon opens the panel, Escape, a click elsewhere and the icon close it. 77: no kit or root.
set -uo pipefail
desktop=$1 ix=$2 iy=$3 && shift 3
: "${HARKLINE_MENUBAR:?}" "${HARKLINE_DEMO_DAEMON:?}"
desk=${HARKLINE_DESK:-$(dirname "$0")/../../../shared/desktops/desk}
[ -x "$desk" ] || desk=/work/shared/desktops/desk
[ -x "$desk" ] || { echo "SKIP: no desk kit (set HARKLINE_DESK)"; exit 77; }
[ "$(id -u)" = 0 ] || { echo "SKIP: the desk kit needs root"; exit 77; }

# Wayland desktops run as nobody: the programs go where that user can read them.
bin=$(mktemp -d /tmp/harkline-desk.XXXXXX) && chmod 755 "$bin" && cp "$HARKLINE_MENUBAR" "$HARKLINE_DEMO_DAEMON" "$bin/"
id=$("$desk" up "$desktop" 2>/dev/null) || { echo "FAIL: desk up $desktop"; rm -rf "$bin"; exit 1; }
trap '"$desk" down "$id" >/dev/null 2>&1; rm -rf "$bin"' EXIT
failures=0
fail() { echo "FAIL: $desktop/$platform: $*"; failures=$((failures + 1)); }
run() { "$desk" run "$id" -- "$@" 2>/dev/null; }
act() { "$desk" "$1" "$id" "${@:2}" >/dev/null 2>&1 || true; }
# within TENTHS CMD...: CMD succeeds within that many tenths of a second.
within() { for _ in $(seq "$1"); do "${@:2}" && return 0; sleep 0.1; done; return 1; }
registered() {
  run dbus-send --session --print-reply --dest=org.kde.StatusNotifierWatcher /StatusNotifierWatcher \
    org.freedesktop.DBus.Properties.Get string:org.kde.StatusNotifierWatcher string:RegisteredStatusNotifierItems |
    grep -q "StatusNotifierItem-"
}
# The panel mapped: in sway's tree, or on X.
shown() {
  [ "$desktop" = sway ] && { run swaymsg -t get_tree | grep -q '"name": "harkline"'; return; }
  run xdotool search --onlyvisible --name '^harkline$' >/dev/null
}
hidden() { ! shown; }
gone() { ! registered; }
x_focused() { [ "$(run xdotool getwindowfocus getwindowname)" = harkline ]; }
# sway's wtype never reaches an XWayland client: XTEST, once X gives the panel the focus.
escape() {
  [ "$desktop/$platform" != sway/xcb ] && { act key Escape; return; }
  within 50 x_focused || fail "no keyboard focus within 5 s"
  run xdotool key Escape
}
# step STATE WHAT CMD...: after CMD, the panel is STATE within 5 s; the pause is a person's, in
# which the window manager gives the panel the focus.
step() { sleep 0.5; "${@:3}"; within 50 "$1" || fail "$2"; }
# Far from the icon and the panel (by the icon or mid-screen).
ox=40 oy=$((iy < 400 ? 700 : 100))

"$desk" run -b "$id" -- "$bin/$(basename "$HARKLINE_DEMO_DAEMON")" >/dev/null 2>&1
for platform in "$@"; do
  pid=$("$desk" run -b "$id" -- env QT_QPA_PLATFORM="$platform" "$bin/$(basename "$HARKLINE_MENUBAR")" 2>&1 |
    sed -n 's/.*started pid \([0-9]*\).*/\1/p')
  within 100 registered || fail "no item registered"
  sleep 0.5 # the host lays its new icon out
  step shown "a click on the icon did not open the panel" act click "$ix" "$iy"
  step hidden "Escape did not close the panel" escape
  step shown "a second click on the icon did not open the panel" act click "$ix" "$iy"
  step hidden "a click elsewhere did not close the panel" act click "$ox" "$oy"
  step shown "a third click on the icon did not open the panel" act click "$ix" "$iy"
  step hidden "a click on the icon did not close the panel" act click "$ix" "$iy"
  [ -n "$pid" ] && kill "$pid" 2>/dev/null
  within 50 gone || fail "the item stayed registered after the companion was stopped"
done
[ "$failures" = 0 ] && echo "PASS: $desktop $*" || exit 1
