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

NAK = b"7E000A00053202977F\r\n"
NA = b"7E000A00033002937F\r\n"

BACKLIGHT = "sys/class/backlight/mxs-bl/brightness"
LED = "sys/class/leds/%s/brightness"
BIAS = "sys/class/gpio/gpio62/%s"
HOME_KEY = "dev/input/event0"
CARD = "dev/card"  # its folder is swept away with the rest of dev
CARD_EVENTS = "tmp/sdstat"
CARD_FILE = CARD + "/ateTestFileOnSdCard.txt"

# Each step: what it is, the request, the reply, and what a file then holds.
STEPS = [
    ("echo of bytes that are no text",
     b"7E000C600217\xE4\xFF04627F", b"7E000C600338\xE4\xFF04867F\r\n", None),
    ("firmware version",
     b"7E000C603C2B0103007F",
     b"7E002C603D6E02052.5.17        000000000000000008FB7F\r\n", None),
    ("what is no frame", b"is anybody there at all?", NAK, None),
    ("unknown type", b"7E000A123417027F7F", NA, None),
    ("backlight", b"7E000E61431F006403607F", ACK, (BACKLIGHT, b"100")),
    ("bias power", b"7E000E61431F010103587F", ACK, (BIAS % "direction", b"out")),
    ("bias power again", b"7E000E61431F010103587F", ACK, (BIAS % "value", b"1")),
    ("buzzer", b"7E000E61472380FF037C7F", ACK, (LED % "buzzer", b"127")),
    ("buzzer off", b"7E000E614723000003487F", ACK, (LED % "buzzer", b"0")),
    ("status LEDs on", b"7E001861441400050000000000051E7F", ACK, (LED % "ready", b"255")),
    ("status LEDs off", b"7E001861441400050000000000051E7F", ACK, (LED % "armed", b"0")),
    ("home LED", b"7E000C7010173202E47F", ACK, (LED % "home", b"128")),
    ("buttons", b"7E000A70701B028E7F", b"7E000C70713E0003367F\r\n", None),
    ("bus voltage", b"7E000A70801C02907F", b"7E001270810F13500000042E7F\r\n", None),
    ("no SD card", b"7E001061610B01050203A57F",
     b"7E0026616213010502010000000000000000000007C07F\r\n", None),
    ("touch test", b"7E000C7030190102E47F", ACK, None),
    ("touch test off", b"7E000C7030190002E37F", ACK, None),
    ("relay", b"7E000C70401A0102ED7F", ACK, None),
    ("line to the module", b"7E001170410AAT+VER?04677F", b"AT+VER?\r\n" + ACK, None),
    ("relay off", b"7E000C70401A0002EC7F", ACK, None),
    ("calibration", b"7E000C7020180102E27F", ACK, None),
    ("calibration off", b"7E000C7020180002E17F", ACK, None),
    ("nothing is flashed", b"7E000A70531C02907F", NA, None),
    ("red picture", b"7E0011700005red.png05187F", ACK, None),
]
RED_IS_SHOWN = ("picture removed", b"7E000A70001402797F", ACK, None)
BUTTONS = b"7E000A70701B028E7F"
SD_CARD = b"7E001061610B01050203A57F"
# A record of the board's kernel: the time, key event, home key, pressed or released.
PRESSED = b"\0\0\0\0\0\0\0\0\x01\0\x66\0\x01\0\0\0"
RELEASED = b"\0\0\0\0\0\0\0\0\x01\0\x66\0\0\0\0\0"
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
            found = self.content(path)
            if found != content:
                raise Failure(f"{what}: {path} holds {found!r} instead of {content!r}")
        print(f"ok: {what}")

    def ask_until(self, what, request, begins):
        """Asks again until what has happened on the board is what is answered."""
        end = time.monotonic() + PATIENCE
        while True:
            os.write(self.near, request + b"\r\n")
            reply = self.line(what, end)
            if reply.startswith(begins):
                print(f"ok: {what}")
                return reply
            if time.monotonic() > end:
                raise Failure(f"{what}: {reply!r} came instead of {begins!r}...")

    def line(self, what, end):
        received = b""
        while not received.endswith(b"\r\n"):
            try:
                received += os.read(self.near, 4096)
            except BlockingIOError:
                if self.tool.poll() or time.monotonic() > end:
                    raise Failure(f"{what}: {received!r} and no more came")
                time.sleep(0.01)
        return received

    def content(self, path):
        with open(self.at(path), "rb") as file:
            return file.read()

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
    for folder in ("boot", CARD, os.path.dirname(HOME_KEY)):
        os.makedirs(station.at(folder), exist_ok=True)
    if not os.path.exists(station.at(HOME_KEY)):
        os.mkfifo(station.at(HOME_KEY))
    with open(station.at("dev/fb0"), "wb") as screen:
        screen.truncate(800 * 480 * 4)


def press_home_key(station):
    # Read-write: a pipe that nobody reads yet must not keep the station waiting.
    key = os.open(station.at(HOME_KEY), os.O_RDWR)
    for what, record, reply, buzzer in (
            ("home key", PRESSED, b"7E000C70713E0103377F\r\n", b"185"),
            ("home key released", RELEASED, b"7E000C70713E0003367F\r\n", b"0")):
        os.write(key, record)
        station.ask_until(what, BUTTONS, reply)
        # In a plain file each of the buzzer's texts stands behind the last.
        if not station.content(LED % "buzzer").endswith(buzzer):
            raise Failure(f"{what}: the buzzer's file ends otherwise than with {buzzer!r}")
    os.close(key)


def insert_card(station):
    with open(station.at(CARD_EVENTS), "wb", buffering=0) as events:
        events.write(b"#/" + CARD.encode() + b"\n")
    reply = station.ask_until("SD card", SD_CARD, b"7E002661621301050200")
    written = b"".join(station.content(CARD_FILE).split())
    if len(written) != 20 or reply[20:40] != written:
        raise Failure(f"SD card: {reply!r} does not tell of the {written!r} on the card")


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
    press_home_key(station)
    insert_card(station)
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
