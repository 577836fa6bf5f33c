#!/usr/bin/env bash
# check-install.sh BUILD_DIR APP_ID: installs BUILD_DIR into a temporary DESTDIR under the prefix
# /usr and checks that the desktop finds everything there.
set -euo pipefail
build=$1 id=$2

for tool in desktop-file-validate appstreamcli; do
  command -v "$tool" >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
done

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
DESTDIR=$root cmake --install "$build" --prefix /usr >/dev/null
usr=$root/usr
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

for f in bin/harkline-menubar bin/harklinectl libexec/harkline-menubar/harkline-demo-daemon; do
  [ -x "$usr/$f" ] || fail "$f is not installed as a program"
done
[ -s "$usr/share/man/man1/harklinectl.1" ] || fail "the man page is missing"

desktop=$usr/share/applications/$id.desktop
metainfo=$usr/share/metainfo/$id.metainfo.xml
desktop-file-validate "$desktop" || fail "desktop-file-validate rejects $desktop"
appstreamcli validate --no-net --pedantic "$metainfo" || fail "appstreamcli rejects $metainfo"

key() { sed -n "s/^$1=//p" "$desktop"; }
# The menu entry starts a program of this install, by the name PATH finds it under.
exec_program=$(key Exec | cut -d' ' -f1)
[ -x "$usr/bin/$exec_program" ] || fail "Exec=$exec_program is not in bin/"
[ "$(key TryExec)" = "$exec_program" ] || fail "TryExec differs from Exec's program"
# The icon resolves the way an icon theme looks it up: Icon= by name in hicolor, apps context.
icon=$(key Icon)
[ "$icon" = "$id" ] || fail "Icon=$icon is not the application id"
find "$usr/share/icons/hicolor" -path "*/apps/$icon.svg" | grep -q . ||
  fail "no hicolor icon named $icon"
grep -q "<launchable type=\"desktop-id\">$id.desktop</launchable>" "$metainfo" ||
  fail "the metainfo does not launch $id.desktop"
grep -q "<release version=\"[0-9][0-9.]*\"" "$metainfo" || fail "the metainfo has no version"
for symbol in bell bell-badge bell-slash; do
  [ -s "$usr/share/icons/hicolor/scalable/status/$id-$symbol.svg" ] ||
    fail "the tray icon $id-$symbol is missing"
done

[ "$failures" -eq 0 ] && echo "install layout: all checks passed"
exit "$failures"
