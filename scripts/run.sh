#!/bin/sh
# Builds the native Linux runtime and runs it in the foreground with the
# shipped default configuration (build/linux-x64/bin/KESTRELControl.cfg).
# Stop it with Ctrl-C or by pressing Enter.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh --run-only
cmake --preset linux-x64 -DKESTREL_BUILD_TESTS=OFF -DKESTREL_BUILD_BENCH=OFF >/dev/null
cmake --build --preset linux-x64 -j "$(nproc)"
exec ./build/linux-x64/bin/KESTRELControl -d "$@"
