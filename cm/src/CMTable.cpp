// The component table: adding and removing records, and the queries over it. The records live in
// the CM's static component pool (grown by single blocks when full); the pool's used list keeps
// them in the order they were added, which is the order of every walk.
#include <cstdio>

#include "CMPrivate.h"

namespace kestrel::cm {

namespace {

inline void SetResult(RTS_RESULT *pResult, RTS_RESULT result) {
    if (pResult != nullptr)
        *pResult = result;
}

inline ComponentInfo *InvalidRecord() {
    return static_cast<ComponentInfo *>(RTS_INVALID_HANDLE);
}

bool IsInTable(const ComponentInfo *pComponent) {
    for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p))
        if (p == pComponent)
            return true;
    return false;
}

} // namespace

ComponentInfo *FindByName(const char *pszName, RTS_UI32 stateMask) {
    if (pszName == nullptr)
        return nullptr;
    for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p)) {
        RTS_UI32 stateBit = p->usState < 32 ? StateBit(p->usState) : 0;
        if ((stateMask & stateBit) != 0 && p->pszName != nullptr && std::strcmp(p->pszName, pszName) == 0)
            return p;
    }
    return nullptr;
}

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" ComponentInfo *CMAddComponent(const ComponentInfo *pTemplate, RTS_RESULT *pResult) {
    if (IsInvalidRecord(pTemplate) || pTemplate->pszName == nullptr) {
        SetResult(pResult, ERR_PARAMETER);
        return InvalidRecord();
    }
    if (!TableExists()) {
        SetResult(pResult, ERR_FAILED);
        return InvalidRecord();
    }
    // Only a record still waiting for its entry call counts as a duplicate: a component that has
    // been taken through its exit may be added again under the same name.
    LockTable();
    ComponentInfo *pDuplicate = FindByName(pTemplate->pszName, StateBit(CM_STATE_LOADED));
    UnlockTable();
    if (pDuplicate != nullptr) {
        SetResult(pResult, ERR_DUPLICATE);
        return InvalidRecord();
    }
    auto *pComponent = static_cast<ComponentInfo *>(MemPoolGetBlock2(g_cm.hComponentPool, 1, kCMName, nullptr));
    if (pComponent == nullptr) {
        SetResult(pResult, ERR_NOMEMORY);
        return InvalidRecord();
    }
    *pComponent = *pTemplate;
    if ((pComponent->usFlags & CM_FLAG_MARK_EXISTING) == 0)
        pComponent->usFlags |= CM_FLAG_ADDED;
    if (pComponent->bStaticName == 0) {
        auto pfAlloc = Imp_SysMemAllocData();
        std::size_t nLen = std::strlen(pTemplate->pszName);
        auto *pszCopy = pfAlloc != nullptr ? static_cast<char *>(pfAlloc(kCMName, nLen + 1, nullptr)) : nullptr;
        if (pszCopy == nullptr) {
            MemPoolPutBlock(pComponent);
            SetResult(pResult, ERR_NOMEMORY);
            return InvalidRecord();
        }
        std::memcpy(pszCopy, pTemplate->pszName, nLen + 1);
        pComponent->pszName = pszCopy;
    }
    // The list and the structures that follow it change together, under the table lock.
    LockTable();
    MemPoolAppendUsedBlock(pComponent);
    ++g_cm.nComponents;
    ++g_cm.ullTableGeneration;
    RegistryOnAdd(pComponent);
    OrderOnAdd(pComponent);
    UnlockTable();
    SetResult(pResult, ERR_OK);
    return pComponent;
}

extern "C" RTS_RESULT CMRemoveComponent(ComponentInfo *pComponent) {
    if (IsInvalidRecord(pComponent))
        return ERR_PARAMETER;
    if (!TableExists())
        return ERR_FAILED;
    LockTable();
    if (!IsInTable(pComponent)) {
        UnlockTable();
        return ERR_PARAMETER;
    }
    MemPoolRemoveUsedBlock(pComponent);
    ++g_cm.ullTableGeneration;
    // Nothing may keep pointing at the block once it is back in the pool.
    RegistryOnRemove(pComponent);
    OrderOnRemove(pComponent);
    UnlockTable();
    DropImportsOf(pComponent, false);
    UnbindClasses(pComponent);
    if (pComponent->bStaticName == 0 && pComponent->pszName != nullptr) {
        if (auto pfFree = Imp_SysMemFreeData())
            pfFree(kCMName, const_cast<char *>(pComponent->pszName));
    }
    MemPoolPutBlock(pComponent);
    // The counter stays: the number of components only grows while the program runs.
    return ERR_OK;
}

extern "C" ComponentInfo *CMGetComponentByName(const char *pszName, RTS_RESULT *pResult) {
    if (pszName == nullptr || !TableExists()) {
        SetResult(pResult, ERR_PARAMETER);
        return InvalidRecord();
    }
    LockTable();
    ComponentInfo *pComponent = FindByName(pszName, kAnyState);
    UnlockTable();
    SetResult(pResult, pComponent != nullptr ? ERR_OK : ERR_FAILED);
    return pComponent != nullptr ? pComponent : InvalidRecord();
}

extern "C" RTS_RESULT CMGetCmpId(const char *pszName, CMPID *pCmpId) {
    if (pCmpId == nullptr || pszName == nullptr)
        return ERR_PARAMETER;
    LockTable();
    ComponentInfo *pComponent = FindByName(pszName, kAnyState);
    if (pComponent != nullptr)
        *pCmpId = pComponent->CmpId;
    UnlockTable();
    return pComponent != nullptr ? ERR_OK : ERR_FAILED;
}

extern "C" ComponentInfo *CMGetComponent(CMPID cmpId) {
    LockTable();
    ComponentInfo *pFound = nullptr;
    for (ComponentInfo *p = FirstRecord(); p != nullptr && pFound == nullptr; p = NextRecord(p))
        if (p->CmpId == cmpId)
            pFound = p;
    UnlockTable();
    return pFound;
}

extern "C" RTS_RESULT CMGetCmpName(CMPID cmpId, char *pszName, RTS_SIZE nBufferSize) {
    if (pszName == nullptr || nBufferSize == 0)
        return ERR_PARAMETER;
    if (cmpId == 0)
        return CMUtlSafeStrCpy(pszName, nBufferSize, kCMName);
    LockTable();
    RTS_RESULT result = ERR_FAILED;
    for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p)) {
        if (p->CmpId == cmpId && p->pszName != nullptr) {
            result = CMUtlSafeStrCpy(pszName, nBufferSize, p->pszName);
            break;
        }
    }
    UnlockTable();
    if (result != ERR_FAILED)
        return result;
    // Ids of the IEC range name IEC code rather than a component.
    if ((cmpId & CMPID_IEC) != 0) {
        if (cmpId == CMPID_IEC)
            return CMUtlSafeStrCpy(pszName, nBufferSize, "IEC");
        return CMUtlsnprintf(pszName, nBufferSize, "IEC=0x%08lx", static_cast<unsigned long>(cmpId));
    }
    return ERR_FAILED; // the buffer is left untouched
}

extern "C" RTS_I32 CMGetNumOfComponents(void) {
    return g_cm.nComponents;
}

extern "C" ComponentInfo *CMGetComponentByIndex(RTS_I32 iIndex) {
    if (iIndex < 0 || iIndex >= g_cm.nComponents)
        return nullptr;
    LockTable();
    ComponentInfo *p = FirstRecord();
    for (RTS_I32 i = 0; i < iIndex && p != nullptr; ++i)
        p = NextRecord(p);
    UnlockTable();
    return p;
}

extern "C" ComponentInfo *CMGetFirstComponent(RTS_RESULT *pResult) {
    if (!TableExists()) {
        SetResult(pResult, ERR_FAILED);
        return nullptr;
    }
    LockTable();
    ComponentInfo *p = FirstRecord();
    UnlockTable();
    SetResult(pResult, p != nullptr ? ERR_OK : ERR_NO_OBJECT);
    return p;
}

extern "C" ComponentInfo *CMGetNextComponent(ComponentInfo *pPrevious, RTS_RESULT *pResult) {
    if (IsInvalidRecord(pPrevious) || !TableExists()) {
        SetResult(pResult, ERR_PARAMETER);
        return nullptr;
    }
    LockTable();
    ComponentInfo *pNext = nullptr;
    bool bFound = IsInTable(pPrevious);
    if (bFound)
        pNext = NextRecord(pPrevious);
    UnlockTable();
    SetResult(pResult, !bFound ? ERR_PARAMETER : (pNext != nullptr ? ERR_OK : ERR_NO_OBJECT));
    return pNext;
}
