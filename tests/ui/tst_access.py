#!/usr/bin/python3
"""The companion as keyboard and screen-reader users meet it: the real program under Xvfb with the
accessibility bus up, opened from a tray host, driven with key presses only, and read through
AT-SPI. Checks after each step who has the focus and what was announced, and over the whole run
that every outcome is announced once, that the tab order follows the screen and that no name or
description is re-sent unchanged.

Usage: tst_access.py MENUBAR DEMO_DAEMON [EVENT_LOG]   (exit 77: skipped)"""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SKIP = 77
try:
    import pyatspi
    from gi.repository import Gio, GLib
except ImportError as missing:
    pyatspi = None
    MISSING = str(missing)

TOOLS = ["Xvfb", "dbus-daemon", "xdotool", "/usr/libexec/at-spi-bus-launcher"]
WATCHER_XML = """<node><interface name="org.kde.StatusNotifierWatcher">
<method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
<method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
<property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
<property name="ProtocolVersion" type="i" access="read"/>
<property name="RegisteredStatusNotifierItems" type="as" access="read"/>
<signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
</interface></node>"""
ISOLATES = dict.fromkeys(map(ord, "\u2066\u2067\u2068\u2069"))


class Session:
    """Xvfb, a session bus with the accessibility bus, a tray watcher, the demo daemon, the
    companion; and what AT-SPI reports of the companion."""

    def __init__(self, menubar, daemon, log_path):
        self.tmp = tempfile.mkdtemp(prefix="harkline-access.")
        self.procs, self.events, self.items = [], [], []
        self.focus, self.names = None, {}
        self.log = open(log_path, "w") if log_path else None
        run = os.path.join(self.tmp, "run")
        os.makedirs(run, 0o700)
        home = os.path.join(self.tmp, "home")
        os.makedirs(home)
        display = next(f":{n}" for n in range(160, 260) if not os.path.exists(f"/tmp/.X{n}-lock"))
        env = {k: v for k, v in os.environ.items()
               if k not in ("WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "AT_SPI_BUS_ADDRESS")}
        env.update(HOME=home, XDG_RUNTIME_DIR=run, DISPLAY=display, QT_QPA_PLATFORM="xcb",
                   DBUS_SESSION_BUS_ADDRESS=f"unix:path={run}/bus", XDG_CURRENT_DESKTOP="",
                   QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", LC_ALL="C.UTF-8", LANG="C.UTF-8")
        os.environ.clear()
        os.environ.update(env)
        self.daemon_cmd = [daemon, "--pair-delay", "4"]
        self.start(["Xvfb", display, "-screen", "0", "1280x800x24", "-nolisten", "tcp"])
        self.start(["dbus-daemon", "--session", "--nofork", "--address=" + env["DBUS_SESSION_BUS_ADDRESS"]])
        self.wait(lambda: os.path.exists(f"/tmp/.X11-unix/X{display[1:]}") and os.path.exists(run + "/bus"),
                  "Xvfb and the session bus")
        self.start(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"])
        self.bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        self.wait(lambda: self.has_name("org.a11y.Bus"), "the accessibility bus")
        self.watch_tray()
        self.daemon = self.start(self.daemon_cmd)
        for kind in ("object:state-changed:showing", "object:state-changed:focused", "focus:",
                     "object:property-change:accessible-name", "window:activate",
                     "object:property-change:accessible-description", "object:announcement"):
            pyatspi.Registry.registerEventListener(self.on_event, kind)
        self.companion = self.start([menubar])
        self.wait(lambda: self.items, "the tray item")

    def start(self, args):
        out = open(os.path.join(self.tmp, os.path.basename(args[0]) + ".log"), "a")
        proc = subprocess.Popen(args, stdout=out, stderr=subprocess.STDOUT)
        self.procs.append(proc)
        return proc

    def close(self):
        for proc in reversed(self.procs):
            if proc.poll() is None:
                proc.terminate()
        for proc in self.procs:
            try:
                proc.wait(10)
            except subprocess.TimeoutExpired:
                proc.kill()
        shutil.rmtree(self.tmp, ignore_errors=True)

    def has_name(self, name):
        reply = self.bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                   "NameHasOwner", GLib.Variant("(s)", (name,)), None, 0, 5000, None)
        return reply.unpack()[0]

    def watch_tray(self):
        """A tray host's watcher: the companion then puts its item in the tray."""
        def call(conn, sender, path, iface, method, params, invocation):
            if method == "RegisterStatusNotifierItem":
                arg = params.unpack()[0]
                self.items.append((sender, arg) if arg.startswith("/") else (arg, "/StatusNotifierItem"))
            invocation.return_value(None)

        def prop(conn, sender, path, iface, name):
            return {"IsStatusNotifierHostRegistered": GLib.Variant("b", True),
                    "ProtocolVersion": GLib.Variant("i", 0),
                    "RegisteredStatusNotifierItems": GLib.Variant("as", [])}[name]
        node = Gio.DBusNodeInfo.new_for_xml(WATCHER_XML)
        self.bus.register_object("/StatusNotifierWatcher", node.interfaces[0], call, prop, None)
        Gio.bus_own_name_on_connection(self.bus, "org.kde.StatusNotifierWatcher", 0, None, None)
        self.wait(lambda: self.has_name("org.kde.StatusNotifierWatcher"), "the tray watcher")

    def activate_icon(self):
        service, path = self.items[-1]
        self.bus.call_sync(service, path, "org.kde.StatusNotifierItem", "Activate",
                           GLib.Variant("(ii)", (640, 12)), None, 0, 5000, None)

    # --- what AT-SPI reports ---

    def on_event(self, event):
        try:
            source, kind = event.source, event.type
            role, name = source.getRoleName(), source.name or ""
            if not source.getApplication() or source.getApplication().name != "harkline-menubar":
                return
            record = {"t": time.monotonic(), "type": kind, "detail": event.detail1, "role": role,
                      "name": name, "path": source.path}
            if kind.startswith("object:state-changed:showing") and role == "notification":
                record["said"] = source[0].name if event.detail1 and source.childCount else None
            if kind.startswith("object:state-changed:focused") and event.detail1:
                extents = source.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
                self.focus = dict(record, desc=source.description or "",
                                  rect=(extents.x, extents.y, extents.width, extents.height))
            if kind.startswith("object:property-change:accessible-"):
                which = kind.rsplit("-", 1)[1]
                # Values are read back when the event arrives, so the sets of one update look
                # alike; a value sent again by a later update (a refresh) is the noise to catch.
                value = source.name if which == "name" else source.description
                last = self.names.get((source.path, which))
                record["unchanged"] = bool(last) and last[1] == value and record["t"] - last[0] > 1
                self.names[(source.path, which)] = (record["t"], value)
            self.events.append(record)
            if self.log:
                self.log.write(f"{record['t']:.3f} {kind} {event.detail1} [{role}] {name!r}"
                               + (f" said={record['said']!r}" if record.get("said") else "")
                               + (" UNCHANGED" if record.get("unchanged") else "") + "\n")
        except Exception as error:  # an object gone while we read it: keep listening
            if self.log:
                self.log.write(f"(event not read: {error})\n")

    def pump(self, seconds):
        context = GLib.MainContext.default()
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            while context.iteration(False):
                pass
            time.sleep(0.02)

    def wait(self, condition, what, timeout=30):
        end = time.monotonic() + timeout
        while time.monotonic() < end:
            self.pump(0.05)
            if condition():
                return
        raise AssertionError(f"timed out waiting for {what}")

    def app(self):
        for app in pyatspi.Registry.getDesktop(0):
            if app is not None and app.name == "harkline-menubar":
                return app
        return None

    def panel(self):
        app = self.app()
        return next((w for w in app if w.name == "harkline" and w.childCount), None) if app else None

    def controls(self):
        """(role, name, description) of everything named or focusable in the panel."""
        found = []

        def walk(node):
            states = node.getState()
            if not states.contains(pyatspi.STATE_SHOWING):
                return
            role = node.getRoleName()
            if role not in ("filler", "frame", "label", "list item") or states.contains(pyatspi.STATE_FOCUSABLE):
                found.append((role, (node.name or "").translate(ISOLATES), node.description or ""))
            for child in node:
                walk(child)
        walk(self.panel())
        return found

    def key(self, *keys):
        for k in keys:
            subprocess.run(["xdotool", "key", k], check=True)
            self.pump(0.15)

    def said(self, since=0, waiting=False):
        """What was announced since that event; the waiting-prompts count, which the demo
        changes on its own schedule, only when asked for."""
        said = [e["said"].translate(ISOLATES) for e in self.events[since:] if e.get("said")]
        return [x for x in said if waiting or not x.endswith("waiting for an answer")]


def check(condition, message):
    if not condition:
        raise AssertionError(message)


def focus_is(s, role, name, desc=None, timeout=20):
    """Waits until the focus is on that control."""
    def there():
        f = s.focus
        return (f and f["role"] == role and f["name"].translate(ISOLATES) == name
                and (desc is None or f["desc"] == desc))
    try:
        s.wait(there, f"the focus on {role} {name!r}", timeout)
    except AssertionError:
        raise AssertionError(f"focus on {s.focus and (s.focus['role'], s.focus['name'])}, "
                             f"expected {role} {name!r}")


def tab_to(s, name, key="shift+Tab"):
    """Tabs until the focus is on the control of that name, as a user listening would."""
    for _ in range(20):
        if s.focus and s.focus["name"] == name:
            return []
        path = s.focus["path"]
        s.key(key)
        s.wait(lambda: s.focus["path"] != path, "the next tab stop")
    raise AssertionError(f"{name!r} not reached with {key}")


def tab_order(s):
    """Tab from the first control round to it again: every stop visible, in reading order."""
    first = s.focus["path"]
    stops = []
    for _ in range(30):
        s.key("Tab")
        s.wait(lambda: s.focus["path"] != (stops[-1]["path"] if stops else first), "the next tab stop")
        if s.focus["path"] == first:
            break
        stops.append(s.focus)
    check(s.focus["path"] == first, "Tab never came back round")
    for stop in stops:
        x, y, w, h = stop["rect"]
        check(w > 0 and h > 0 and stop["name"], f"invisible or nameless tab stop {stop}")
    tops = [stop["rect"][1] for stop in stops]
    check(tops == sorted(tops), f"tab order against the screen: {[(st['name'], st['rect'][1]) for st in stops]}")
    return [stop["name"] for stop in stops]


def run(s):
    # Opened from the tray: a window in the tree with its controls, activated, focused at once.
    s.activate_icon()
    s.wait(lambda: any(e["type"] == "window:activate" and e["name"] == "harkline" for e in s.events),
           "the panel's window:activate")
    focus_is(s, "push button", "Actions", "Opens a menu")
    controls = s.controls()
    for want in [("heading", "Phones", ""), ("heading", "Sessions", ""), ("image", "Service running", ""),
                 ("push button", "Unpair Pixel 8", "Unpair this phone"),
                 ("push button", "Unpair Léa’s iPhone", "Unpair this phone"),
                 ("push button", "Pair a Phone…", ""), ("list", "Sessions", "")]:
        check(want in controls, f"{want} not among {controls}")
    check(not [c for c in controls if c[0] == "image" and not c[1]], f"a nameless image: {controls}")
    stops = tab_order(s)
    settled = len(s.events)  # building the panel names everything once; from here on, changes only
    check(stops[:3] == ["Unpair Pixel 8", "Unpair Léa’s iPhone", "Pair a Phone…"], f"tab stops {stops}")

    # Each step: keys, then where the focus must be, then what must have been said meanwhile.
    steps = [
        ("unpair asks", ["Tab", "Return"], ("push button", "Cancel", "Unpair Pixel 8?"), []),
        ("Escape takes the question back", ["Escape"], ("push button", "Unpair Pixel 8"), []),
        ("Remove", ["space", "Tab", "Return"], ("push button", "Unpair Léa’s iPhone"), ["Removed Pixel 8."]),
        ("pairing", ["Tab", "Return"], ("push button", "Copy Code"), []),
        ("copy", ["Return"], ("push button", "Copy Code"), ["Pairing code copied."]),
        ("Escape goes back", ["Escape"], ("push button", "Pair a Phone…"), []),
        ("paired", ["Return"], ("push button", "Done"), [re.compile(r"Paired with .+")]),
        ("Done", ["Return"], ("push button", "Pair a Phone…"), []),
        ("Open at Login is checkable", [("Actions",), "Return", "Down", "Down", "Down", "Down"],
         ("check box", "Open at Login"), []),
        ("Escape closes the menu only", ["Escape"], ("push button", "Actions"), []),
        ("test", ["Return", "Down", "Return"], ("push button", "Actions"),
         [re.compile(r"Test notification sent to \d+ phones?\.")]),
    ]
    for title, keys, focus, said in steps:
        before = len(s.events)
        for k in keys:
            tab_to(s, *k) if isinstance(k, tuple) else s.key(k)
        focus_is(s, *focus, timeout=30)
        s.wait(lambda: len(s.said(before)) >= len(said), f"{said} said after '{title}'")
        s.pump(0.5)
        got = s.said(before)
        check(len(got) == len(said) and all(w.fullmatch(g) if hasattr(w, "fullmatch") else w == g
                                            for w, g in zip(said, got)),
              f"after '{title}': said {got}, expected {said}")

    # The daemon stops, then comes back: focus and word follow without a key.
    before = len(s.events)
    s.daemon.send_signal(signal.SIGTERM)
    s.daemon.wait(10)
    focus_is(s, "push button", "Start Service", timeout=30)
    s.pump(1)
    check(s.said(before) == ["Service not running"], f"daemon gone: said {s.said(before)}")
    before = len(s.events)
    s.key("Return")  # no service manager here: the failure is the outcome to hear
    s.wait(lambda: s.said(before), "the service notice")
    s.daemon = s.start(s.daemon_cmd)
    focus_is(s, "push button", "Pair a Phone…", timeout=30)
    s.pump(4)  # another refresh or two: nothing more to say
    check(len(s.said(before)) == 1 and s.said(before)[0].startswith("The service"),
          f"service start: said {s.said(before)}")

    # Over the whole run: no name or description re-sent with the value it had.
    unchanged = [(e["role"], e["name"]) for e in s.events[settled:] if e.get("unchanged")]
    check(not unchanged, f"unchanged names or descriptions re-sent: {unchanged}")
    said = [(e["t"], e["said"]) for e in s.events if e.get("said")]
    check(all(b[1] != a[1] or b[0] - a[0] > 1 for a, b in zip(said, said[1:])),
          f"an outcome announced twice in a row: {said}")
    check(any(x.endswith("waiting for an answer") for x in s.said(waiting=True)),
          "the waiting-prompts count never announced")
    countdown = [e for e in s.events if e["type"].endswith("accessible-name") and "Expires" in e["name"]]
    check(len(countdown) <= 2, f"the countdown renamed itself {len(countdown)} times")

    # Quit from the actions menu: up from its first entry wraps to the last.
    tab_to(s, "Actions")
    s.key("Return", "Up", "Return")
    s.companion.wait(20)
    check(s.companion.returncode == 0, f"exit status {s.companion.returncode}")


def main():
    if len(sys.argv) < 3:
        print(__doc__)
        return 2
    absent = [t for t in TOOLS if not shutil.which(t)] + ([MISSING] if pyatspi is None else [])
    if absent:
        print("needs " + ", ".join(absent) + " (packages at-spi2-core, python3-pyatspi, xvfb, xdotool, dbus)")
        return 1 if os.environ.get("CI") else SKIP
    session = Session(sys.argv[1], sys.argv[2], sys.argv[3] if len(sys.argv) > 3 else None)
    try:
        run(session)
    except AssertionError as failure:
        print("FAIL:", failure)
        print("recent events:", *[f"  {e}" for e in session.events[-25:]], sep="\n")
        return 1
    finally:
        session.close()
    print("1 passed, 0 failed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
