#!/usr/bin/env python3
"""Breaks the tool in a fixed list of small ways and shows which its tests notice.

Each mutant of mutantlist.py is one change to one line of the tool: an operator, a constant,
a dropped statement, swapped arguments. One after another is put into a copy of the
tree, the tests of its room are built there, and run until the first that fails.

Usage: mutants.py [PATTERN ...]  tries the mutants whose file or line holds a PATTERN,
                                 all without one
       mutants.py --check        only says which do not fit the tree any more
The copy and its build folder stay in build/mutants for the next run. All of them take
an hour on a busy machine. Exit status 0: no mutant survived but those whose reason the
list gives.
"""
import os
import shutil
import subprocess
import sys
import time

sys.dont_write_bytecode = True
from mutantlist import MUTANTS

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SCRATCH = os.path.join(TREE, "build", "mutants")
COPY = os.path.join(SCRATCH, "tree")
BUILD = os.path.join(SCRATCH, "build")
TEST_LIMIT = 60  # seconds; the longest of these tests takes five


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def misfits():
    """What of the list does not stand exactly once in the tree."""
    found = []
    for mutant in MUTANTS:
        count = read(os.path.join(TREE, mutant.file)).count(mutant.old)
        if count != 1:
            found.append(f"{mutant}: stands there {count} times")
    return found


def copy_tree():
    """Only what differs, so that the build folder is of use once more."""
    names = subprocess.run(["git", "-C", TREE, "ls-files", "-z"], check=True,
                           capture_output=True, text=True).stdout.split("\0")
    for name in filter(None, names):
        source, target = os.path.join(TREE, name), os.path.join(COPY, name)
        if not os.path.exists(source):
            continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(source, "rb") as file:
            content = file.read()
        if os.path.exists(target):
            with open(target, "rb") as file:
                if file.read() == content:
                    continue
        shutil.copy(source, target)


def build(room):
    return subprocess.run(["cmake", "--build", BUILD, "--target", f"tests_{room}"],
                          capture_output=True, text=True)


def prepare(rooms):
    copy_tree()
    subprocess.run(["cmake", "-G", "Ninja", "-S", COPY, "-B", BUILD, "-DCMAKE_BUILD_TYPE=Release",
                    "-DMFTOOL_BENCH=OFF", "-DBUILD_TESTING=ON"],
                   check=True, stdout=subprocess.DEVNULL)
    for room in rooms:
        built = build(room)
        if built.returncode != 0:
            sys.exit(built.stdout)
        failure = failing(room, "")
        if failure:
            sys.exit(f"{failure} fails without any mutant")


def tests_of(room, first):
    """The names of a room's tests, that of the broken unit first."""
    program = os.path.join(BUILD, "tests", f"tests_{room}")
    listed = subprocess.run([program], capture_output=True, text=True).stdout.splitlines()
    names = [line.strip() for line in listed if line.startswith("  tst_")]
    return program, sorted(names, key=lambda name: (name != first, name))


def failing(room, first):
    """The first test of a room that fails or takes too long; none: an empty text."""
    program, names = tests_of(room, first)
    environment = dict(os.environ, QT_QPA_PLATFORM="offscreen", MFTOOL_BUILD_DIR=BUILD)
    for name in names:
        try:
            run = subprocess.run([program, name], env=environment, timeout=TEST_LIMIT,
                                 stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL)
        except subprocess.TimeoutExpired:
            return f"{name} (time limit)"
        if run.returncode != 0:
            return name
    return ""


def outcome(mutant):
    """Who killed it; none: an empty text."""
    path = os.path.join(COPY, mutant.file)
    original = read(path)
    write(path, original.replace(mutant.old, mutant.new))
    try:
        built = build(mutant.room)
        if built.returncode != 0:
            sys.exit(f"{mutant}: does not compile\n{built.stdout}")
        unit = os.path.splitext(os.path.basename(mutant.file))[0]
        return failing(mutant.room, f"tst_{unit}")
    finally:
        write(path, original)


def main(arguments):
    stale = misfits()
    print("\n".join(stale), file=sys.stderr, end="\n" if stale else "")
    if stale or arguments == ["--check"]:
        return 1 if stale else 0

    mutants = [mutant for mutant in MUTANTS
               if not arguments or any(pattern in str(mutant) for pattern in arguments)]
    prepare(sorted({mutant.room for mutant in mutants}))
    killed = 0
    unexplained = 0
    for mutant in mutants:
        begin = time.monotonic()
        by = outcome(mutant)
        killed += bool(by)
        unexplained += not by and not mutant.why
        verdict = f"killed by {by}" if by else f"SURVIVED ({mutant.why or 'no reason known'})"
        print(f"{mutant}: {verdict}, {time.monotonic() - begin:.0f} s", flush=True)
    print(f"killed {killed} of {len(mutants)}, "
          f"{100 * killed / max(1, len(mutants)):.0f} per cent")
    return 1 if unexplained else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
