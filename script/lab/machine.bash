#!/usr/bin/env bash
# What script/target and script/wifi have in common: a virtual machine without hardware acceleration. Its first process
# mounts files of this machine read-only below a layer of memory, makes them the root (boxes can only be entered where
# that is so) and goes on with a job there. To be sourced by a script that stands in the checkout.

# machine_claim: no other of these machines runs in MACHINE_HOME until this script and its emulator have ended. The path
# of the checkout stands in the machine's scripts and in the emulator's words unquoted.
machine_claim() {
    [[ ! $PWD =~ [^A-Za-z0-9/._+@%=~-] ]] || machine_refuse "the path of the checkout has '${BASH_REMATCH[0]}' in it: $PWD"
    mkdir -p "$MACHINE_HOME"
    exec 8> "$MACHINE_HOME/.lock"
    flock -n 8 || machine_refuse "another machine runs in $MACHINE_HOME: wait for its end"
}

machine_refuse() {
    echo "${0##*/}: no machine can be started: $1" >&2
    exit 1
}

# machine_init CHECKOUT_SHARE MODULE...: prints the first process. The share is that of the checkout, empty where the
# root has it already.
machine_init() {
    local checkout=$1 module
    shift
    cat << END
#!/bin/busybox sh
/bin/busybox mkdir -p /proc /dev /lower /layer /new
/bin/busybox mount -t devtmpfs dev /dev
END
    for module in "$@"; do echo "/bin/busybox insmod /${module##*/} || exit 1"; done
    cat << END
share="-t 9p -o trans=virtio,version=9p2000.L,msize=524288,cache=loose,ro"
/bin/busybox mount \$share root /lower
/bin/busybox mount -t tmpfs tmpfs /layer
/bin/busybox mkdir -p /layer/upper /layer/work
/bin/busybox mount -t overlay -o lowerdir=/lower,upperdir=/layer/upper,workdir=/layer/work overlay /new
END
    [ -z "$checkout" ] || cat << END
/bin/busybox mkdir -p /new$PWD
/bin/busybox mount \$share $checkout /new$PWD
END
    echo "exec /bin/busybox switch_root /new /bin/bash $PWD/$MACHINE_HOME/job"
}

# machine_initramfs BUSYBOX CHECKOUT_SHARE MODULE...: files of the kernel's modules, in the order in which they are loaded.
machine_initramfs() {
    local stage=$MACHINE_HOME/initramfs busybox=$1
    shift
    rm -rf "$stage"
    mkdir -p "$stage/bin"
    cp "$busybox" "$stage/bin/busybox"
    cp "${@:2}" "$stage/"
    machine_init "$@" > "$stage/init"
    chmod 755 "$stage/init"
    (cd "$stage" && find . | /usr/bin/cpio --quiet -o -H newc) > "$MACHINE_HOME/initramfs.img"
    rm -rf "$stage"
}

# machine_job BUILD BEFORE COMMAND: what runs in the machine. Its status comes last on the machine's console.
machine_job() {
    cat > "$MACHINE_HOME/job" << END
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts
for place in /run /dev/shm; do mount -t tmpfs tmpfs \$place; done
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root HBS_BUILD=$1 HBS_PATIENCE=10 PYTHONDONTWRITEBYTECODE=1
$2
ip link set lo up
cd $PWD && $3
echo "status of the job: \$?"
busybox poweroff -f
END
}

# machine_words: what every emulator is told, in MACHINE_WORDS.
machine_words() {
    MACHINE_WORDS=(-accel "tcg,thread=multi" -cpu max -m 1024 -smp 2 -no-reboot -initrd "$MACHINE_HOME/initramfs.img")
}

# machine_limited SECONDS QEMU...: one that hangs is ended. It stays in the process group, so that the terminal ends it, too.
machine_limited() {
    local status=0
    timeout --foreground --kill-after=10 "$@" || status=$?
    case $status in 124 | 137) echo "${0##*/}: the machine was not done after $1 s and was ended" >&2 ;; esac
    return "$status"
}

# machine_run QEMU...: in the machine's console (a file in its place) stands the status, which is this function's.
machine_run() {
    local status
    machine_words
    "$@" "${MACHINE_WORDS[@]}" || return 1
    status=$(tr -d '\r' < "$MACHINE_HOME/console" | sed -n 's/^status of the job: //p')
    [ "${status:-none}" = 0 ] && return
    echo "${0##*/}: the job's status in the machine: ${status:-none}; $MACHINE_HOME/console has its last words" >&2
    return 1
}

machine_quoted() { printf '%q ' "$@"; }
