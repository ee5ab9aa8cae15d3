// Classes and instances: the class list (which component creates instances of which class) and
// the instance list, both in static pools of the CM, and the calls that create, find, register,
// unregister and delete instances through the owning components.
#include "CMPrivate.h"

namespace kestrel::cm {

namespace {

ClassEntry *FindClass(CLASSID classId) {
    for (void *p = FirstPayload(g_cm.hClassPool); p != nullptr; p = NextPayload(p)) {
        auto *pClass = static_cast<ClassEntry *>(p);
        if (pClass->classId == classId)
            return pClass;
    }
    return nullptr;
}

// The first instance entry with that handle; the caller holds the instance list's lock.
InstanceEntry *FindInstance(RTS_HANDLE hInstance) {
    for (void *p = FirstPayload(g_cm.hInstancePool); p != nullptr; p = NextPayload(p)) {
        auto *pInstance = static_cast<InstanceEntry *>(p);
        if (pInstance->hInstance == hInstance)
            return pInstance;
    }
    return nullptr;
}

inline void SetResult(RTS_RESULT *pResult, RTS_RESULT result) {
    if (pResult != nullptr)
        *pResult = result;
}

} // namespace

void BindClasses(ComponentInfo *pComponent) {
    for (void *p = FirstPayload(g_cm.hClassPool); p != nullptr; p = NextPayload(p)) {
        auto *pClass = static_cast<ClassEntry *>(p);
        if (pClass->cmpId == pComponent->CmpId)
            pClass->pComponent = pComponent;
    }
}

void UnbindClasses(const ComponentInfo *pComponent) {
    for (void *p = FirstPayload(g_cm.hClassPool); p != nullptr; p = NextPayload(p)) {
        auto *pClass = static_cast<ClassEntry *>(p);
        if (pClass->pComponent == pComponent)
            pClass->pComponent = nullptr;
    }
}

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" RTS_HANDLE CMRegisterClass(CMPID cmpId, CLASSID classId) {
    ++g_cm.ulClassCounter;
    if (!PoolExists(g_cm.hClassPool))
        return RTS_INVALID_HANDLE;
    // The owner may still be on its way through its entry call; it is bound afterwards.
    ComponentInfo *pOwner = CMGetComponent(cmpId);
    MemPoolLock(g_cm.hClassPool);
    ClassEntry *pClass = FindClass(classId);
    if (pClass != nullptr) {
        pClass->pComponent = pOwner;
        pClass->cmpId = cmpId;
    }
    MemPoolUnlock(g_cm.hClassPool);
    if (pClass != nullptr)
        return pClass;
    pClass = static_cast<ClassEntry *>(MemPoolGetBlock2(g_cm.hClassPool, 1, kCMName, nullptr));
    if (pClass == nullptr)
        return RTS_INVALID_HANDLE;
    *pClass = ClassEntry{pOwner, classId, cmpId};
    MemPoolAppendUsedBlock(pClass);
    return pClass;
}

extern "C" RTS_HANDLE CMCreateInstance(CLASSID classId, RTS_RESULT *pResult) {
    MemPoolLock(g_cm.hClassPool);
    ClassEntry *pClass = PoolExists(g_cm.hClassPool) ? FindClass(classId) : nullptr;
    ComponentInfo *pOwner = pClass != nullptr ? pClass->pComponent : nullptr;
    MemPoolUnlock(g_cm.hClassPool);
    if (pClass == nullptr) {
        SetResult(pResult, ERR_PARAMETER);
        return nullptr;
    }
    if (pOwner == nullptr || pOwner->pfCreateInstance == nullptr) {
        SetResult(pResult, ERR_FAILED);
        return nullptr;
    }
    return pOwner->pfCreateInstance(classId, pResult);
}

extern "C" RTS_HANDLE CMGetInstance(CLASSID classId, RTS_UI32 ulInstanceId, RTS_RESULT *pResult) {
    RTS_HANDLE hFound = nullptr;
    if (PoolExists(g_cm.hInstancePool)) {
        MemPoolLock(g_cm.hInstancePool);
        for (void *p = FirstPayload(g_cm.hInstancePool); p != nullptr; p = NextPayload(p)) {
            auto *pInstance = static_cast<InstanceEntry *>(p);
            if (pInstance->pClass != nullptr && pInstance->pClass->classId == classId &&
                pInstance->ulInstanceId == ulInstanceId) {
                hFound = pInstance->hInstance;
                break;
            }
        }
        MemPoolUnlock(g_cm.hInstancePool);
    }
    SetResult(pResult, hFound != nullptr ? ERR_OK : ERR_FAILED);
    return hFound;
}

extern "C" RTS_RESULT CMRegisterInstance(CLASSID classId, RTS_UI32 ulInstanceId, RTS_HANDLE hInstance) {
    if (!PoolExists(g_cm.hInstancePool))
        return ERR_FAILED;
    auto *pInstance = static_cast<InstanceEntry *>(MemPoolGetBlock2(g_cm.hInstancePool, 1, kCMName, nullptr));
    if (pInstance == nullptr)
        return ERR_NOMEMORY;
    MemPoolLock(g_cm.hClassPool);
    ClassEntry *pClass = PoolExists(g_cm.hClassPool) ? FindClass(classId) : nullptr;
    MemPoolUnlock(g_cm.hClassPool);
    *pInstance = InstanceEntry{pClass, ulInstanceId, hInstance};
    MemPoolAddUsedBlock(pInstance);
    CMCallHook(CH_INSTANCE_REGISTERED, classId, reinterpret_cast<RTS_UINTPTR>(hInstance), 0);
    return ERR_OK;
}

extern "C" RTS_RESULT CMUnregisterInstance(RTS_HANDLE hInstance) {
    if (!PoolExists(g_cm.hInstancePool))
        return ERR_FAILED;
    MemPoolLock(g_cm.hInstancePool);
    InstanceEntry *pInstance = FindInstance(hInstance);
    if (pInstance == nullptr) {
        MemPoolUnlock(g_cm.hInstancePool);
        return ERR_FAILED;
    }
    // Listeners hear of it while the list still holds the entry and nobody else can change it.
    CLASSID classId = pInstance->pClass != nullptr ? pInstance->pClass->classId : 0;
    CMCallHook(CH_INSTANCE_UNREGISTERED, classId, reinterpret_cast<RTS_UINTPTR>(hInstance), 0);
    MemPoolRemoveUsedBlock(pInstance);
    MemPoolUnlock(g_cm.hInstancePool);
    MemPoolPutBlock(pInstance);
    return ERR_OK;
}

extern "C" RTS_RESULT CMDeleteInstance(RTS_HANDLE hInstance) {
    if (!PoolExists(g_cm.hInstancePool))
        return ERR_FAILED;
    MemPoolLock(g_cm.hInstancePool);
    InstanceEntry *pInstance = FindInstance(hInstance);
    if (pInstance == nullptr) {
        MemPoolUnlock(g_cm.hInstancePool);
        return ERR_PARAMETER;
    }
    ComponentInfo *pOwner = pInstance->pClass != nullptr ? pInstance->pClass->pComponent : nullptr;
    PF_DELETE_INSTANCE pfDelete = pOwner != nullptr ? pOwner->pfDeleteInstance : nullptr;
    MemPoolUnlock(g_cm.hInstancePool);
    // The entry stays: the owner unregisters it from its delete-instance callback.
    return pfDelete != nullptr ? pfDelete(hInstance) : ERR_FAILED;
}

extern "C" RTS_RESULT CMDeleteInstance2(CLASSID classId, RTS_HANDLE hInstance) {
    MemPoolLock(g_cm.hClassPool);
    ClassEntry *pClass = PoolExists(g_cm.hClassPool) ? FindClass(classId) : nullptr;
    ComponentInfo *pOwner = pClass != nullptr ? pClass->pComponent : nullptr;
    MemPoolUnlock(g_cm.hClassPool);
    if (pClass == nullptr)
        return ERR_PARAMETER;
    // The create-instance callback decides whether the owner deals in instances at all; the
    // delete-instance callback then does the work.
    if (pOwner == nullptr || pOwner->pfCreateInstance == nullptr || pOwner->pfDeleteInstance == nullptr)
        return ERR_FAILED;
    return pOwner->pfDeleteInstance(hInstance);
}

extern "C" RTS_RESULT CMGetInstanceList(CLASSID classId, RTS_HANDLE *pahInstances, RTS_I32 *pnMax) {
    if (pnMax == nullptr || (pahInstances == nullptr && *pnMax > 0))
        return ERR_PARAMETER;
    if (!PoolExists(g_cm.hInstancePool))
        return ERR_FAILED;
    RTS_I32 nCapacity = *pnMax;
    RTS_I32 nFound = 0;
    MemPoolLock(g_cm.hInstancePool);
    for (void *p = FirstPayload(g_cm.hInstancePool); p != nullptr; p = NextPayload(p)) {
        auto *pInstance = static_cast<InstanceEntry *>(p);
        if (pInstance->pClass == nullptr || pInstance->pClass->classId != classId)
            continue;
        if (nFound < nCapacity)
            pahInstances[nFound] = pInstance->hInstance;
        ++nFound;
    }
    MemPoolUnlock(g_cm.hInstancePool);
    *pnMax = nFound;
    return nFound > nCapacity ? ERR_BUFFERSIZE : ERR_OK;
}
