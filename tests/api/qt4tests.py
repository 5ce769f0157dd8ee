#!/usr/bin/env python3
"""Reads the tests that run with Qt 4 with a compiler, each behind a header. What is
generated beside a test is not needed for that.

Usage: qt4tests.py HEADER COMPILER OPTION... -- SOURCE...
Exit status 0: every one of them is understood.
"""
import os
import shutil
import subprocess
import sys
import tempfile


def main(header, *arguments):
    split = arguments.index("--")
    compiler, sources = list(arguments[:split]), arguments[split + 1:]
    with tempfile.TemporaryDirectory() as folder:
        # Read once for all of them.
        ahead = os.path.join(folder, "ahead.h")
        shutil.copy(header, ahead)
        subprocess.run(compiler + ["-x", "c++-header", ahead, "-o", ahead + ".gch"], check=True)
        failed = []
        for source in sources:
            name = os.path.basename(source).replace(".cpp", ".moc")
            open(os.path.join(folder, name), "w", encoding="ascii").close()
            if subprocess.run(compiler + ["-fsyntax-only", "-I", folder, "-include", ahead,
                                          source]).returncode != 0:
                failed.append(source)
    return 1 if failed or not sources else 0


sys.exit(main(*sys.argv[1:]))
