# Installs what is missing of the packages that a task needs. Sourced by run, test and bench.
#
# kv_setup build      what building needs
# kv_setup test       and what the tests need
# kv_setup bench      and what the benchmarks need, beside what the tests do
# kv_setup lab        and what the lab's machines and file systems need, beside what the tests do; no service is started
# kv_setup qemu       and what machines under qemu need, beside what the lab does; their kernel lies below build/, not installed
#
# Says what it installs, asks nothing, and does nothing where all is there.

KV_BUILD_PACKAGES="g++ cmake ninja-build pkg-config uuid-dev libicu-dev libsodium-dev libcli11-dev libedit-dev libpcap-dev qt6-base-dev fonts-dejavu-core"
KV_TEST_PACKAGES="libgtest-dev xvfb xauth at-spi2-core dbus gir1.2-atspi-2.0 python3-gi clang libclang-rt-14-dev llvm clang-format clang-tidy lld binutils dpkg-dev desktop-file-utils file iproute2 util-linux tshark"
KV_BENCH_PACKAGES="libbenchmark-dev"
KV_BENCH_OTHERS="liblcm-dev cyclonedds-dev cyclonedds-tools libzmq3-dev" # compared with, where they can be had
KV_LAB_PACKAGES="user-mode-linux kmod socat nftables e2fsprogs nfs-kernel-server nfs-common rpcbind samba cifs-utils glusterfs-server
 glusterfs-client"
KV_QEMU_PACKAGES="qemu-system-x86 busybox-static cpio xz-utils" # where user-mode Linux does not run
KV_QEMU_OTHERS="virtiofsd"                                      # part of the former on older systems

kv_missing() {
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || printf '%s ' "$package"
  done
}

# Runs a command while packages' installation starts no service.
kv_starting_nothing() {
  local policy=/usr/sbin/policy-rc.d status=0
  if [ -e "$policy" ]; then "$@"; return; fi
  printf '#!/bin/sh\nexit 101\n' | $as_root tee "$policy" >/dev/null
  $as_root chmod 755 "$policy"
  "$@" || status=$?
  $as_root rm -f "$policy"
  return $status
}

# kv_known PACKAGE...: those that this system's package lists know.
kv_known() {
  local package
  for package in "$@"; do
    if apt-cache show "$package" >/dev/null 2>&1; then printf '%s ' "$package"; fi
  done
}

kv_setup() {
  local wanted=$KV_BUILD_PACKAGES others= missing as_root=
  if [ "$1" != build ]; then wanted="$wanted $KV_TEST_PACKAGES"; fi
  if [ "$1" = bench ]; then wanted="$wanted $KV_BENCH_PACKAGES" others=$KV_BENCH_OTHERS; fi
  if [ "$1" = lab ] || [ "$1" = qemu ]; then wanted="$wanted $KV_LAB_PACKAGES"; fi
  if [ "$1" = qemu ]; then wanted="$wanted $KV_QEMU_PACKAGES" others=$KV_QEMU_OTHERS; fi
  if ! command -v dpkg-query >/dev/null; then
    echo "setup: this is no Debian system; please install by hand what these packages hold: $wanted" >&2
    return 0
  fi
  missing="$(kv_missing $wanted)$(kv_known $(kv_missing $others))"
  [ -n "$missing" ] || return 0
  if [ "$(id -u)" -ne 0 ]; then
    as_root=sudo
    if ! sudo -n true 2>/dev/null; then
      missing=$(kv_missing $wanted) # what is only compared with is done without
      [ -n "$missing" ] || return 0
      echo "setup: missing packages: $missing" >&2
      echo "setup: not root and no sudo without a password; run: sudo apt-get install $missing" >&2
      return 1
    fi
  fi
  echo "setup: installing $missing"
  export DEBIAN_FRONTEND=noninteractive
  local log
  log=$(mktemp)
  if ! $as_root apt-get update >"$log" 2>&1 || ! missing="$(kv_missing $wanted)$(kv_known $(kv_missing $others))" ||
     ! kv_starting_nothing $as_root apt-get install -y --no-install-recommends $missing >>"$log" 2>&1; then
    tail -n 20 "$log" >&2
    echo "setup: the packages could not be installed (above); install them by hand and try again" >&2
    rm -f "$log"
    return 1
  fi
  rm -f "$log"
}

# kv_build PRESET [TARGET...]: configures if need be, and builds quietly; the whole output is shown when it fails.
# Of two at once in one folder the second waits for the first.
kv_build() {
  local preset=$1 log started=$SECONDS lock
  shift
  if ! mkdir -p build 2>/dev/null || ! [ -w build ] || { [ -d "build/$preset" ] && ! [ -w "build/$preset" ]; }; then
    echo "build: $PWD/build cannot be written: it is read-only, or another user's; build in a copy of your own" >&2
    return 1
  fi
  exec {lock}>"build/$preset.lock"
  if ! flock -n "$lock"; then
    echo "build: another build of $preset is under way; waiting for its end"
    flock "$lock"
  fi
  log=$(mktemp)
  [ -d "build/$preset" ] || echo "build: $preset, for the first time; this takes minutes (watch $log)"
  if ! cmake --preset "$preset" >"$log" 2>&1 ||
     ! cmake --build "build/$preset" ${*:+--target "$@"} >>"$log" 2>&1; then
    tail -n 60 "$log" >&2
    echo "build: $preset failed (above)" >&2
    rm -f "$log"
    exec {lock}>&-
    return 1
  fi
  exec {lock}>&-
  rm -f "$log"
  echo "build: $preset ready in $((SECONDS - started)) s"
}
