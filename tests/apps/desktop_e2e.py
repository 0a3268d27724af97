#!/usr/bin/env python3
"""The desktop program end to end on an X server (run under xvfb-run): a job
from the command line, jobs from the suite, an error, an abort, a paused job,
a second start, hiding in the tray and coming back, the installed layout.
Saves a screenshot of the window with rows in all five states.
Usage: desktop_e2e.py BUILD_DIR SOURCE_DIR SCREENSHOT"""
import os
import shutil
import subprocess
import sys
import tempfile
import time

from PIL import ImageGrab, ImageStat
from Xlib import X, XK, display, protocol
from Xlib.ext import xtest

BUILD, SOURCE, SHOT = sys.argv[1:4]
APPS = os.path.join(BUILD, "apps")
TITLE = "Tarnvel (Raw Converter)"


def fail(message):
    print("FAILED: " + message, flush=True)
    sys.exit(1)


def wait_for(what, condition, seconds=60):
    end = time.time() + seconds
    while time.time() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    fail("timed out waiting for " + what)


class Screen:
    """The X server as a user sees it: top-level windows, clicks, keys."""

    def __init__(self):
        self.d = display.Display()
        self.root = self.d.screen().root
        self.pid_atom = self.d.intern_atom("_NET_WM_PID")
        self.protocols = self.d.intern_atom("WM_PROTOCOLS")
        self.delete = self.d.intern_atom("WM_DELETE_WINDOW")

    def windows(self, pid, title=None, mapped=True):
        found = []
        for w in self.root.query_tree().children:
            try:
                prop = w.get_full_property(self.pid_atom, X.AnyPropertyType)
                if not prop or prop.value[0] != pid:
                    continue
                if mapped and w.get_attributes().map_state != X.IsViewable:
                    continue
                name = w.get_wm_name()
                if title is None or name == title:
                    found.append(w)
            except Exception:
                pass
        return found

    def main_window(self, pid, mapped=True):
        for w in self.windows(pid, TITLE, mapped):
            if w.get_wm_transient_for() is None:
                return w
        return None

    def dialog(self, pid):
        for w in self.windows(pid):
            if w.get_wm_transient_for() is not None:
                return w
        return None

    def close(self, window):
        """The window manager's close: WM_DELETE_WINDOW."""
        event = protocol.event.ClientMessage(window=window, client_type=self.protocols,
                                             data=(32, [self.delete, X.CurrentTime, 0, 0, 0]))
        window.send_event(event)
        self.d.flush()

    def geometry(self, window):
        g = window.get_geometry()
        at = window.translate_coords(self.root, 0, 0)
        return -at.x, -at.y, g.width, g.height

    def click(self, x, y):
        xtest.fake_input(self.d, X.MotionNotify, x=x, y=y)
        xtest.fake_input(self.d, X.ButtonPress, 1)
        xtest.fake_input(self.d, X.ButtonRelease, 1)
        self.d.sync()

    def keys(self, window, *names):
        window.set_input_focus(X.RevertToParent, X.CurrentTime)
        self.d.sync()
        time.sleep(0.2)
        for name in names:
            code = self.d.keysym_to_keycode(XK.string_to_keysym(name))
            xtest.fake_input(self.d, X.KeyPress, code)
            xtest.fake_input(self.d, X.KeyRelease, code)
            self.d.sync()
            time.sleep(0.1)


def main():
    work = tempfile.mkdtemp(prefix="tarnvel-e2e-")
    runtime = os.path.join(work, "run")
    os.mkdir(runtime, 0o700)
    env = dict(os.environ, TARNVEL_USER_REGISTRY=os.path.join(work, "user.reg"),
               TARNVEL_MACHINE_REGISTRY=os.path.join(work, "machine.reg"),
               TARNVEL_SOCKET=os.path.join(runtime, "tarnvel.sock"),
               TARNVEL_SUITE_SOCKET=os.path.join(runtime, "suite.sock"),
               XDG_RUNTIME_DIR=runtime, XDG_DATA_HOME=os.path.join(work, "data"), LANG="C.UTF-8")
    env.pop("QT_QPA_PLATFORM", None)

    def recording(name, width=96, height=64, frames=12, **extra):
        folder = os.path.join(work, "shots", name)
        args = [os.path.join(APPS, "recgen", "tarnvel-recgen"), "--out", folder, "--width", str(width),
                "--height", str(height), "--frames", str(frames), "--pretrigger", "0", "--base-name", name]
        for key, value in extra.items():
            args += ["--" + key.replace("_", "-"), str(value)]
        subprocess.run(args, check=True, stdout=subprocess.DEVNULL, env=env)
        return folder

    def send(*args):
        subprocess.run([os.path.join(APPS, "tarnvel-send"), *args], check=True, stdout=subprocess.DEVNULL, env=env)

    def frame(folder, number):
        return os.path.join(folder, "%s%06d.tif" % (os.path.basename(folder), number))

    screen = Screen()
    tray = subprocess.Popen(["trayer", "--edge", "top", "--align", "left", "--widthtype", "request", "--height", "24",
                             "--SetDockType", "false", "--transparent", "false"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=env)
    time.sleep(1)
    first = recording("first")
    error = recording("broken")
    for name in os.listdir(error):
        if name.endswith(".raw"):
            os.remove(os.path.join(error, name))
    aborted = recording("aborted", 320, 240, 200)
    paused = recording("paused", 320, 240, 400)
    waiting = recording("waiting")
    log = open(os.path.join(work, "tarnvel.log"), "w")
    app = subprocess.Popen([os.path.join(APPS, "tarnvel"), os.path.join(first, "args.ini")], env=env, stdout=log,
                           stderr=subprocess.STDOUT)
    try:
        window = wait_for("the window", lambda: screen.main_window(app.pid))
        wait_for("the command line's job", lambda: os.path.exists(frame(first, 11)))

        # From the suite: a recording without raw files fails with a message;
        # while it shows, a large job is added and every job paused.
        send("add", os.path.join(error, "args.ini"))
        box = wait_for("the error message", lambda: screen.dialog(app.pid))
        send("add", os.path.join(aborted, "args.ini"))
        send("pause")
        screen.close(box)
        time.sleep(1.5)  # the large job opens its output and stops at its pause gate
        # Abort, answered Yes (the focus goes from No to Yes).
        x, y, w, h = screen.geometry(window)
        screen.click(x + w - 8 - 96 - 6 - 48, y + h - 8 - 10)
        question = wait_for("question 1061", lambda: screen.dialog(app.pid))
        screen.keys(question, "Tab", "Return")
        wait_for("the question to go", lambda: screen.dialog(app.pid) is None, 10)
        time.sleep(1)
        if os.path.exists(frame(aborted, 199)):
            fail("the aborted job ran to its end")

        # A job that runs and pauses, one that waits behind it.
        send("add", os.path.join(paused, "args.ini"))
        send("add", os.path.join(waiting, "args.ini"))
        send("pause")
        time.sleep(1.5)
        if os.path.exists(frame(paused, 399)) or os.path.exists(frame(waiting, 0)):
            fail("the paused job did not stay paused")

        x, y, w, h = screen.geometry(window)
        shot = ImageGrab.grab(bbox=(x, y, x + w, y + h), xdisplay=os.environ["DISPLAY"])
        os.makedirs(os.path.dirname(SHOT), exist_ok=True)
        shot.save(SHOT)
        colours = len(shot.convert("RGB").getcolors(1 << 20) or [])
        if w < 600 or colours < 40 or max(ImageStat.Stat(shot.convert("L")).stddev) < 10:
            fail("the screenshot looks blank (%d colours)" % colours)

        send("resume")
        wait_for("the paused and the waiting job", lambda: os.path.exists(frame(waiting, 11)))
        wait_for("the last frame of the paused job", lambda: os.path.exists(frame(paused, 399)))
        if os.path.exists(frame(aborted, 199)) or not os.path.exists(os.path.join(aborted, "rawdata.00.raw")):
            fail("the aborted recording lost its raw files or ran on")

        # A second start converts in a window of its own; the suite keeps talking to the first.
        second_rec = recording("second")
        second = subprocess.Popen([os.path.join(APPS, "tarnvel"), os.path.join(second_rec, "args.ini")], env=env,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        second_window = wait_for("the second window", lambda: screen.main_window(second.pid))
        wait_for("the second start's job", lambda: os.path.exists(frame(second_rec, 11)))
        time.sleep(0.5)
        screen.close(second_window)
        output, _ = second.communicate(timeout=20)
        if second.returncode != 0 or "no suite commands" not in output:
            fail("second start: status %s, output %r" % (second.returncode, output))

        # Close with a job pending hides the window; the tray's icon brings it back.
        hidden_rec = recording("hidden", 320, 240, 300)
        send("add", os.path.join(hidden_rec, "args.ini"))
        send("pause")
        time.sleep(0.5)
        screen.close(window)
        wait_for("the window to hide", lambda: screen.main_window(app.pid) is None, 10)
        if app.poll() is not None:
            fail("the program ended with a job pending")
        tx, ty, tw, th = screen.geometry(screen.d.create_resource_object("window", tray_window(screen, tray.pid)))
        screen.click(tx + 12, ty + th // 2)
        window = wait_for("the window to come back", lambda: screen.main_window(app.pid), 10)
        send("resume")
        wait_for("the hidden job", lambda: os.path.exists(frame(hidden_rec, 299)))
        time.sleep(0.5)
        screen.close(window)
        app.wait(timeout=20)
        if app.returncode != 0:
            fail("tarnvel ended with status %d" % app.returncode)
        check_installed(screen, env, work)
    finally:
        for p in (app, tray):
            if p.poll() is None:
                p.kill()
        log.close()
        print(open(os.path.join(work, "tarnvel.log")).read())
    shutil.rmtree(work, ignore_errors=True)
    print("1 passed, 0 failed")


def tray_window(screen, pid):
    for w in screen.root.query_tree().children:
        prop = w.get_full_property(screen.pid_atom, X.AnyPropertyType)
        if prop and prop.value[0] == pid and w.get_attributes().map_state == X.IsViewable:
            return w.id
    fail("no tray")


def check_installed(screen, env, work):
    """cmake --install: programs, menu entry, icons and catalogues in their
    places; the installed program finds its German texts."""
    prefix = os.path.join(work, "prefix")
    subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
    for path in ("bin/tarnvel", "bin/tarnvel-cli", "bin/tarnvel-send", "share/applications/tarnvel.desktop",
                 "share/icons/hicolor/48x48/apps/tarnvel.png", "share/icons/hicolor/256x256/apps/tarnvel.png",
                 "share/tarnvel/Languages/tarnvel.de"):
        if not os.path.exists(os.path.join(prefix, path)):
            fail("not installed: " + path)
    if shutil.which("desktop-file-validate"):
        subprocess.run(["desktop-file-validate", os.path.join(prefix, "share/applications/tarnvel.desktop")],
                       check=True)
    with open(env["TARNVEL_USER_REGISTRY"], "w") as reg:
        reg.write("[Software\\OKN\\FathomBureau\\Settings]\nLanguage=1\n")
    german = subprocess.Popen([os.path.join(prefix, "bin/tarnvel"), "*$$*"], env=env, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL)
    try:
        wait_for("the German window", lambda: screen.windows(german.pid, "Tarnvel (Rohdatenkonverter)"), 20)
        subprocess.run([os.path.join(prefix, "bin/tarnvel-send"), "close"], check=True, env=env,
                       stdout=subprocess.DEVNULL)
        german.wait(timeout=20)
    finally:
        if german.poll() is None:
            german.kill()


if __name__ == "__main__":
    main()
