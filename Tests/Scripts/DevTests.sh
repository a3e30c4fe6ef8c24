#!/bin/bash
# What ./dev says to a wrong command line and where it cannot write. Run in a mount namespace of its own, with the checkout's folder as argument. Root
# may write to any folder, so what must not be written is mounted read-only.
set -euo pipefail
source=$1
work=$(mktemp -d)
mount -t tmpfs tmpfs "$work"
trap 'umount -l "$work" && rmdir "$work"' EXIT

# A checkout of ./dev and its scripts, with a toolchain that is ready and a way into it that only tells of itself.
mkdir -p "$work/checkout" "$work/cache" "$work/tools"
cp -r "$source/dev" "$source/Scripts" "$work/checkout/"
key=$(kSource=$work/checkout && . "$work/checkout/Scripts/toolchain.sh" && toolchain_key)
mkdir -p "$work/cache/root-$key"
touch "$work/cache/root-$key/.ready"
printf '#!/bin/bash\necho entered\n' >"$work/tools/unshare"
chmod +x "$work/tools/unshare"

# dev ARGUMENT...: fills $code, $out and $err.
dev() {
  code=0
  PATH=$work/tools:$PATH QELA_CACHE=$work/cache "$work/checkout/dev" "$@" >"$work/out" 2>"$work/err" </dev/null || code=$?
  out=$(<"$work/out")
  err=$(<"$work/err")
}
it() { sentence=$*; printf '%s\n' "- $*"; }
# expect CODE OUTPUT ERRORS
expect() {
  [ "$code" = "$1" ] && [ "$out" = "$2" ] && [ "$err" = "$3" ] && return
  printf 'FAILED: %s\n  exit code %s, expected %s\n  stdout: %s\n  expected: %s\n  stderr: %s\n  expected: %s\n' \
    "$sentence" "$code" "$1" "$out" "$2" "$err" "$3" >&2
  exit 1
}
# Mounts a folder read-only, or a file over itself; undo with umount.
read_only() { mount --bind "$1" "$1" && mount -o remount,bind,ro "$1"; }
cannot_build() {
  printf 'dev: error: cannot write to %s, where everything is built. Make it writable, or run ./dev in a copy of the checkout.' \
    "$work/checkout/build"
}

it "tells what to do in a read-only checkout"
read_only "$work/checkout"
for command in demo test bench check format build shell; do
  dev "$command"
  expect 3 '' "$(cannot_build)"
done

it "has nothing to remove there without a build folder"
dev clean
expect 0 '' ''
umount "$work/checkout"

it "tells it where the build folder is there and read-only"
mkdir "$work/checkout/build"
read_only "$work/checkout/build"
dev build
expect 3 '' "$(cannot_build)"
umount "$work/checkout/build"

it "tells it where a run has been, too"
touch "$work/checkout/build/.lock"
read_only "$work/checkout"
dev build
expect 3 '' "$(cannot_build)"

it "tells that a read-only build folder cannot be removed"
dev clean
expect 3 '' "dev: error: cannot remove $work/checkout/build. Make the checkout writable and run the command again."
umount "$work/checkout"

it "tells what to do when the cache cannot be written"
read_only "$work/cache"
dev build
expect 3 '' "dev: error: cannot write to $work/cache. Set QELA_CACHE to a folder that can be written."
umount "$work/cache"

it "goes on where both can be written"
dev build
expect 0 entered ''

it "refuses arguments that a command does not take, before it does anything"
for command in demo check format build; do
  dev "$command" --quiet now
  expect 2 '' "dev: error: ./dev $command takes no arguments; here is: --quiet now"
done
touch "$work/cache/kept"
for wrong in all '--all --yes' ''; do
  # shellcheck disable=SC2086
  dev clean ${wrong:-''}
  expect 2 '' "dev: error: ./dev clean takes --all or nothing; here is: $wrong"
  [ -e "$work/cache/kept" ] && [ -e "$work/checkout/build" ]
done

it "hands the arguments of the others on"
for command in test bench shell; do
  dev "$command" --any thing
  expect 0 entered ''
done

it "removes the build folder"
dev clean
expect 0 '' ''
[ ! -e "$work/checkout/build" ]
