#!/usr/bin/env python3
"""Writes the hand-made part of the corpus: seeds.py FOLDER (normally corpus/)."""
import json
import os
import re
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))


def requests():
    """Types, and for each what it takes and what it refuses."""
    with open(os.path.join(HERE, "../support/requests.h"), encoding="ascii") as file:
        header = file.read()
    types = [int(kind, 16) for kind in re.findall(r"\{0x(\w{4}), -?\d", header)]
    good, bad = {}, {}
    for kind, data, reply in re.findall(r'\{0x(\w{4}), "(.*?)", "(.*?)"', header):
        if reply not in ("0003", "0005"):
            good.setdefault(int(kind, 16), data.encode())
        elif data:
            bad.setdefault(int(kind, 16), data.encode())
    return types, good, bad


TYPES, GOOD, BAD = requests()


def frame(kind, data):
    head = b"7E%04X%04X" % (len(data) + 10, kind)
    head += b"%02X" % (sum(head) & 0xFF)
    return head + data + b"%04X7F\r\n" % (sum(head + data) & 0xFFFF)


def receive():
    for kind in TYPES:
        good = frame(kind, GOOD.get(kind, b""))
        yield b"\0" + good
        yield b"\2" + struct.pack(">H", kind) + GOOD.get(kind, b"")
        if kind in BAD:
            yield b"\2" + struct.pack(">H", kind) + BAD[kind]
    ack = frame(0x6001, b"")
    yield b"\1" + b"7E0000614300" + b"0064" + b"00007F\r\n"   # nothing right but marks and type
    yield b"\0" + ack.lower()
    yield b"\0" + ack + ack                                   # two in one piece
    yield b"\0" + ack[:17]
    yield b"\0" + b"\r\n"
    yield b"\0" + ack[:8] + b"\0" + ack[8:]
    yield b"\2\x60\x02" + b"\xe4\xff\x80"
    yield b"\0" + b"7E" + b"A" * 1000 + b"7F"


def widget():
    requests = b""
    for number, kind in enumerate(TYPES):
        data = GOOD.get(kind, b"")
        requests += bytes([number, len(data)]) + data
        yield bytes([number, len(data)]) + data + b"\xf3"
    yield requests
    yield b"\xf1\x06\x06" + b"011E02" + b"\xf2\x06\x06" + b"011E02"      # the card's test, twice
    yield b"\x0a\x0201" + b"\xf0\0\x64\0\x32" + b"\xf3"                   # touch test and a press
    yield b"\x09\x0201" + b"\xf0\0\x64\0\x32" + b"\x07\x04bars\x09\x0200"  # calibration, a picture
    yield b"\x0b\x0201\x0c\x03abc\x0b\x0200\x0c\x03abc"                   # relaying on and off
    yield b"\x0d\0\xf3\x0e\0\x0f\0\xf3\xf3"                               # flash, query, mount
    yield b"\xf4\x12" + frame(0x7070, b"")[:18]


def tooloutput():
    scan = b"libscan: scanning eraseblock %d -- %2d %% complete  \r"
    flash = b"ubiformat: flashing eraseblock %d -- %2d %% complete  \r"
    form = b"ubiformat: formatting eraseblock %d -- %2d %% complete  \r"
    yield scan % (7, 4)
    yield b"".join(line % (block, block * 50) for line in (scan, flash, form)
                   for block in range(3)) + b"\n"
    yield b"".join(line % (9, 100) for line in (scan, flash, form, scan, form))
    yield b"".join(b"mtd: erasing %d:0x%x\n" % (i, i << 17) for i in range(60))
    yield b"a\r\nb"
    yield b" ubiformat: flashing eraseblock 1 -- 10 % complete\n"
    yield b"libscan: scanning eraseblock 99999999999 -- 99999999999 % complete\n"
    yield b"libscan: scanning eraseblock 1 -- 50\0 % complete\nx\0y\n\n\r\r"
    yield b"\xff\xfe\x80mtd: erasing \nmtd: erasing\n"


def sdevent():
    for text in (b"#/media/mmcblk0p1\n", b"!/media/mmcblk0p1\n", b"# /media/a b \r\n", b"\n",
                 b"\r\n", b"", b" #/x\n", b"x\n", b"#\n", b"#\0/x\n", b"!\xc3\xa4\xff\n",
                 b"#\xef\xbb\xbf\n"):
        yield text


def version():
    for text in (b"20140101 1.2\n", b"1.2.3\n", b"abc\n", b"", b"300.400\n", b"-1.-2\n",
                 b"12345678901234567890\n", b"20140101 \n", b"20140101 1.2\0junk\n", b"1..2",
                 b"99999999999.1", b"\xe4\xf6\xfc.\xff", b"12034000\n", b"  7  \n"):
        yield text


def pointercal():
    for text in (b"13107 0 0 0 7864 0 65536\n", b"1 2 3 4 5 6 0\n", b"1 2 3\n",
                 b"2147483647 -2147483648 1 1 1 1 1\n", b"2147483648 1 1 1 1 1 1\n",
                 b"-69 8567 -3106 -11 -33 51 65536 800 480 0\n", b"+1 2 3 4 5 6 7\n",
                 b"0 0 0 0 0 0 1\n", b"1\t2\n3\r4\v5\f6 7", b"1 1 1 1 1 1 x", b""):
        yield b"\0" + text
    screen = [(10, 10), (10, 470), (790, 470), (790, 10), (400, 240)]
    panels = [[(200, 200), (200, 3900), (3900, 3900), (3900, 200), (2048, 2048)],
              [(10, 10), (10, 470), (790, 470), (790, 10), (400, 240)],
              [(3900, 200), (200, 200), (200, 3900), (3900, 3900), (2048, 2048)],
              [(0, 0)] * 5,
              [(1, 100), (1, 2000), (2, 4000), (1, 150), (1, 2100)],
              [(-32768, -32768), (-32768, 32767), (32767, 32767), (32767, -32768), (0, 0)]]
    for panel in panels:
        yield b"\1" + b"".join(struct.pack(">hh", *point) for point in panel + screen)
    # The library would divide by zero, by -1 what has no opposite, or take the half of it.
    for text in (b"1 0 0 0 1 0 0\n", b"2147483647 0 -2147483648 0 1 -2147483648 -1\n",
                 b"1 0 0 0 1 -2147483648 -1\n", b"2 0 100 0 2\n", b"65536 0 0 0 65536 0 65536\n",
                 b"-3 0 -4 0 -3 -5 -6 800 480 0\n", b"1 0 0 0 1 0 1 800 480 3\n"):
        yield b"\0" + text


def plan():
    with open(os.path.join(HERE, "../../bench/plans/production.json"), "rb") as file:
        production = json.load(file)
    head = {key: value for key, value in production.items() if key != "steps"}
    for step in production["steps"]:       # small ones: the fuzzer has time for many
        yield json.dumps(dict(head, steps=[step])).encode()
    for text in (b"", b"{}", b"[]", b"null", b'{"steps": []}', b"\xff", b'{"a": {"a": [1e999]}}'):
        yield text


def main():
    for make in (receive, widget, tooloutput, sdevent, version, pointercal, plan):
        folder = os.path.join(sys.argv[1], "fuzz_" + make.__name__)
        os.makedirs(folder, exist_ok=True)
        for number, content in enumerate(make()):
            with open(os.path.join(folder, "seed-%02d" % number), "wb") as file:
                file.write(content)


main()
