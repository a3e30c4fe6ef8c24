#!/bin/bash
# What ./dev says to a wrong command line, where it cannot write, and to those who are not root. Run in a mount namespace of its own, with the
# checkout's folder as argument. Root may write to any folder, so what must not be written is mounted read-only.
set -euo pipefail
source=$1
. "$source/Tests/vocabulary.sh"
work=$(mktemp -d)
mount -t tmpfs tmpfs "$work"
trap 'umount -l "$work" && rmdir "$work"' EXIT

# A checkout of ./dev and its scripts, with a toolchain that is ready and a way into it that only tells of itself.
mkdir -p "$work/checkout" "$work/cache" "$work/tools"
cp -r "$source/dev" "$source/Scripts" "$work/checkout/"
# shellcheck disable=SC1091
key=$(kSource=$work/checkout && . "$work/checkout/Scripts/toolchain.sh" && toolchain_key)
mkdir -p "$work/cache/root-$key"
touch "$work/cache/root-$key"/.{ready,layer-{test,check,package,debug,browser,fuzz,coverage,mutate}}
printf '#!/bin/bash\necho entered\n' >"$work/tools/unshare"
chmod +x "$work/tools/unshare"

dev() { PATH=$work/tools:$PATH QELA_CACHE=$work/cache answer "$work/checkout/dev" "$@"; }
# Mounts a folder read-only, or a file over itself; undo with umount.
read_only() { mount --bind "$1" "$1" && mount -o remount,bind,ro "$1"; }
cannot_build() {
  printf 'dev: error: cannot write to %s, where everything is built. Make it writable, or run ./dev in a copy of the checkout.' \
    "$work/checkout/build"
}

it "tells what to do in a read-only checkout"
read_only "$work/checkout"
for command in demo test bench check format build package shell image torture fuzz soak coverage mutate; do
  dev "$command"
  expect_answer 3 '' "$(cannot_build)"
done

it "has nothing to remove there without a build folder"
dev clean
expect_answer 0 '' ''
umount "$work/checkout"

it "tells it where the build folder is there and read-only"
mkdir "$work/checkout/build"
read_only "$work/checkout/build"
dev build
expect_answer 3 '' "$(cannot_build)"
umount "$work/checkout/build"

it "tells it where a run has been, too"
touch "$work/checkout/build/.lock"
read_only "$work/checkout"
dev build
expect_answer 3 '' "$(cannot_build)"

it "tells that a read-only build folder cannot be removed"
dev clean
expect_answer 3 '' "dev: error: cannot remove $work/checkout/build. Make the checkout writable and run the command again."
umount "$work/checkout"

it "tells what to do when the cache cannot be written"
read_only "$work/cache"
dev build
expect_answer 3 '' "dev: error: cannot write to $work/cache. Set QELA_CACHE to a folder that can be written."
umount "$work/cache"

it "goes on where both can be written"
dev build
expect_answer 0 entered ''

it "refuses arguments that a command does not take, before it does anything"
for command in demo check format build image coverage lock; do
  dev "$command" --quiet now
  expect_answer 2 '' "dev: error: ./dev $command takes no arguments; here is: --quiet now"
done
for wrong in '' 'One Two'; do
  # shellcheck disable=SC2086
  dev debug $wrong
  expect_answer 2 '' "dev: error: ./dev debug takes the name of one test; here is: $wrong"
done
for wrong in verify '--verify now' '--fresh 11' '--fresh 12 13'; do
  # shellcheck disable=SC2086
  dev package $wrong
  expect_answer 2 '' "dev: error: ./dev package takes --verify, --tests, --fresh [12|13] or nothing; here is: $wrong"
done
for wrong in nothing 10 0s 1d '10 m' -5m; do
  dev fuzz --for "${wrong#nothing}"
  expect_answer 2 '' "dev: error: ./dev fuzz --for takes a time such as 90s, 10m or 2h; here is: $wrong"
done
dev fuzz --guard
expect_answer 2 '' "dev: error: ./dev fuzz takes --for TIME, --list and names of targets; here is: --guard"
for wrong in '--list tasklist' '--for 5s --list'; do
  # shellcheck disable=SC2086
  dev fuzz $wrong
  expect_answer 2 '' "dev: error: ./dev fuzz --list takes nothing else"
done
for wrong in nothing 10 0s 1d '10 m' -5m 1m30s; do
  dev soak --for "${wrong#nothing}"
  expect_answer 2 '' "dev: error: ./dev soak --for takes a time such as 90s, 10m or 2h; here is: $wrong"
done
for wrong in nothing starting 'real starts'; do
  dev soak --job "${wrong#nothing}"
  expect_answer 2 '' "dev: error: ./dev soak --job takes one of: operations scripted real starts reentrant; here is: $wrong"
done
dev soak 10m
expect_answer 2 '' "dev: error: ./dev soak takes --for TIME and --job NAME; here is: 10m"
touch "$work/cache/kept"
for wrong in all '--all --yes' ''; do
  # shellcheck disable=SC2086
  dev clean ${wrong:-''}
  expect_answer 2 '' "dev: error: ./dev clean takes --all or nothing; here is: $wrong"
  [ -e "$work/cache/kept" ] && [ -e "$work/checkout/build" ]
done

it "tells what is wrong with the arguments of torture, and what it takes"
shows='./dev torture --list shows them'
for wrong in --quiet Discovery; do
  dev torture --scene Discovery "$wrong"
  expect_answer 2 '' "dev: error: ./dev torture does not know $wrong; ./dev torture --help tells what it knows"
done
for option in --scene --import; do
  dev torture --list "$option"
  expect_answer 2 '' "dev: error: ./dev torture $option needs a name; $shows"
  dev torture "$option" --list
  expect_answer 2 '' "dev: error: ./dev torture $option needs a name; $shows"
done
for wrong in malloc: malloc:0 malloc:x malloc:1:twice malloc:1:on: malloc:1:once:many malloc:1:on:8:9 'malloc free'; do
  dev torture --import "$wrong"
  expect_answer 2 '' "dev: error: ./dev torture --import takes NAME[:CALL[:once|on[:ERROR]]], where CALL counts from 1; here is: $wrong"
done
dev torture --import malloc --list
expect_answer 2 '' "dev: error: ./dev torture --list lists all functions; leave --import out"
dev torture --help
expect_code 0
expect "$(head -n 1 <<<"$out")" "usage: ./dev torture [--scene NAME] [--import NAME[:CALL[:once|on[:ERROR]]]] [--list]"
for right in --list '--scene Discovery' '--import malloc:3:on:8' '--scene Kit --import _strdup'; do
  # shellcheck disable=SC2086
  dev torture $right
  expect_answer 0 entered ''
done

it "hands the arguments of the others on"
for command in test bench shell; do
  dev "$command" --any thing
  expect_answer 0 entered ''
done
dev package --verify
expect_answer 0 entered ''
dev fuzz --for 90s tasklist
expect_answer 0 entered ''
dev soak --for 90s --job real
expect_answer 0 entered ''

it "tells of a soak what it runs, without a toolchain"
dev soak --job real --help
expect_code 0
expect_out 'usage: ./dev soak [--for TIME] [--job NAME]'

it "tells what is wrong with a line for ./dev mutate before it puts a fault anywhere"
for option in --count --seed --mutant; do
  for wrong in 0 -1 many ''; do
    # shellcheck disable=SC2086
    dev mutate --list "$option" $wrong
    expect_answer 2 '' "dev: error: ./dev mutate: $option takes a number from 1 on; here is: ${wrong:-nothing}"
  done
done
for wrong in AddressTable.cpp ''; do
  # shellcheck disable=SC2086
  dev mutate --unit $wrong
  expect_answer 2 '' "dev: error: ./dev mutate: --unit takes a source's name without the ending; here is: ${wrong:-nothing}"
done
dev mutate AddressTable
expect_answer 2 '' "dev: error: ./dev mutate does not know AddressTable. ./dev mutate --help tells what it takes."
dev mutate --help
expect_code 0
expect_out "usage: ./dev mutate"

it "tells what to do where a plain Debian cannot be made"
mkdir -p "$work/checkout/Docs"
cp "$source/Docs/hosting.md" "$work/checkout/Docs/"
printf '#!/bin/bash\n[[ $* != *mmdebstrap* ]] || { echo "E: no network" && exit 1; }\necho entered\n' >"$work/tools/unshare"
printf '#!/bin/bash\n' >"$work/tools/mmdebstrap"
printf '#!/bin/bash\nprintf "\\nnone 9999 0 9999"\n' >"$work/tools/df"
chmod +x "$work/tools"/*
dev package --fresh 12
expect_code 3
expect "$out" entered
expect_err "E: no network"
expect_err "dev: error: the plain Debian 12 could not be made (whole log: $work/cache/last-fresh-setup.log). Check the network, then run the command again."
printf '#!/bin/bash\necho entered\n' >"$work/tools/unshare"
rm "$work/tools"/{mmdebstrap,df}

it "opens a shell beside a command that runs in the checkout, and runs no second one"
exec 7>"$work/checkout/build/.lock"
flock 7
dev shell
expect_answer 0 entered ''
code=0
PATH=$work/tools:$PATH QELA_CACHE=$work/cache timeout 1 "$work/checkout/dev" build 2>"$work/err" || code=$?
expect "$code $(<"$work/err")" "124 dev: waiting for another ./dev in this checkout"
exec 7>&-

# What an ordinary user has beside that: a namespace, and sudo.
mkdir "$work/user"
printf '#!/bin/bash\n[ "$1" = -un ] && echo tester || echo 1000\n' >"$work/user/id"
printf '#!/bin/bash\n[[ $* = *"/dev "* ]] || exit 0\necho "$QELA_CACHE:" "${@: -3}"\n' >"$work/user/unshare"
printf '#!/bin/bash\necho sudo "$@"\n' >"$work/user/sudo"
touch "$work/user/newuidmap"
chmod +x "$work/user"/*
as_user() { PATH=$work/user:$work/tools:$PATH XDG_CACHE_HOME=$work/xdg answer "$work/checkout/dev" "$@"; }
dev_as_user() { QELA_CACHE=$work/cache as_user "$@"; }

it "runs in a user namespace without root, with the same arguments and cache"
dev_as_user test -R 'One Two'
expect_answer 0 "$work/cache: test -R One Two" ''

it "keeps an ordinary user's cache in the user's folder"
# Removing needs none of the packages that making it would ask for.
as_user clean --all
expect_answer 0 "$work/xdg/qela: $work/checkout/dev clean --all" ''

it "has sudo install a package that is missing, and nothing else"
rm "$work/user/newuidmap"
dev_as_user test -R One
expect_answer 0 "$work/cache: test -R One" "dev: installing uidmap on this machine"
expect "$(<"$work/cache/last-setup.log")" "sudo apt-get update -qq
sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends uidmap"

it "tells what to install where there is no sudo"
mv "$work/user/sudo" "$work/no-sudo"
dev_as_user build
expect_answer 3 '' "dev: error: this needs uidmap, and there is no sudo. Run as root: apt-get install uidmap"
touch "$work/user/newuidmap" && chmod +x "$work/user/newuidmap"

it "tells why root is needed, and what would make it needless, where there is neither a namespace nor sudo"
printf '#!/bin/bash\n[[ $* != *setpriv* ]]\n' >"$work/user/unshare"
dev_as_user build
expect_answer 3 '' "dev: error: root is needed, because tester may use no user IDs in a namespace, and there is no sudo. Run this as root, \
or allow some: apt-get install uidmap; usermod --add-subuids 100000-165535 --add-subgids 100000-165535 tester"
printf '#!/bin/bash\nexit 1\n' >"$work/user/unshare"
dev_as_user build
expect_answer 3 '' "dev: error: root is needed, because this machine keeps user namespaces from ordinary users, and there is no sudo. Run this \
as root, or allow them: sysctl kernel.unprivileged_userns_clone=1, or a container's options"

it "falls back to sudo, which keeps root's cache unless another one is given"
mv "$work/no-sudo" "$work/user/sudo"
as_user test -R One
expect_answer 0 "sudo $work/checkout/dev test -R One" \
  "dev: using sudo, because this machine keeps user namespaces from ordinary users"
dev_as_user clean
expect_answer 0 "sudo QELA_CACHE=$work/cache $work/checkout/dev clean" \
  "dev: using sudo, because this machine keeps user namespaces from ordinary users"

it "removes the build folder"
dev clean
expect_answer 0 '' ''
[ ! -e "$work/checkout/build" ]
