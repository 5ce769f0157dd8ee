# shellcheck shell=bash disable=SC2154  # read by make-image.sh
# Removes what the board of this source tree does not need: older boards and what only
# they stood on. Wanted is the lock of the cache, so that nobody is making one meanwhile.

# Whether the folder is gone. Who uses a board holds a lock on it (VmBoard).
remove_unless_used() (
    if [ -e "$1/complete" ]; then
        exec 8<"$1/complete"
        flock -n 8 || exit 1
        rm "$1/complete"
    fi
    rm -rf "$1"
)

clear_others() {
    local folder part needed
    needed=$(printf '%s\n' "$board_dir" "$kernel_dir" "$base_dir" "$sysv_dir")
    for folder in "$cache"/board-*; do
        [ -d "$folder" ] || continue
        if grep -q -x -F "$folder" <<<"$needed" || remove_unless_used "$folder"; then
            continue
        fi
        for part in kernel base; do
            needed+=$'\n'$(readlink "$folder/$part" || true)
        done
    done
    for folder in "$cache"/{kernel,base,sysv}-*; do
        grep -q -x -F "$folder" <<<"$needed" || rm -rf "$folder"
    done
}
