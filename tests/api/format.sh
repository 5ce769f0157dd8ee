#!/bin/sh
# Refuses C++ files that clang-format would write otherwise.
# Usage: format.sh SOURCEDIR
# Other versions than 14 lay out some lines differently: without it nothing is checked.
set -eu
cd "$1"

formatter=
for candidate in clang-format-14 clang-format; do
    if "$candidate" --version 2>/dev/null | grep -q 'version 14\.'; then
        formatter=$candidate
        break
    fi
done
if [ -z "$formatter" ]; then
    echo "SKIPPED: clang-format 14 is not installed"
    exit 0
fi

# Folders of builds and of what the bench leaves are not the project's.
list=$(mktemp)
trap 'rm -f "$list"' EXIT
find . \( -name .git -o -path './build*' -o -path ./out -o -path ./bench-out \) -prune \
    -o -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.c' -o -path './tests/api/qt4/*' \) \
    -print0 >"$list"
if [ ! -s "$list" ]; then
    echo "There is nothing to check in $1"
    exit 1
fi
xargs -0 -n 16 -P "$(nproc)" "$formatter" --dry-run -Werror <"$list"
