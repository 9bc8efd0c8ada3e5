#!/usr/bin/python3
"""Starts the player on a private device and walks what a screen reader sees
through AT-SPI: the main window, then each screen the keys open (help, the
program list, the add-bookmark dialog, the welcome of a first run); then the
feldrun window and its subscribe dialog.  Every control must have a role and
a name.  Run by scripts/check-accessibility.sh,
which provides the X server and the session bus.

    atspi-walk.py BUILD-FOLDER
"""
import os
import subprocess
import sys
import tempfile
import time

import pyatspi

CONTROLS = {
    pyatspi.ROLE_PUSH_BUTTON, pyatspi.ROLE_TOGGLE_BUTTON, pyatspi.ROLE_CHECK_BOX, pyatspi.ROLE_RADIO_BUTTON,
    pyatspi.ROLE_COMBO_BOX, pyatspi.ROLE_SLIDER, pyatspi.ROLE_TEXT, pyatspi.ROLE_ENTRY, pyatspi.ROLE_LIST,
    pyatspi.ROLE_TABLE, pyatspi.ROLE_TREE, pyatspi.ROLE_TREE_TABLE, pyatspi.ROLE_MENU_ITEM, pyatspi.ROLE_MENU,
    pyatspi.ROLE_PAGE_TAB, pyatspi.ROLE_SPIN_BUTTON, pyatspi.ROLE_DIALOG, pyatspi.ROLE_FRAME,
    pyatspi.ROLE_STATIC, pyatspi.ROLE_LABEL,
}


def find_app(name, timeout=20):
    end = time.time() + timeout
    while time.time() < end:
        desktop = pyatspi.Registry.getDesktop(0)
        for app in desktop:
            if app is not None and app.name == name:
                return app
        time.sleep(0.3)
    return None


def walk(node, depth, problems, seen):
    try:
        role, name = node.getRole(), node.name
    except Exception:
        return
    if role in CONTROLS and not name.strip():
        problems.append(f"{'  ' * depth}{node.getRoleName()} without a name")
    seen.append(f"{'  ' * depth}{node.getRoleName()}: {name!r}")
    if depth > 12:
        return
    for i in range(min(node.childCount, 200)):
        child = node.getChildAtIndex(i)
        if child is not None:
            walk(child, depth + 1, problems, seen)


def check(app, title):
    problems, seen = [], []
    time.sleep(1.0)
    for window in app:
        if window is not None:
            walk(window, 0, problems, seen)
    print(f"== {title}: {len(seen)} accessible objects")
    if os.environ.get("ATSPI_DUMP"):
        print("\n".join(seen))
    for line in problems:
        print("   MISSING NAME:", line)
    return problems, seen


def find(node, role, name, depth=0):
    try:
        # A menu's own title holds its popup; the command is the leaf.
        if node.getRoleName() == role and node.name == name and node.childCount == 0:
            return node
        children = [node.getChildAtIndex(i) for i in range(min(node.childCount, 200))]
    except Exception:
        return None
    for child in children:
        if child is not None and depth < 12:
            found = find(child, role, name, depth + 1)
            if found is not None:
                return found
    return None


def press(app, role, name):
    """Acts on a control the way a screen reader does, through its first action."""
    end = time.time() + 10
    while time.time() < end:
        for window in app:
            control = find(window, role, name) if window is not None else None
            if control is not None:
                try:
                    control.queryAction().doAction(0)
                except Exception:
                    # An action that opens a modal screen answers only when
                    # the screen closes; the screen is open all the same.
                    pass
                return
        time.sleep(0.3)
    raise RuntimeError(f"no {role} named {name!r}")


def closed(app, title, timeout=5):
    end = time.time() + timeout
    while time.time() < end:
        still = [w for w in app if w is not None and w.name == title and
                 w.getState().contains(pyatspi.STATE_SHOWING)]
        if not still:
            return True
        time.sleep(0.2)
    return False


def walk_feldrun(build, env):
    """The feldrun window with one subscription, and its subscribe dialog."""
    feldrun = os.path.join(build, "bin", "feldrun")
    feed = "https://example.org/evening.xml"
    subprocess.run([feldrun, "subscribe", "--no-update", feed], env=env, check=True, stdout=subprocess.DEVNULL)
    window = subprocess.Popen([feldrun], env=env)
    failures = []
    try:
        app = find_app("feldrun")
        if app is None:
            return ["the feldrun window never appeared on the accessibility bus"]
        problems, seen = check(app, "feldrun")
        failures += problems
        for expected in ("push button: 'Update now'", "push button: 'Import books'", f"list item: '{feed}'"):
            if not any(expected in line for line in seen):
                failures.append(f"feldrun: {expected} is not seen")
        press(app, "push button", "Subscribe")
        problems, seen = check(app, "Subscribe")
        failures += problems
        if not any("text: 'Feed address'" in line for line in seen):
            failures.append("the subscribe dialog's address is not seen")
        press(app, "push button", "Cancel")
        if not closed(app, "Subscribe"):
            failures.append("Cancel did not close the subscribe dialog")
    finally:
        window.terminate()
        window.wait(20)
    return failures


def main():
    build = os.path.abspath(sys.argv[1])
    pyatspi.setTimeout(2000, 15000)
    device = tempfile.mkdtemp(prefix="talvo-a11y-")
    os.makedirs(os.path.join(device, "run"), mode=0o700)
    env = dict(os.environ, TALVOPLAYER_REGISTRY=os.path.join(device, "registry.db"),
               TALVOPLAYER_HOME=device, TALVOPLAYER_MUSIC=os.path.join(build, "demo", "music"),
               TALVOPLAYER_CARDS="", TALVOPLAYER_AUDIO="null", TALVOPLAYER_SCREEN="480x640",
               TALVOPLAYER_MESSAGES=os.path.join(device, "messages.log"),
               XDG_RUNTIME_DIR=os.path.join(device, "run"), QT_QPA_PLATFORM="xcb",
               QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", QT_ACCESSIBILITY="1")
    player = subprocess.Popen([os.path.join(build, "bin", "talvoplayer")], env=env)
    failures = []
    try:
        app = find_app("talvoplayer")
        if app is None:
            print("the player never appeared on the accessibility bus")
            return 1
        # The first run opens the welcome above the main window.
        problems, seen = check(app, "first run: main window and welcome")
        failures += problems
        if not any("push button: 'Fast forward'" in line for line in seen):
            failures.append("the skin's buttons are not seen")
        if not any("Morning Notes" in line for line in seen):
            failures.append("the program title is not seen")
        press(app, "push button", "OK")  # the welcome
        # Each screen opened the way a screen reader user opens it, then closed again.
        for opener, title, closer in ((("menu item", "Help"), "Help", "OK"),
                                      (("push button", "Program list"), "Local Library", "Close"),
                                      (("menu item", "Add Bookmark"), "Add Bookmark", "Cancel"),
                                      (("menu item", "TalvoPlayer Skins..."), "Select TalvoPlayer Skin", "Cancel"),
                                      (("menu item", "Preferences"), "Preferences", "Cancel"),
                                      (("menu item", "Edit Bookmarks"), "Bookmarks", "Cancel"),
                                      (("push button", "About"), "About", "OK")):
            press(app, *opener)
            problems, seen = check(app, title)
            failures += problems
            if not any(f"dialog: '{title}'" in line for line in seen):
                failures.append(f"the {title} dialog is not seen")
            press(app, "push button", closer)
            if not closed(app, title):
                failures.append(f"{closer} did not close the {title} dialog")
    finally:
        player.terminate()
        player.wait(20)
    failures += walk_feldrun(build, env)
    print("accessibility:", "ok" if not failures else f"{len(failures)} problems")
    return 0 if not failures else 1


if __name__ == "__main__":
    sys.exit(main())
