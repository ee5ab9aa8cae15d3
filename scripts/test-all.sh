#!/bin/sh
# Sets up, builds and tests all builds of KESTREL Control: Linux x86-64,
# Linux x86-64 under ASan+UBSan, Linux x86 (-m32) and Windows x64 (mingw-w64,
# tests under wine64 with a private prefix). Exits non-zero on the first
# failing build or test run. KESTREL_PRESETS overrides the list of builds.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
PRESETS="${KESTREL_PRESETS:-linux-x64 linux-x64-asan linux-x86 windows-x64}"
JOBS="${KESTREL_JOBS:-$(nproc)}"
export KESTREL_WINEPREFIX="${KESTREL_WINEPREFIX:-$(pwd)/build/wineprefix}"
status=0
for preset in $PRESETS; do
  echo "=== $preset: configure"
  cmake --preset "$preset" >/dev/null
  echo "=== $preset: build"
  cmake --build --preset "$preset" -j "$JOBS"
  echo "=== $preset: test"
  if ! ctest --preset "$preset"; then
    echo "=== $preset: TESTS FAILED"
    status=1
  fi
done
if command -v wineserver >/dev/null 2>&1; then
  WINEPREFIX="$KESTREL_WINEPREFIX" wineserver -k 2>/dev/null || true
fi
exit $status
