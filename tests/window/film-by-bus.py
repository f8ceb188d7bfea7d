#!/usr/bin/python3
"""film-by-bus.py STATION EDIT: two windows on one folder, in which an edit is asked for, given, opened,
trimmed, saved and written about by what a program for the blind has: the accessibility bus. STATION is
the program, EDIT a file to import. Exit status 0 where all steps were made; 1 with a line that says
which was not; 77 where there is no such bus, or no display, to be made."""

import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time

LIMIT = 60  # seconds that a step may take


def skip(why):
    print("skipped: " + why)
    sys.exit(77)


try:
    import gi

    gi.require_version("Atspi", "2.0")
    from gi.repository import Atspi
except (ImportError, ValueError):
    skip("the accessibility bus cannot be asked (packages gir1.2-atspi-2.0, python3-gi)")
for program, package in (("Xvfb", "xvfb"), ("dbus-run-session", "dbus-daemon")):
    if not shutil.which(program):
        skip("there is no " + program + " (package " + package + ")")
if not os.path.exists("/usr/libexec/at-spi-bus-launcher"):
    skip("there is no accessibility bus (package at-spi2-core)")


def becomes(what, look):
    """What `look` finds, once it finds something; ends the film where it does not."""
    end = time.monotonic() + LIMIT
    while time.monotonic() < end:
        try:
            found = look()
        except gi.repository.GLib.Error:  # a thing that went while it was looked at
            found = None
        if found:
            return found
        time.sleep(0.2)
    sys.exit("not made: " + what)


def below(thing):
    """Everything below, from the top on."""
    for index in range(thing.get_child_count()):
        child = thing.get_child_at_index(index)
        if child is not None:
            yield child
            yield from below(child)


def is_in_sight(thing):
    return thing.get_state_set().contains(Atspi.StateType.SHOWING)


class Person:
    """Who works at one station, and perceives nothing but what its window tells the bus."""

    def __init__(self, program, projects, user, machine, port, script):
        home = os.path.join(projects, "..", user)
        os.makedirs(home)
        script_file = os.path.join(home, "script")
        with open(script_file, "w") as file:
            file.write(script)
        self.user = user
        self.station = subprocess.Popen(
            [program, "--gui", "--projects", projects, "--user", user, "--host", user, "--machine", str(machine),
             "--port", str(port), "--send-to", "127.255.255.255", "--script", script_file],
            env=dict(os.environ, HOME=home, XDG_CONFIG_HOME=home, XDG_CACHE_HOME=home, XDG_STATE_HOME=home),
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.window = becomes(user + " has a window", self.application)

    def application(self):
        desktop = Atspi.get_desktop(0)
        for index in range(desktop.get_child_count()):
            each = desktop.get_child_at_index(index)
            if each is not None and each.get_process_id() == self.station.pid:
                return each
        return None

    def find(self, role, is_wanted, within=None, at_once=False):
        def look():
            for each in below(within or self.window):
                if each.get_role_name() == role and is_wanted(each.get_name()):
                    if role == "menu item" or is_in_sight(each):
                        return each
            return None

        return look() if at_once else becomes(self.user + " finds a " + role, look)

    def act(self, thing, action="Press"):
        names = [Atspi.Action.get_action_name(thing, index) for index in range(Atspi.Action.get_n_actions(thing))]
        if action not in names:
            sys.exit("%s: %s offers %s, not %s" % (self.user, thing.get_name(), names, action))
        Atspi.Action.do_action(thing, names.index(action))

    def press(self, button, within=None):
        self.act(self.find("push button", lambda name: name == button, within))

    def choose_in_menu(self, title, entry):
        top = self.find("menu item", lambda name: name == title)
        self.act(self.find("menu item", lambda name: name.startswith(entry), top))

    def choose_row(self, tree, name):
        def look():
            rows = self.find("tree", lambda each: each == tree, at_once=True)
            for index in range(rows.get_child_count() if rows else 0):
                cell = rows.get_child_at_index(index)
                if cell is None or not cell.get_name().startswith(name):
                    continue
                Atspi.Table.add_row_selection(rows, Atspi.Table.get_row_at_index(rows, index))
                return cell.get_state_set().contains(Atspi.StateType.SELECTED)
            return False

        becomes(self.user + " chooses " + name, look)

    def type(self, dialog, field, words):
        def look():
            for each in below(dialog):
                if each.get_name() == field and each.get_editable_text_iface() is not None:
                    return Atspi.EditableText.set_text_contents(each, words)
            return False

        becomes(self.user + " types into " + field, look)

    def writes_to(self, other, words):
        self.choose_in_menu("Messages", "Write to a user")
        dialog = self.find("dialog", lambda name: True)
        self.type(dialog, "To", other.user)
        self.type(dialog, "Message", words)
        self.press("Write to a user", dialog)
        other.reads(words)

    def reads(self, words):
        def look():
            for each in below(self.window):
                if words in (each.get_name() or ""):
                    return True
                if each.get_role_name() == "text" and words in Atspi.Text.get_text(each, 0, -1):
                    return True
            return False

        becomes(self.user + " reads: " + words, look)


    def has_in_list(self, state):
        """The only edit is in this state, as the list says."""

        def look():
            rows = self.find("tree", lambda each: each == "Edits and logs", at_once=True)
            return rows and any(each.get_name() == state for each in below(rows))

        becomes(self.user + " has the edit " + state, look)


def step(what):
    print("made: " + what, flush=True)


def film(anna, ben, edit):
    anna.choose_row("Edits and logs", edit)
    anna.choose_in_menu("Edit", "Open")
    anna.reads("change it")
    ben.choose_row("Projects", "Harbour")
    ben.choose_in_menu("Project", "Enter the chosen project")
    ben.choose_row("Edits and logs", edit)
    ben.reads("look only")
    ben.choose_in_menu("Edit", "Ask its owner for it")
    anna.reads('BEN asks for the edit "%s"' % edit)
    step("an ask")
    anna.press("Give")
    ben.reads('ANNA gives you the edit "%s"' % edit)
    ben.press("Open " + edit)
    ben.reads("change it")
    step("a gift")
    timeline = ben.find("list", lambda name: name == "Timeline")
    clip = ben.find("list item", lambda name: name.startswith("clip Clip-001, "), timeline)
    ben.act(clip, "SetFocus")
    ben.choose_in_menu("Clip", "Out a frame earlier")
    ben.has_in_list("open, unsaved")
    anna.has_in_list("unsaved there")
    step("a trim")
    ben.choose_in_menu("Edit", "Undo")
    ben.has_in_list("open")
    ben.choose_in_menu("Edit", "Redo")
    ben.has_in_list("open, unsaved")
    ben.choose_in_menu("Edit", "Save")
    ben.has_in_list("open")
    ben.choose_in_menu("View", "History")
    versions = ben.find("tree", lambda name: name == "Versions of the chosen edit")
    becomes("BEN reads what the version changed", lambda: any("Clip-001" in each.get_name() for each in below(versions)))
    step("a save, in the history")
    ben.choose_in_menu("Edit", "Undo")
    ben.has_in_list("open, unsaved")
    anna.has_in_list("unsaved there")
    step("what was saved, undone")
    ben.writes_to(anna, "I am through with it.")
    step("words")
    anna.writes_to(ben, "Thank you. I take it back after lunch.")
    step("an answer")


def main(program, edit_file):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    with tempfile.TemporaryDirectory() as folder:
        projects = os.path.join(folder, "projects")
        os.makedirs(projects)
        people = []
        try:
            people.append(Person(program, projects, "ANNA", 1, port,
                                 "user add BEN\nproject create Harbour\nproject enter Harbour\n"
                                 "edit import %s\nedit rename \"Figure 1 - Simple Cut List\" Quay\nedit save Quay\n"
                                 % edit_file))
            people.append(Person(program, projects, "BEN", 2, port, "user add ANNA\n"))
            film(*people, "Quay")
        finally:
            for person in people:
                person.station.kill()
                person.station.wait()


if os.environ.get("KV_FILM_SESSION") != "1":
    read_end, write_end = os.pipe()
    server = subprocess.Popen(["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1280x800x24", "-nolisten", "tcp"],
                              pass_fds=[write_end], stderr=subprocess.DEVNULL)
    os.close(write_end)
    display = os.read(read_end, 16).decode().strip()
    try:
        status = subprocess.run(
            ["dbus-run-session", "--", sys.executable] + sys.argv,
            env=dict(os.environ, KV_FILM_SESSION="1", DISPLAY=":" + display, QT_QPA_PLATFORM="xcb",
                     QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")).returncode
    finally:
        server.kill()
        server.wait()
    sys.exit(status)
# The bus is there before the windows look for it.
Atspi.init()
Atspi.get_desktop(0).get_child_count()
main(*sys.argv[1:])
