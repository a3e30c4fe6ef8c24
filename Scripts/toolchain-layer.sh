#!/bin/bash
# Adds a layer to the root in which this runs.
# usage: toolchain-layer.sh PACKAGES HEADER_PACKAGES SOURCE_PACKAGES LOCKED_SOURCES
#   the first three are names with blanks between; the last is the lock's lines of source packages
set -euxo pipefail
packages=$1 headers=$2 sources=$3 locked=$4

# A run before this one may have been cut off.
dpkg --configure -a
[ -z "$sources" ] || sed -n 's/^deb /deb-src /p' /etc/apt/sources.list >/etc/apt/sources.list.d/sources.list
apt-get update -qq
# shellcheck disable=SC2086
apt-get install -y -qq --no-install-recommends $packages
mkdir -p /opt/deps /opt/lab/unpacked
work=$(mktemp -d)
for package in $headers; do
  mkdir "$work/$package"
  cd "$work/$package"
  apt-get download -qq "$package"
  dpkg-deb -x ./*.deb /opt/deps
  dpkg-deb -W --showformat='${Package} ${Version}\n' ./*.deb >"/opt/lab/unpacked/$package"
done
for package in $sources; do
  mkdir "$work/$package"
  cd "$work/$package"
  version=$(sed -n "s/^src:$package //p" <<<"$locked")
  # Pins are for installed packages only.
  apt-get source -qq --download-only "$package${version:+=$version}" || apt-get source -qq --download-only "$package"
  mkdir -p "/usr/src/$package"
  tar -xf ./*.orig.tar.* -C "/usr/src/$package" --strip-components=1
  sed -n "s/^Version: /src:$package /p" ./*.dsc | head -n 1 >"/opt/lab/unpacked/src:$package"
done
rm -r "$work" /var/lib/apt/lists/*
apt-get clean
