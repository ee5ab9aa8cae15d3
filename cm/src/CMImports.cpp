// The component manager's global state and the functions it imports from other components: the
// import callback that fills every slot by name, and the emptying of the slots of a module that is
// about to be unloaded, so that the CM never calls into code that is gone.
#include "CMPrivate.h"
#include "CMOs.h"
#include "CMUtlServices.h"

namespace kestrel::cm {

CMGlobals g_cm;
ImportTable g_imp = {};

namespace {

struct ImportRow {
    const char *pszName;
    Import slot;
};

const ImportRow s_importRows[] = {
#define KESTREL_CM_IMPORT_ROW(name) {#name, Import::name},
    KESTREL_CM_IMPORTS(KESTREL_CM_IMPORT_ROW) KESTREL_CM_UNTYPED_IMPORTS(KESTREL_CM_IMPORT_ROW)
#undef KESTREL_CM_IMPORT_ROW
};

// The string utilities allocate through the same memory service as the CM.
void HandMemoryServiceToUtl() {
    CMUtlSetMemoryService(Imp_SysMemAllocData(), Imp_SysMemFreeData());
}

} // namespace

RTS_RESULT ImportAll() {
    // The CM can do without every one of these: each lookup is optional, and a user of a slot
    // tests it before the call.
    for (const ImportRow &row : s_importRows) {
        unsigned i = static_cast<unsigned>(row.slot);
        const ComponentInfo *pProvider = nullptr;
        g_imp.slots[i] = nullptr;
        Lookup(row.pszName, &g_imp.slots[i], CM_IMPORT_OPTIONAL, nullptr, nullptr, &pProvider);
        g_imp.providers[i] = g_imp.slots[i] != nullptr ? pProvider : nullptr;
    }
    HandMemoryServiceToUtl();
    return ERR_OK;
}

void DropImportsOf(const ComponentInfo *pComponent, bool bEmptySlots) {
    bool bChanged = false;
    for (unsigned i = 0; i < kImportCount; ++i) {
        if (g_imp.providers[i] != pComponent)
            continue;
        g_imp.providers[i] = nullptr;
        if (bEmptySlots) {
            g_imp.slots[i] = nullptr;
            bChanged = true;
        }
    }
    if (bChanged)
        HandMemoryServiceToUtl();
}

void ClearImports() {
    g_imp = ImportTable{};
    HandMemoryServiceToUtl();
}

RTS_UI32 NowMs() {
    if (auto pfGetMs = Imp_SysTimeGetMs())
        return pfGetMs();
    return os::GetMs();
}

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" RTS_RESULT CMSetExit(void) {
    g_cm.bExit.store(1);
    return ERR_OK;
}

extern "C" RTS_I32 CMGetExit(void) {
    return g_cm.bExit.load() != 0 ? 1 : 0;
}
