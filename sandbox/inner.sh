#!/bin/bash
# Started by panel-sandbox as root of the fresh user namespace (pid 1 of the new pid namespace):
#   inner.sh SANDBOX_DIR CASE IFACES CWD NBINDS [SOURCE TARGET]... -- CMD [ARGS...]
# Builds the panel's root file system from the host's system directories and the case, pivots
# into it, sets up the network and runs CMD. This shell stays pid 1 and waits: pid 1 ignores
# default-action signals and must reap orphans, which CMD should not have to care about.
set -e
HERE=$1 CASE=$2 IFACES=$3 CWD=$4 NBINDS=$5
shift 5
BINDS=("${@:1:2*NBINDS}")
shift $((2 * NBINDS))
[ "$1" = -- ] && shift

mount --make-rprivate /
# Scratch space for the new root; hiding the host's /mnt only inside this mount namespace.
mount -t tmpfs -o mode=755 sbx /mnt
R=/mnt/root
mkdir $R
mount -t tmpfs -o mode=755 root $R

# Only the system's own directories are shown, read-only; the host's other trees stay out of sight.
links= dirs=
for n in bin sbin lib lib32 lib64 libx32 var opt srv; do
    if [ -L /$n ]; then
        links="$links /$n"
    elif [ -d /$n ]; then
        dirs="$dirs $n"
    fi
done
[ -z "$links" ] || cp -P $links $R/
mkdir $R/proc $R/sys $R/dev $R/tmp $R/run $R/etc $R/usr $R/mnt $R/sbx $R/.sbx-real $R/.old \
    $(for n in $dirs; do echo $R/$n; done)
for n in $dirs; do
    mount --rbind /$n $R/$n
    mount -o remount,bind,ro $R/$n
done

# Recording shims for date, dmesg and ping sit in a layer of their own between the case's /usr and
# the host's, so that nothing is mounted over /usr (that would stop a sandbox nesting its own).
# The real programs stay reachable for the shims; a nested sandbox takes them from its parent's.
SHIMS=/mnt/shims
mkdir -p $SHIMS/bin
for n in date dmesg ping; do
    real=/usr/bin/$n
    [ -x /.sbx-real/$n ] && real=/.sbx-real/$n
    shim=$HERE/recording-shim
    [ -f "$CASE/shims/$n" ] && shim=$CASE/shims/$n
    cp "$real" $R/.sbx-real/$n
    cp "$shim" $SHIMS/bin/$n
done
chmod 755 $SHIMS/bin/*

# /etc and /usr: the case skeleton over the host's, writes going to the case's upper dirs, so
# that files such as /etc/resolv.conf are plain files that rename() can replace.
mount -t overlay panel-etc \
    -o "lowerdir=$CASE/root/etc:/etc,upperdir=$CASE/up/etc,workdir=$CASE/up/.work-etc,userxattr" $R/etc
mount -t overlay panel-usr \
    -o "lowerdir=$CASE/root/usr:$SHIMS:/usr,upperdir=$CASE/up/usr,workdir=$CASE/up/.work-usr,userxattr" \
    $R/usr
# The panel has no time zone configured unless the case (or a test) provides one.
hide=
for f in localtime timezone; do
    if [ ! -e "$CASE/root/etc/$f" ] && [ ! -e "$CASE/up/etc/$f" ] && [ ! -L "$CASE/up/etc/$f" ]; then
        hide="$hide $R/etc/$f"
    fi
done
[ -z "$hide" ] || rm -f $hide
# Other skeleton top-level directories (storage/, ...) are the panel's own, writable.
for p in "$CASE"/root/*; do
    n=${p##*/}
    [ -d "$p" ] && [ ! -e "$R/$n" ] || continue
    mkdir $R/$n
    mount --bind "$p" $R/$n
done

mount -t tmpfs -o mode=1777 tmp $R/tmp
mount -t tmpfs -o mode=755 run $R/run
mount --rbind /dev $R/dev
mount -t tmpfs -o mode=1777 shm $R/dev/shm
mount -t proc proc $R/proc
mount -t sysfs sys $R/sys 2>/dev/null || true
for f in stat meminfo; do
    [ -f "$CASE/proc/$f" ] && mount --bind "$CASE/proc/$f" $R/proc/$f
done

mkdir $R/run/krv
cp "$HERE/panel-net" $R/run/krv/panel-net
mount --bind "$CASE" $R/sbx
for ((i = 0; i < ${#BINDS[@]}; i += 2)); do
    mkdir -p "$R${BINDS[i + 1]}"
    mount --rbind "${BINDS[i]}" "$R${BINDS[i + 1]}"
done

cd $R
pivot_root . .old
umount -l /.old
rmdir /.old
cd /
hostname panel 2>/dev/null || true

/run/krv/panel-net init "$IFACES"

cd "$CWD" 2>/dev/null || cd /
export KRV_IN_SANDBOX=1
# The host's home and runtime dirs are not part of the panel.
[ -d "${HOME:-/nonexistent}" ] || export HOME=/tmp
unset XDG_RUNTIME_DIR
set +e
"$@"
exit $?
