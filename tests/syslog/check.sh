#!/bin/sh
# Logs through the library into a real rsyslogd and checks what it received.
#
#     check.sh CLIENT WORKDIR
#
# The daemon listens on a private /dev/log: a tmpfs over /dev in a mount
# namespace of its own, with a PID namespace around it, so that the daemon
# dies with this script whatever happens and the host's /dev is untouched.
# Needs root, unshare and rsyslogd; otherwise the test is skipped (exit 77).
set -eu

client="$1"
work="$2"

skip() {
    echo "SKIPPED: real syslog daemon test: $1"
    exit 77
}

# Removes the work directory; never through a /dev still mounted on it.
clean() {
    if [ -d "$work/hostdev" ] && ! rmdir "$work/hostdev"; then
        echo "$work/hostdev is not empty; left in place"
        return
    fi
    rm -rf "$work"
}

if [ "${3:-}" != inner ]; then
    [ "$(id -u)" -eq 0 ] || skip "needs root for a private /dev/log in a mount namespace"
    command -v unshare >/dev/null 2>&1 || skip "no unshare (util-linux)"
    [ -x /usr/sbin/rsyslogd ] || skip "no /usr/sbin/rsyslogd (Debian package rsyslog)"
    clean
    mkdir -p "$work/hostdev"
    unshare --mount --propagation private --pid --fork --kill-child \
        sh "$0" "$client" "$work" inner || true
    # The inner run writes its verdict as soon as it runs: without one, the
    # namespaces could not be made.
    rc=$(cat "$work/result" 2>/dev/null || echo none)
    clean
    case "$rc" in
        none) skip "cannot make a mount and PID namespace here" ;;
        77) skip "cannot mount a private /dev here" ;;
    esac
    exit "$rc"
fi

echo 77 > "$work/result"

# A private /dev with the few devices that the daemon and the client use.
mount --rbind /dev "$work/hostdev"
mount -t tmpfs -o mode=755 qtlog-dev /dev
for node in null zero full random urandom; do
    touch "/dev/$node"
    mount --bind "$work/hostdev/$node" "/dev/$node"
done
ln -s /proc/self/fd /dev/fd
echo 1 > "$work/result"

cat > "$work/rsyslog.conf" <<CONF
global(workDirectory="$work")
module(load="imuxsock" SysSock.Name="/dev/log")
template(name="check" type="string"
         string="%programname%|%syslogfacility-text%|%syslogpriority%|%msg:2:\$%\n")
*.* action(type="omfile" file="$work/received.log" template="check")
CONF

/usr/sbin/rsyslogd -n -f "$work/rsyslog.conf" -i "$work/rsyslogd.pid" &
daemon=$!
trap 'kill "$daemon" 2>/dev/null; wait "$daemon" 2>/dev/null || true' EXIT

i=0
until [ -S /dev/log ]; do
    i=$((i + 1))
    [ "$i" -le 100 ] || { echo "rsyslogd did not create /dev/log"; exit 1; }
    sleep 0.1
done

(cd "$work" && "$client")

i=0
until grep -q "syslog-check done" "$work/received.log" 2>/dev/null; do
    i=$((i + 1))
    [ "$i" -le 100 ] || { echo "rsyslogd did not write the records"; cat "$work/received.log" 2>/dev/null; exit 1; }
    sleep 0.1
done

echo "Received:"
cat "$work/received.log"

status=0
expect() {
    if ! grep -qxF "$1" "$work/received.log"; then
        echo "MISSING: $1"
        status=1
    fi
}
# Qt 4 keeps the blank after a stream's last item; allow either.
for line in "0|2|Critical" "1|3|Error" "2|4|Warning" "3|6|Info" "4|7|Debug"; do
    level=${line%%|*}
    rest=${line#*|}
    priority=${rest%%|*}
    name=${rest#*|}
    if ! grep -qxE "quimbo\|user\|$priority\|$name $level: 100% %s %d %n done ?" "$work/received.log"; then
        echo "MISSING: quimbo|user|$priority|$name $level: 100% %s %d %n done"
        status=1
    fi
done
if grep -q "Trace" "$work/received.log"; then
    echo "UNEXPECTED: a Trace record reached syslog"
    status=1
fi
if grep -v -e "^quimbo|user|" -e "^rsyslogd|" "$work/received.log" | grep -q .; then
    echo "UNEXPECTED: a line from another identity or facility"
    status=1
fi
echo "$status" > "$work/result"
