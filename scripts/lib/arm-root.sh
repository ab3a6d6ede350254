# shellcheck shell=bash
# A Debian 12 of this machine's architecture, in a folder of its own under build/, with the cross
# compilers, the emulators and the libraries of arm64 and armhf. To be sourced, behind common.sh,
# from the top of the source tree.
#
# The machine itself learns of no foreign architecture. Commands run in the root by bubblewrap, which
# takes all mounts down by itself. The source tree and the compiler cache are there in their places.

readonly ARM_ARCHITECTURES=(arm64 armhf)
readonly ARM_ROOT=build/arm-root

# Of this machine's architecture: to build, to emulate, and to run the tests and the sandbox.
readonly ARM_ROOT_NATIVE=(
    build-essential ca-certificates ccache cmake debhelper dpkg-dev fakeroot git lintian ninja-build
    crossbuild-essential-arm64 crossbuild-essential-armhf
    busybox-static bubblewrap cpio dbus-daemon libglib2.0-bin mosquitto mosquitto-clients openssl
    procps python3 python3-jsonschema python3-pytest qemu-system-arm qemu-user-static strace systemd
    util-linux
)
# Of each foreign architecture: to link, and to run what was linked.
readonly ARM_ROOT_FOREIGN=(
    libc6-dev libglib2.0-dev libgmock-dev libgtest-dev libjansson-dev libmosquitto-dev libstdc++6
    libsystemd-dev pkg-config
)

arm_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        command -v sudo >/dev/null || die "making $ARM_ROOT takes root or sudo"
        sudo "$@"
    fi
}

# The compiler cache and its settings, which stand in the same places in the root.
readonly ARM_ROOT_CACHES=("${CCACHE_DIR:-$HOME/.cache/ccache}" "$HOME/.config/ccache")

# in_arm_root [BWRAP_OPTION...] -- COMMAND [ARG...]
in_arm_root() {
    local options=() folder
    while [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    shift
    for folder in "${ARM_ROOT_CACHES[@]}"; do
        options+=(--bind-try "$folder" "$folder")
    done
    bwrap --bind "$ARM_ROOT" / --proc /proc --dev /dev --perms 1777 --tmpfs /tmp --tmpfs /run \
        --bind "$PWD" "$PWD" \
        --setenv PATH /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        --setenv LC_ALL C.UTF-8 --unsetenv TMPDIR \
        --unshare-pid --die-with-parent --chdir "$PWD" "${options[@]}" -- "$@"
}

# in_arm_root_emulated COMMAND [ARG...]: programs for ARM start like others there.
in_arm_root_emulated() {
    in_arm_root --unshare-user --uid 0 --gid 0 --cap-add ALL -- scripts/lib/arm-emulated "$@"
}

# Where this machine's apt takes Debian 12 from. The release alone, without updates: there all
# architectures have the same versions at any moment, as libraries side by side must.
arm_root_mirror() {
    # shellcheck disable=SC2016  # apt's own variable
    apt-get indextargets --format '$(REPO_URI)' \
        'Identifier: Packages' 'Origin: Debian' 'Release: bookworm' 'Component: main' | head -n 1
}

arm_root_stamp() {
    printf '%s\n' "${ARM_ARCHITECTURES[@]}" "${ARM_ROOT_NATIVE[@]}" "${ARM_ROOT_FOREIGN[@]}"
}

# In the root that is being made.
arm_root_apt() {
    arm_as_root bwrap --bind "$ARM_ROOT.new" / --proc /proc --dev /dev --perms 1777 --tmpfs /tmp \
        --tmpfs /run --ro-bind-try /etc/resolv.conf /etc/resolv.conf \
        --setenv PATH /usr/sbin:/usr/bin:/sbin:/bin --setenv DEBIAN_FRONTEND noninteractive \
        --setenv LC_ALL C.UTF-8 --unsetenv TMPDIR \
        --unshare-pid --die-with-parent --chdir / -- "$@"
}

# The folders that in_arm_root binds need places in the root, which belongs to root: an ordinary user's
# bwrap cannot make them there.
make_arm_root_places() {
    local folder
    for folder in "$PWD" "${ARM_ROOT_CACHES[@]}"; do
        [ -d "$ARM_ROOT$folder" ] || arm_as_root mkdir -p "$ARM_ROOT$folder"
    done
}

# make_arm_root: makes the root unless it is there, with the packages that are asked for above.
make_arm_root() {
    local stamp
    stamp=$(arm_root_stamp)
    [ "$(cat "$ARM_ROOT.stamp" 2>/dev/null)" = "$stamp" ] || make_arm_root_anew "$stamp"
    make_arm_root_places
}

# make_arm_root_anew STAMP
make_arm_root_anew() {
    local stamp=$1 mirror architecture packages
    mirror=$(arm_root_mirror)
    [ -n "$mirror" ] || die "apt of this machine knows no Debian 12: run apt-get update"

    say "making $ARM_ROOT; this takes a few minutes"
    rm -f "$ARM_ROOT.stamp"
    arm_as_root rm -rf "$ARM_ROOT" "$ARM_ROOT.new"
    mkdir -p build
    arm_as_root debootstrap --variant=minbase bookworm "$ARM_ROOT.new" "$mirror"
    # A proxy, for instance.
    apt-config dump | grep '^Acquire::' |
        arm_as_root tee "$ARM_ROOT.new/etc/apt/apt.conf.d/machine" >/dev/null
    printf 'force-unsafe-io\n' |
        arm_as_root tee "$ARM_ROOT.new/etc/dpkg/dpkg.cfg.d/root" >/dev/null
    packages=("${ARM_ROOT_NATIVE[@]}")
    for architecture in "${ARM_ARCHITECTURES[@]}"; do
        arm_root_apt dpkg --add-architecture "$architecture"
        packages+=("${ARM_ROOT_FOREIGN[@]/%/:$architecture}")
    done
    arm_root_apt apt-get -q update
    arm_root_apt apt-get -q -y --no-install-recommends install "${packages[@]}"
    arm_root_apt apt-get clean
    arm_as_root mv "$ARM_ROOT.new" "$ARM_ROOT"
    printf '%s\n' "$stamp" >"$ARM_ROOT.stamp"
}
