#!/bin/sh
# Installs what building and testing KESTREL Control needs on Debian 12:
# compilers for the three builds, wine for the Windows tests, GoogleTest,
# Google Benchmark and the libraries the modules and benchmarks use.
# Uses sudo when not run as root. Pass --run-only for just the native build.
set -eu
if [ "$(id -u)" -eq 0 ]; then SUDO=""; else SUDO="sudo"; fi
PKGS="build-essential cmake ninja-build googletest libgtest-dev libgmock-dev zlib1g-dev"
if [ "${1:-}" != "--run-only" ]; then
  PKGS="$PKGS g++-multilib lib32z1-dev g++-mingw-w64-x86-64 libz-mingw-w64-dev wine wine64 \
        libbenchmark-dev libmimalloc-dev libspdlog-dev libsimpleini-dev python3"
fi
missing=""
for p in $PKGS; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  echo "Installing:$missing"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  # shellcheck disable=SC2086
  $SUDO apt-get install -y -qq --no-install-recommends $missing
fi
