// Functions of the component manager meant for its own tests and benchmarks only: switches and
// read-outs that the public API has no use for.
#pragma once

#include "CMPrivate.h"

namespace kestrel::cm {

// Switches the export-row cache of the registry on (default) or off. Both give the same lookup
// results; the switch exists so that tests can check exactly that.
void RegistryUseCache(bool bUse);
bool RegistryCacheInUse();

// Secondary result of the last CMInit3 (never returned by CMInit3 itself).
inline RTS_RESULT SecondaryResult() {
    return g_cm.secondaryResult;
}

} // namespace kestrel::cm
