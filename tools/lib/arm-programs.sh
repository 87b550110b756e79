# shellcheck shell=bash
# Tells the kernel how to start a program of the target, for as long as the tests run: they start some. See
# https://docs.kernel.org/admin-guide/binfmt-misc.html. Sourced behind common.sh, not run.

BINFMT=/proc/sys/fs/binfmt_misc
ARM_PROGRAM='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
ARM_MASK='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
BINFMT_MOUNTED=
BINFMT_REGISTERED=

knows_arm_programs() { grep -qs 'magic 7f454c4601010100000000000000000002002800' "$BINFMT"/*; }

write_as_root() { printf '%s' "$2" | as_root tee "$1" >/dev/null; }

# Where it cannot be told, the cases that start a program are skipped, and say so. A handler that is there already, of a
# package for example, is left alone.
register_arm_programs() {
    if [ ! -e "$BINFMT/register" ] && as_root mount -t binfmt_misc none "$BINFMT" 2>/dev/null; then
        BINFMT_MOUNTED=yes
    fi
    trap forget_arm_programs EXIT
    if ! knows_arm_programs && [ -e "$BINFMT/register" ]; then
        # The program's own name is kept as its first argument, and the emulator is found from any root.
        write_as_root "$BINFMT/register" ":tovu-armhf:M::$ARM_PROGRAM:$ARM_MASK:$(command -v qemu-arm):PF" &&
            BINFMT_REGISTERED=yes
    fi
    knows_arm_programs || say "  the kernel cannot be told how to start programs of the target"
}

forget_arm_programs() {
    [ -z "$BINFMT_REGISTERED" ] || write_as_root "$BINFMT/tovu-armhf" -1
    [ -z "$BINFMT_MOUNTED" ] || as_root umount "$BINFMT"
    BINFMT_REGISTERED=
    BINFMT_MOUNTED=
}
