#!/bin/sh
# Platform configuration backup: keeps a copy of a system file the OS layer
# has just changed (for example /etc/sysconfig/clock) in the node's
# persistent configuration area, under the file's own path, so it survives
# a reinstall of the system disk.
#
# Usage: os_conf_backup.sh FILE     (FILE: absolute path)
# The caller sends the output to /dev/kmsg; lines carry a kernel log level.
# Exit status 0 when the copy is in place.

backup_root=/startup_disk/conf/conf_local/os_backup
file=$1

fail() {
    echo "<3>os_conf_backup: $*"
    exit 1
}

case "$file" in
    /*) ;;
    *) fail "not an absolute path: '$file'" ;;
esac
[ -f "$file" ] || fail "no such file: $file"

dest=$backup_root$file
mkdir -p "${dest%/*}" || fail "cannot create ${dest%/*}"
# Copy beside the target, then rename: a backup is never half written.
if ! cp -p "$file" "$dest.new" || ! mv -f "$dest.new" "$dest"; then
    rm -f "$dest.new"
    fail "copy of $file to $dest failed"
fi
echo "<6>os_conf_backup: saved $file"
