#!/usr/bin/env python3
"""A test station's conversation with the whole tool, in a folder that is a board.

Usage: conversation.py ROOT COMMAND...

ROOT is the root folder of the board; its dev/pts must be this machine's. COMMAND
starts the tool inside it, and may return while the tool runs. Every reply is
compared with its literal bytes, and so is what the tool stored in the files of
the board. Exit status 0: all as it should be.
"""
import os
import pty
import subprocess
import sys
import time
import tty

PATIENCE = 60  # s; an emulated board is slow, a busy machine slower

ACK = b"7E000A00043102957F\r\n"
READY = b"7E000A99995102B77F\r\n"

BACKLIGHT = "sys/class/backlight/mxs-bl/brightness"
LED = "sys/class/leds/%s/brightness"

# Each step: what it is, the request, the reply, and what a file then holds.
STEPS = [
    ("echo of bytes that are no text",
     b"7E000C600217\xE4\xFF04627F", b"7E000C600338\xE4\xFF04867F\r\n", None),
    ("firmware version",
     b"7E000C603C2B0103007F",
     b"7E002C603D6E02052.5.17        000000000000000008FB7F\r\n", None),
    ("backlight", b"7E000E61431F006403607F", ACK, (BACKLIGHT, b"100")),
    ("status LEDs on", b"7E001861441400050000000000051E7F", ACK, (LED % "ready", b"255")),
    ("status LEDs off", b"7E001861441400050000000000051E7F", ACK, (LED % "armed", b"0")),
    ("home LED", b"7E000C7010173202E47F", ACK, (LED % "home", b"128")),
    ("buttons", b"7E000A70701B028E7F", b"7E000C70713E0003367F\r\n", None),
    ("bus voltage", b"7E000A70801C02907F", b"7E001270810F13500000042E7F\r\n", None),
    ("nothing is flashed", b"7E000A70531C02907F", b"7E000A00033002937F\r\n", None),
    ("red picture", b"7E0011700005red.png05187F", ACK, None),
]
RED_IS_SHOWN = ("picture removed", b"7E000A70001402797F", ACK, None)
# The boot stream's program is missing: acknowledged first, then reported.
FLASH = ("flash without its program", b"7E000A70501902837F",
         ACK + b"7E000C70523D0003347F\r\n", None)
EXIT = ("exit", b"7E000A60011402797F", ACK, None)

BOARD = {
    BACKLIGHT: b"0",
    "sys/class/gpio/gpio17/value": b"1",
    "sys/class/gpio/gpio62/value": b"0",
    "sys/class/power_supply/corlink/voltage_now": b"13500000\n",
    "usr/lib/panel/version": b"2.5.17\n",
}
LEDS = ("ready", "armed", "trouble", "ac", "home", "buzzer")


class Failure(Exception):
    pass


class Station:
    def __init__(self, root):
        self.root = root
        self.tool = None
        self.near, self.far = pty.openpty()  # the far end stays open: the line never hangs up
        tty.setraw(self.far)
        os.set_blocking(self.near, False)
        line = self.at("dev/ttySP0")
        if os.path.lexists(line):
            os.remove(line)
        os.symlink(os.ttyname(self.far), line)

    def at(self, path):
        return os.path.join(self.root, path)

    def expect(self, what, wanted):
        received = b""
        end = time.monotonic() + PATIENCE
        while len(received) < len(wanted) and time.monotonic() < end:
            try:
                received += os.read(self.near, 4096)
            except BlockingIOError:
                if self.tool.poll():
                    raise Failure(f"{what}: the tool has ended with {self.tool.returncode}")
                time.sleep(0.01)
        if received != wanted:
            raise Failure(f"{what}: {received!r} came instead of {wanted!r}")

    def ask(self, what, request, reply, stored):
        os.write(self.near, request + b"\r\n")
        self.expect(what, reply)
        if stored:
            path, content = stored
            with open(self.at(path), "rb") as file:
                found = file.read()
            if found != content:
                raise Failure(f"{what}: {path} holds {found!r} instead of {content!r}")
        print(f"ok: {what}")

    def expect_pixel(self, what, x, y, colour):
        end = time.monotonic() + PATIENCE
        while True:
            with open(self.at("dev/fb0"), "rb") as screen:
                screen.seek((y * 800 + x) * 4)
                blue, green, red, _ = screen.read(4)
            if (red, green, blue) == colour:
                print(f"ok: {what}")
                return
            if time.monotonic() > end:
                raise Failure(f"{what}: pixel {x},{y} is {red},{green},{blue}")
            time.sleep(0.05)


def furnish(station):
    for path, content in BOARD.items():
        os.makedirs(os.path.dirname(station.at(path)), exist_ok=True)
        with open(station.at(path), "wb") as file:
            file.write(content)
    for led in LEDS:
        os.makedirs(os.path.dirname(station.at(LED % led)), exist_ok=True)
        with open(station.at(LED % led), "wb") as file:
            file.write(b"0")
    os.makedirs(station.at("boot"), exist_ok=True)
    with open(station.at("dev/fb0"), "wb") as screen:
        screen.truncate(800 * 480 * 4)


def converse(station):
    station.expect("logo and ready message", ACK + READY)
    print("ok: ready")
    station.expect_pixel("the logo is on the screen", 400, 100, (240, 244, 248))
    station.expect_pixel("the logo reaches the last corner", 799, 479, (16, 42, 67))
    for step in STEPS:
        station.ask(*step)
    station.expect_pixel("the picture is on the screen", 799, 0, (255, 0, 0))
    station.ask(*RED_IS_SHOWN)
    station.expect_pixel("the main screen is on the screen", 400, 20, (255, 255, 255))
    station.ask(*FLASH)


def hold(root, command, before_exit=lambda station: None):
    """Starts the tool by command, has the conversation, and ends the tool."""
    station = Station(root)
    furnish(station)
    station.tool = tool = subprocess.Popen(command)
    try:
        converse(station)
        before_exit(station)
        station.ask(*EXIT)
        status = tool.wait(PATIENCE)
        if status != 0:
            raise Failure(f"exit status {status}")
    except (Failure, subprocess.TimeoutExpired) as failure:
        tool.kill()
        sys.exit(f"FAILED: {failure}")
    print("ok: the tool has ended")


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    hold(sys.argv[1], sys.argv[2:])


if __name__ == "__main__":
    main()
