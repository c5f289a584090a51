"""The launcher as a screen reader meets it, through AT-SPI (pyatspi), run by accessibility_test.sh
inside a D-Bus session of its own.

    accessibility_test.py <launcher> <scratch>

The walk starts the launcher, says that a screen reader runs (as Orca does, which is what makes
Qt expose its tree), and goes through the ready, working and failed arrangements: names, roles
and states, the focus under the headline's name, the log's text, the details toggle's expanded
state, and presses through the Action interface. Events are taken as a screen reader takes them,
from the main loop, so that what libatspi caches stays as current as it is for a screen reader.
"""

import os
import subprocess
import sys
import time

import pyatspi
from gi.repository import GLib, Gio

launcher, scratch = sys.argv[1], sys.argv[2]
S = pyatspi  # the state constants
WAIT_SECONDS = 60  # a generous bound, for a loaded machine
HEADLINE = "Kestravine会装在这台电脑上"
UPDATE_HEADLINE = "这个安装包里有新版本的Varnholt"
FIRST_LINES = ["第一行：准备", "second line: unpacking 解包", "第三行"]
ALL_LINES = FIRST_LINES + ["最后一行：出错了"]


class Failure(Exception):
    pass


events = []  # (type, role, name, detail1), in the order they came


def record(event):
    try:
        events.append((event.type, event.source.getRoleName(), event.source.name, event.detail1))
    except GLib.Error:
        pass  # its source has gone already


def pump():
    context = GLib.MainContext.default()
    while context.iteration(False):
        pass


def children(node):
    try:
        return [c for c in node if c is not None]
    except GLib.Error:
        return []


def walk(node):
    yield node
    for child in children(node):
        yield from walk(child)


def states(node):
    return set(node.getState().getStates())


def describe(node, depth=0):
    try:
        shown = sorted(pyatspi.stateToString(s) for s in states(node))
        line = f"{'  ' * depth}{node.getRoleName()} {node.name!r} {' '.join(shown)}\n"
    except GLib.Error as error:
        return f"{'  ' * depth}(gone: {error.message})\n"
    return line + "".join(describe(c, depth + 1) for c in children(node))


def wait_for(what, probe, tree=None):
    """Polls probe() until it answers something true; its answer. Fails after WAIT_SECONDS."""
    deadline = time.monotonic() + WAIT_SECONDS
    last = None
    while time.monotonic() < deadline:
        pump()
        try:
            answer = probe()
            if answer:
                return answer
        except (GLib.Error, LookupError) as error:  # objects replaced while being read
            last = error
        time.sleep(0.05)
    shown = describe(tree) if tree is not None else ""
    raise Failure(f"timed out waiting for {what} (last error: {last})\n{shown}")


def shown(window, role, name):
    """The one showing element with this role and name; LookupError if there is none."""
    found = [n for n in walk(window)
             if n.getRoleName() == role and n.name == name and S.STATE_SHOWING in states(n)]
    if len(found) != 1:
        raise LookupError(f"{len(found)} showing {role} {name!r}")
    return found[0]


def check_states(node, present, absent=()):
    have = states(node)
    missing = [pyatspi.stateToString(s) for s in present if s not in have]
    extra = [pyatspi.stateToString(s) for s in absent if s in have]
    if missing or extra:
        raise Failure(f"{node.getRoleName()} {node.name!r}: lacks {missing}, has {extra}")


def press(node):
    action = node.queryAction()
    names = [action.getName(i) for i in range(action.nActions)]
    if names != ["Press", "SetFocus"]:
        raise Failure(f"{node.name!r} offers the actions {names}")
    if not action.doAction(0):
        raise Failure(f"{node.name!r}: the press action was refused")


def check_arrangement(window, mark, headline=HEADLINE):
    """What every arrangement owes a screen reader: the focus on the view under the headline's
    name, announced since `mark`; every text and button named; nothing named left hidden in the
    tree (a screen reader that walks it would read it out)."""
    focused = [n for n in walk(window) if S.STATE_FOCUSED in states(n)]
    if [n.name for n in focused] != [headline]:
        raise LookupError(f"focused: {[(n.getRoleName(), n.name) for n in focused]}")
    if not any(e[3] == 1 for e in told("object:state-changed:focused", headline, mark)):
        raise LookupError("no focus event under the headline's name")
    for node in walk(window):
        role, named = node.getRoleName(), bool(node.name)
        if role in ("label", "push button", "text") and not named:
            raise LookupError(f"a {role} without a name")
        if named and S.STATE_SHOWING not in states(node):
            raise LookupError(f"hidden, but in the tree: {role} {node.name!r}")
    return True


def log_text(window):
    log = shown(window, "text", "日志")
    check_states(log, [S.STATE_READ_ONLY, S.STATE_MULTI_LINE, S.STATE_FOCUSABLE],
                 [S.STATE_EDITABLE])
    return log.queryText().getText(0, -1)


def release_script():
    """Lets the install script go on: it waits for a line on the fifo."""
    path = os.path.join(scratch, "release")

    def opened():
        try:
            return os.open(path, os.O_WRONLY | os.O_NONBLOCK)
        except OSError:  # ENXIO: the script does not read it yet
            return None

    fd = wait_for("the install script to read its fifo", opened)
    os.write(fd, b"\n")
    os.close(fd)


def main():
    # The accessibility bus comes up for the first client; listeners go in before the launcher
    # starts, so that Qt is told which events are wanted.
    pyatspi.Registry.registerEventListener(
        record, "object:state-changed:focused", "object:state-changed:expanded",
        "object:state-changed:checked", "object:text-changed:insert")
    Gio.bus_get_sync(Gio.BusType.SESSION).call_sync(
        "org.a11y.Bus", "/org/a11y/bus", "org.freedesktop.DBus.Properties", "Set",
        GLib.Variant("(ssv)", ("org.a11y.Status", "ScreenReaderEnabled", GLib.Variant("b", True))),
        None, Gio.DBusCallFlags.NONE, -1, None)

    for walk_through, home in ((walk_launcher, os.environ["KESTRAVINE_HOME"]),
                               (walk_update_offer, os.path.join(scratch, "older"))):
        with open(os.path.join(scratch, "launcher.log"), "ab") as output:
            child = subprocess.Popen([launcher], stdout=output, stderr=subprocess.STDOUT,
                                     env=dict(os.environ, KESTRAVINE_HOME=home))
        try:
            walk_through(child)
        finally:
            # Its ending is not under test here (and a running install would hold it).
            child.kill()
            child.wait()


def told(kind, name, since):
    """The events of this kind from the element of this name that came since `since`."""
    return [e for e in events[since:] if e[0] == kind and e[2] == name]


def window_of(child):
    desktop = pyatspi.Registry.getDesktop(0)
    app = wait_for("the launcher on the accessibility bus", lambda: next(
        (a for a in children(desktop) if a.get_process_id() == child.pid), None))
    return wait_for("its window", lambda: next(
        (w for w in children(app) if w.getRoleName() == "frame"), None), app)


def walk_update_offer(child):
    """A home holding an older version than the package's: the offer names both versions, and
    both its buttons can be reached and pressed."""
    mark = len(events)
    window = window_of(child)
    update = wait_for("the update offer", lambda: shown(window, "push button", "更新并打开"), window)
    current = shown(window, "push button", "先打开现在的版本")
    wait_for("the update offer's focus and names",
             lambda: check_arrangement(window, mark, UPDATE_HEADLINE), window)
    for button in (update, current):
        check_states(button, [S.STATE_ENABLED, S.STATE_FOCUSABLE, S.STATE_SHOWING])
        press_action = button.queryAction()
        if [press_action.getName(i) for i in range(press_action.nActions)] != ["Press", "SetFocus"]:
            raise Failure(f"{button.name!r} cannot be pressed")
    shown(window, "label", "这台电脑上是 0.0.1，这个安装包里是 9.9.9。")
    print(f"ok: update offer: focus on {UPDATE_HEADLINE!r}, the versions read out, "
          "'更新并打开' and '先打开现在的版本' focusable and pressable")


def walk_launcher(child):
    desktop = pyatspi.Registry.getDesktop(0)
    app = wait_for("the launcher on the accessibility bus", lambda: next(
        (a for a in children(desktop) if a.get_process_id() == child.pid), None))
    window = wait_for("its window", lambda: next(
        (w for w in children(app) if w.getRoleName() == "frame"), None), app)
    if window.name != "Kestravine":
        raise Failure(f"the window is named {window.name!r}")
    print(f"ok: application {app.name!r}, window {window.getRoleName()} {window.name!r}")

    # Ready.
    install = wait_for("the ready arrangement",
                       lambda: shown(window, "push button", "安装并打开"), window)
    wait_for("the ready arrangement's focus and names",
             lambda: check_arrangement(window, 0), window)
    check_states(install, [S.STATE_ENABLED, S.STATE_SENSITIVE, S.STATE_FOCUSABLE, S.STATE_SHOWING])
    print(f"ok: ready: focus on {HEADLINE!r}, push button '安装并打开' enabled and focusable")

    # Working: pressed as a screen reader presses it.
    mark = len(events)
    press(install)
    cancel = wait_for("the working arrangement", lambda: shown(window, "push button", "取消"),
                      window)
    check_states(cancel, [S.STATE_ENABLED, S.STATE_FOCUSABLE, S.STATE_SHOWING])
    wait_for("the log's first lines",
             lambda: log_text(window) == "\n".join(FIRST_LINES), window)
    wait_for("the working arrangement's focus and names",
             lambda: check_arrangement(window, mark), window)
    wait_for("the log to tell of inserted text",
             lambda: told("object:text-changed:insert", "日志", mark))
    print(f"ok: working: '取消', log '日志' read-only and multi-line reads {FIRST_LINES}")

    # Failed.
    mark = len(events)
    release_script()
    retry = wait_for("the failed arrangement",
                     lambda: shown(window, "push button", "再试一次"), window)
    check_states(retry, [S.STATE_ENABLED, S.STATE_FOCUSABLE, S.STATE_SHOWING])
    wait_for("the failed arrangement's focus and names",
             lambda: check_arrangement(window, mark), window)
    toggle = shown(window, "push button", "详情")
    check_states(toggle, [S.STATE_EXPANDABLE, S.STATE_COLLAPSED, S.STATE_FOCUSABLE],
                 [S.STATE_EXPANDED, S.STATE_CHECKABLE])
    if any(n.getRoleName() == "text" for n in walk(window)):
        raise Failure("a log before the details were expanded")
    print("ok: failed: '再试一次', toggle '详情' expandable and collapsed")

    mark = len(events)
    press(toggle)
    wait_for("the toggle to read expanded", lambda: S.STATE_EXPANDED in states(toggle)
             and S.STATE_COLLAPSED not in states(toggle), window)
    # Once: Qt's bridge drops this change, and the launcher sends it itself.
    expanded = wait_for("the toggle's expanded event",
                        lambda: told("object:state-changed:expanded", "详情", mark))
    if [(e[1], e[3]) for e in expanded] != [("push button", 1)]:
        raise Failure(f"expanded events: {expanded}")
    # Both go out on the bridge's one connection, so a "checked" would have come before it.
    checked = told("object:state-changed:checked", "详情", mark)
    if checked:
        raise Failure(f"the toggle told of a checked state: {checked}")
    wait_for("every line in the details",
             lambda: log_text(window) == "\n".join(ALL_LINES), window)
    print(f"ok: details expanded (state and event); the log reads all {len(ALL_LINES)} lines")


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        print(f"FAIL: {failure}", file=sys.stderr)
        sys.exit(1)
