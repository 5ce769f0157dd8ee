#!/usr/bin/env python3
"""Runs the start script, the init script and the hot-plug example in a root folder
of their own, where devices come late, never, or with nobody who reads them.

Usage: start.py PACKAGINGDIR BUILDDIR

The tool is the real one on a file for a frame buffer where its end matters, else a
script that says with what it was started. "sleep" is a stand-in that counts, lets
devices come, and takes no time. Exit status 77: not possible here, for the reason
given.
"""
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import conversation

PATIENCE = 60  # s
PACKAGING, BUILD = (pathlib.Path(path).resolve() for path in sys.argv[1:3])
BOARD_ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}
PROGRAMS = ("cat chmod echo env kill ls mkdir mv printf rm sh start-stop-daemon stty timeout "
            "touch").split()
SCREEN = "/dev/fb0"
HOME_KEY = "/dev/input/event0"
PANEL = "/dev/input/panel"


def own_namespaces():
    """Whatever is started here ends with this run, and so do the mounts."""
    if os.environ.get("MFTOOL_OWN_MOUNTS") == "yes":
        return
    own = ["unshare", "--mount", "--pid", "--fork", "--kill-child"]
    if os.getuid() != 0:
        own.append("--map-root-user")
    try:
        subprocess.run(own + ["mount", "-t", "proc", "none", "/proc"], check=True,
                       capture_output=True)
    except (OSError, subprocess.CalledProcessError):
        print("SKIPPED: no namespaces of one's own to be had")
        sys.exit(77)
    os.environ["MFTOOL_OWN_MOUNTS"] = "yes"
    os.execvp(own[0], own + [sys.executable] + sys.argv)


class Root:
    """The root folder of a board. What is not the board's is the PC's, at /pc."""

    def __init__(self, folder):
        self.at = pathlib.Path(folder)
        for path in ("pc", "proc", "dev/pts", "dev/input", "etc/default", "etc/init.d", "run",
                     "tmp", "var/log", "usr/bin", "usr/lib/mftool"):
            self.path(path).mkdir(parents=True)
        for source, target, kind in (("/", "pc", "--rbind"), ("/dev/pts", "dev/pts", "--bind")):
            subprocess.run(["mount", kind, source, self.path(target)], check=True)
        subprocess.run(["mount", "-t", "proc", "none", self.path("proc")], check=True)
        for link in ("bin", "sbin"):
            self.path(link).symlink_to("usr/bin")
        for link in ("lib", "lib64", "usr/share", "etc/fonts"):
            if os.path.exists("/" + link):
                self.path(link).symlink_to("/pc/" + link)
        for library in os.listdir("/usr/lib"):
            if library != "mftool":
                self.path("usr/lib/" + library).symlink_to("/pc/usr/lib/" + library)
        for program in PROGRAMS:
            found = subprocess.run(["which", program], capture_output=True, text=True, check=True,
                                   env=BOARD_ENVIRONMENT)
            self.path("usr/bin/" + program).symlink_to("/pc" + found.stdout.strip())
        self.path("dev/null").symlink_to("/pc/dev/null")
        self.copy(PACKAGING / "start", "usr/lib/mftool/start")
        self.copy(PACKAGING / "mftool.init", "etc/init.d/mftool")
        self.copy(PACKAGING / "examples/sdcard", "sdcard")
        self.script("usr/bin/mftool", 'echo started "$@" >/started\nenv >/environment\n')
        self.script("usr/bin/sleep", 'echo "$1" >>/slept\n'
                    'n=$(($(cat /sleeps) + 1))\necho "$n" >/sleeps\n'
                    'if [ -e "/after-$n" ]; then . "/after-$n"; fi\n')
        self.write("sleeps", "0\n")

    def path(self, path):
        return self.at / str(path).lstrip("/")

    def write(self, path, text):
        self.path(path).write_text(text)

    def read(self, path):
        return self.path(path).read_text() if self.path(path).exists() else ""

    def script(self, path, text):
        self.write(path, "#!/bin/sh\n" + text)
        self.path(path).chmod(0o755)

    def copy(self, source, path):
        self.path(path).write_bytes(source.read_bytes())
        self.path(path).chmod(0o755)

    def come(self, *devices):
        for device in devices:
            self.path(device).touch()

    def come_after(self, sleeps, device):
        """Lets the device come during that call of sleep."""
        self.write(f"after-{sleeps}", f"touch {device}\n")

    def popen(self, *command, **options):
        return subprocess.Popen(["chroot", self.at, *command], env=BOARD_ENVIRONMENT,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                **options)

    def run(self, *command):
        process = self.popen(*command, start_new_session=True)
        try:
            said, _ = process.communicate(timeout=PATIENCE)
        finally:
            if process.poll() is None:  # what it has started holds the pipe open, too
                os.killpg(process.pid, signal.SIGKILL)
                process.communicate()
        return subprocess.CompletedProcess(command, process.returncode, said)

    def real_tool(self):
        self.copy(BUILD / "mftool", "usr/bin/mftool")
        self.copy(BUILD / "tests/fakefb.so", "fakefb.so")
        self.write("etc/default/mftool", "LD_PRELOAD=/fakefb.so\n")


class OnABoard(unittest.TestCase):
    def setUp(self):
        folder = tempfile.mkdtemp()
        subprocess.run(["mount", "-t", "tmpfs", "none", folder], check=True)
        self.addCleanup(os.rmdir, folder)
        self.addCleanup(subprocess.run, ["umount", "--lazy", folder], check=True)
        self.root = Root(folder)

    def until(self, what, happened):
        end = time.monotonic() + PATIENCE
        while not happened():
            self.assertLess(time.monotonic(), end, what)
            time.sleep(0.02)


class Waiting(OnABoard):
    def start(self, default=""):
        if default:
            self.root.write("etc/default/mftool", default)
        return self.root.run("/usr/lib/mftool/start").stdout

    def slept(self):
        return self.root.read("slept").split()

    def test_nothing_is_waited_for_where_all_is_there(self):
        self.root.come(SCREEN, HOME_KEY, PANEL)
        self.assertEqual(self.start(f'TSLIB_TSDEVICE={PANEL}\nMFTOOL_OPTIONS="-b 38400 -n"\n'), "")
        self.assertEqual(self.slept(), [])
        self.assertEqual(self.root.read("started"), "started -b 38400 -n\n")

    def test_late_frame_buffer(self):
        self.root.come(HOME_KEY)
        self.root.come_after(3, SCREEN)
        self.assertEqual(self.start(), "start: waiting for the frame buffer, /dev/fb0\n")
        self.assertEqual(self.slept(), ["1"] * 3)
        self.assertEqual(self.root.read("started"), "started\n")

    def test_late_frame_buffer_of_another_name(self):
        self.root.come(SCREEN, HOME_KEY)
        self.root.come_after(2, "/dev/fb1")
        said = self.start("QT_QPA_PLATFORM=linuxfb:size=800x480:fb=/dev/fb1:nographicsmodeswitch\n")
        self.assertEqual(said, "start: waiting for the frame buffer, /dev/fb1\n")
        self.assertEqual(self.slept(), ["1"] * 2)

    def test_no_frame_buffer_is_waited_for_where_none_is_drawn_on(self):
        self.root.come(HOME_KEY)
        self.assertEqual(self.start("QT_QPA_PLATFORM=vnc:size=800x480\n"), "")
        self.assertEqual(self.slept(), [])

    def test_late_home_key(self):
        self.root.come(SCREEN)
        self.root.come_after(1, HOME_KEY)
        self.assertEqual(self.start(), "start: waiting for the home key, /dev/input/event0\n")
        self.assertEqual(self.slept(), ["1"])
        self.assertEqual(self.root.read("started"), "started\n")

    def test_late_touchscreen_that_is_expected(self):
        self.root.come(SCREEN, HOME_KEY)
        self.root.come_after(4, PANEL)
        self.assertEqual(self.start(f"TSLIB_TSDEVICE={PANEL}\n"),
                         f"start: waiting for the touchscreen, {PANEL}\n")
        self.assertEqual(self.slept(), ["1"] * 4)
        self.assertIn(f"TSLIB_TSDEVICE={PANEL}\n", self.root.read("environment"))

    def environment(self):
        return self.root.read("environment").splitlines()

    def test_qt_reads_no_panel_where_none_is_there(self):
        """Its touches would be uncalibrated; the tool looks for the panel by itself."""
        self.root.come(SCREEN, HOME_KEY)
        self.assertEqual(self.start(), "")
        self.assertIn("QT_QPA_FB_DISABLE_INPUT=1", self.environment())
        self.assertIn("TSLIB_TSDEVICE=/dev/input/touchscreen", self.environment())

    def test_qt_reads_a_panel_that_it_is_told_to(self):
        self.root.come(SCREEN, HOME_KEY, "/dev/input/touchscreen")
        self.assertEqual(self.start("QT_QPA_FB_DISABLE_INPUT=0\n"), "")
        self.assertIn("QT_QPA_FB_DISABLE_INPUT=0", self.environment())
        self.assertNotIn("TSLIB_TSDEVICE", self.root.read("environment"))

    def test_loop_of_qt_itself_unless_told_otherwise(self):
        self.root.come(SCREEN, HOME_KEY)
        self.start()
        self.assertIn("QT_NO_GLIB=1", self.environment())
        self.start("QT_NO_GLIB=\n")
        self.assertIn("QT_NO_GLIB=", self.environment())

    def test_mouse_of_other_platforms_serves(self):
        self.root.come(HOME_KEY)
        self.assertEqual(self.start("QT_QPA_PLATFORM=vnc:size=800x480\n"), "")
        self.assertNotIn("QT_QPA_FB_DISABLE_INPUT", self.root.read("environment"))
        self.assertNotIn("TSLIB_TSDEVICE", self.root.read("environment"))

    def test_ten_seconds_in_all_then_what_there_is(self):
        self.root.come_after(6, SCREEN)
        self.assertEqual(self.start(f"TSLIB_TSDEVICE={PANEL}\n"),
                         "start: waiting for the frame buffer, /dev/fb0\n"
                         "start: waiting for the home key, /dev/input/event0\n"
                         "start: there is no /dev/input/event0, starting without it\n"
                         f"start: waiting for the touchscreen, {PANEL}\n"
                         f"start: there is no {PANEL}, starting without it\n")
        self.assertEqual(self.slept(), ["1"] * 10)
        self.assertEqual(self.root.read("started"), "started\n")

    def test_words_go_to_the_log_file(self):
        self.root.come(HOME_KEY)
        self.root.come_after(1, SCREEN)
        self.root.run("/usr/lib/mftool/start", "/var/log/mftool.log")
        self.assertEqual(self.root.read("var/log/mftool.log"),
                         "start: waiting for the frame buffer, /dev/fb0\n")


class Stopping(OnABoard):
    def test_tool_is_ended_by_the_signal(self):
        """systemd counts an end by SIGTERM as a clean one, and exit status 1 as a failure."""
        self.root.real_tool()
        station = conversation.Station(str(self.root.at))
        conversation.furnish(station)
        station.tool = self.root.popen("/usr/lib/mftool/start")
        self.addCleanup(station.tool.communicate)
        self.addCleanup(station.tool.kill)
        station.expect("ready message", conversation.NAK + conversation.READY)
        station.tool.send_signal(signal.SIGTERM)
        self.assertEqual(station.tool.wait(PATIENCE), -signal.SIGTERM)

    def init(self, action):
        return self.root.run("/etc/init.d/mftool", action)

    def test_init_script_stops_a_start_that_still_waits(self):
        self.root.real_tool()
        self.root.path("dev/ttySP0").symlink_to("/pc/dev/null")  # for init a line that is there
        # A sleep without end: the screen never comes.
        os.mkfifo(self.root.path("never"))
        self.root.script("usr/bin/sleep", "echo x >>/slept\nread -r word </never\n")
        start = self.root.popen("/etc/init.d/mftool", "start", start_new_session=True)
        self.addCleanup(start.communicate)
        self.addCleanup(os.killpg, start.pid, signal.SIGKILL)
        self.until("the start script waits", lambda: self.root.read("slept"))
        self.assertEqual(self.init("status").stdout, "mftool is running\n")
        pid = self.root.read("run/mftool.pid").strip()
        self.assertTrue(self.root.path(f"proc/{pid}/exe").exists())
        self.assertEqual(self.init("start").returncode, 0)
        self.assertEqual(self.root.read("run/mftool.pid").strip(), pid, "started a second time")
        self.assertEqual(self.init("stop").returncode, 0)
        self.assertEqual(self.init("status").stdout, "mftool is not running\n")
        self.assertFalse(self.root.path(f"proc/{pid}/exe").exists(), "the script runs on")


class HotPlug(OnABoard):
    def setUp(self):
        super().setUp()
        for program in ("mount", "umount"):
            self.root.script("usr/bin/" + program, f'echo {program} "$@" >>/mounts\n')

    def test_reader_gets_one_line(self):
        os.mkfifo(self.root.path("tmp/sdstat"))
        for action, line in (("add", "#/media/mmcblk0p1\n"), ("remove", "!/media/mmcblk0p1\n")):
            script = self.root.popen("/sdcard", action, "mmcblk0p1")
            with open(self.root.path("tmp/sdstat"), encoding="ascii") as events:
                self.assertEqual(events.read(), line)
            said, _ = script.communicate(timeout=PATIENCE)
            self.assertEqual((script.returncode, said), (0, ""))
        self.assertEqual(self.root.read("mounts"), "mount /dev/mmcblk0p1 /media/mmcblk0p1\n"
                         "umount -l /media/mmcblk0p1\n")

    def test_nobody_reads(self):
        os.mkfifo(self.root.path("tmp/sdstat"))
        result = self.root.run("/sdcard", "add", "mmcblk0p1")
        self.assertEqual((result.returncode, result.stdout), (
            0, "sdcard: nobody reads /tmp/sdstat, '#/media/mmcblk0p1' is not told\n"))

    def test_no_pipe(self):
        self.assertEqual(self.root.run("/sdcard", "add", "mmcblk0p1").returncode, 0)
        self.assertFalse(self.root.path("tmp/sdstat").exists(), "a plain file in the pipe's place")


if __name__ == "__main__":
    own_namespaces()
    unittest.main(argv=sys.argv[:1], verbosity=2)
