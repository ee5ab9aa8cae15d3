// SysMem: memory for components, accounted per component name.
//
// Every block carries a small header in front of the caller's bytes: the
// account of the component that allocated it, the size, and a magic word
// that catches double frees and foreign pointers. At the final shut-down
// hook the module logs one line per component that still holds memory.
//
// Fault injection: setting [SysMem] "FailAllocation"=N makes the Nth
// allocation after start-up (counted from hook 8, when the settings are
// read) fail with ERR_NOMEMORY; "FailAllocationComponent" limits the count
// to the allocations of one component. 0 (the default) disables it.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "CmpLogItf.h"
#include "CmpSettingsItf.h"
#include "ModuleSupport.h"
#include "SysMemItf.h"

namespace {

constexpr RTS_UI32 kLiveMagic = 0x4D656D41u;  // "MemA": block handed out
constexpr RTS_UI32 kFreedMagic = 0x4D656D46u; // "MemF": block given back
constexpr RTS_SIZE kMaxName = 64;             // longer component names are cut

struct Account {
    char name[kMaxName];
    RTS_SIZE bytes = 0;  // currently held
    RTS_SIZE blocks = 0; // currently held
    RTS_SIZE peak = 0;   // most bytes ever held at once
};

// Header in front of every block; its size keeps the payload aligned for any type.
struct alignas(alignof(std::max_align_t)) BlockHeader {
    Account *pAccount;
    RTS_SIZE size;
    RTS_UI32 magic;
};

struct State {
    std::mutex lock;
    std::deque<Account> accounts; // in order of first allocation; stable addresses, never shrinks
    RTS_UI32 failAt = 0;          // fault injection: fail the allocation with this count
    RTS_UI32 counted = 0;         // allocations counted towards failAt
    std::string failComponent;    // only count this component's allocations when set
};

kestrel::module::CmLink s_cm;
decltype(&LogAdd) s_pfLogAdd = nullptr;
decltype(&SettgGetIntValue) s_pfSettgGetIntValue = nullptr;
decltype(&SettgGetStringValue) s_pfSettgGetStringValue = nullptr;

State &GetState() {
    // Made on first use (a test that links the module statically may allocate
    // before the entry call) and destroyed when the module is unloaded.
    static State s_state;
    return s_state;
}

// Finds or adds the account of a component; called with the lock held.
Account *FindAccount(State &st, const char *pszName) {
    const char *name = pszName != nullptr && pszName[0] != '\0' ? pszName : "?";
    for (Account &a : st.accounts) {
        if (std::strncmp(a.name, name, kMaxName - 1) == 0)
            return &a;
    }
    try {
        Account &a = st.accounts.emplace_back();
        std::strncpy(a.name, name, kMaxName - 1);
        a.name[kMaxName - 1] = '\0';
        return &a;
    } catch (...) {
        return nullptr;
    }
}

void ReadSettings() {
    State &st = GetState();
    RTS_I32 failAt = 0;
    if (s_pfSettgGetIntValue != nullptr)
        s_pfSettgGetIntValue("SysMem", "FailAllocation", &failAt, 0);
    char component[kMaxName] = "";
    RTS_I32 len = static_cast<RTS_I32>(sizeof(component));
    if (s_pfSettgGetStringValue != nullptr)
        s_pfSettgGetStringValue("SysMem", "FailAllocationComponent", component, &len, "");
    std::lock_guard<std::mutex> guard(st.lock);
    st.failAt = failAt > 0 ? static_cast<RTS_UI32>(failAt) : 0;
    st.counted = 0;
    st.failComponent = component;
    if (failAt < 0 && s_pfLogAdd != nullptr)
        s_pfLogAdd(LOG_STD_LOGGER, CMPID_SysMem, LOG_WARNING, ERR_PARAMETER, 1,
                   "[SysMem] FailAllocation=%d is negative: fault injection stays off", static_cast<int>(failAt));
}

// One line per component that still holds memory; returns the number of lines.
int ReportLeaks() {
    State &st = GetState();
    std::vector<Account> leaks;
    {
        std::lock_guard<std::mutex> guard(st.lock);
        for (const Account &a : st.accounts) {
            if (a.blocks != 0)
                leaks.push_back(a);
        }
    }
    for (const Account &a : leaks) {
        if (s_pfLogAdd != nullptr)
            s_pfLogAdd(LOG_STD_LOGGER, CMPID_SysMem, LOG_ERROR, ERR_FAILED, 2,
                       "**** Memory leak: <cmp>%s</cmp> still holds %lu bytes in %lu blocks", a.name,
                       static_cast<unsigned long>(a.bytes), static_cast<unsigned long>(a.blocks));
    }
    return static_cast<int>(leaks.size());
}

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SysMemAllocData),
    RTS_EXPORT_FN(SysMemFreeData),
    RTS_EXPORT_END,
};

RTS_RESULT ExportFunctions() {
    return s_cm.Export(s_exports, CMPID_SysMem);
}

RTS_RESULT ImportFunctions() {
    s_cm.Import("LogAdd", s_pfLogAdd);
    s_cm.Import("SettgGetIntValue", s_pfSettgGetIntValue);
    s_cm.Import("SettgGetStringValue", s_pfSettgGetStringValue);
    return ERR_OK;
}

RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR) {
    switch (ulHook) {
    case CH_COMPONENT_EXIT:
        if (kestrel::module::IsLeaving(ulParam1, "CmpLog"))
            s_pfLogAdd = nullptr;
        if (kestrel::module::IsLeaving(ulParam1, "CmpSettings")) {
            s_pfSettgGetIntValue = nullptr;
            s_pfSettgGetStringValue = nullptr;
        }
        break;
    case CH_INIT_SYSTEM:
        ReadSettings();
        break;
    case CH_EXIT_FINAL:
        // The last hook SysMem receives: every other component that frees
        // its memory at shut-down has done so by now.
        try {
            ReportLeaks();
        } catch (...) {
            return ERR_NOMEMORY;
        }
        break;
    default:
        break;
    }
    return ERR_OK;
}

} // namespace

extern "C" {

void *SysMemAllocData(const char *pszComponentName, RTS_SIZE ulSize, RTS_RESULT *pResult) {
    State &st = GetState();
    if (ulSize > static_cast<RTS_SIZE>(-1) - sizeof(BlockHeader)) {
        if (pResult != nullptr)
            *pResult = ERR_NOMEMORY;
        return nullptr;
    }
    Account *pAccount = nullptr;
    bool bInjected = false;
    {
        std::lock_guard<std::mutex> guard(st.lock);
        pAccount = FindAccount(st, pszComponentName);
        if (st.failAt != 0 &&
            (st.failComponent.empty() || (pAccount != nullptr && st.failComponent == pAccount->name))) {
            if (++st.counted == st.failAt)
                bInjected = true;
        }
    }
    auto *pHeader = (pAccount == nullptr || bInjected)
                        ? nullptr
                        : static_cast<BlockHeader *>(std::malloc(sizeof(BlockHeader) + ulSize));
    if (pHeader == nullptr) {
        if (bInjected && s_pfLogAdd != nullptr)
            s_pfLogAdd(LOG_STD_LOGGER, CMPID_SysMem, LOG_WARNING, ERR_NOMEMORY, 3,
                       "Injected allocation failure for <cmp>%s</cmp> (%lu bytes)",
                       pszComponentName != nullptr ? pszComponentName : "?", static_cast<unsigned long>(ulSize));
        if (pResult != nullptr)
            *pResult = ERR_NOMEMORY;
        return nullptr;
    }
    pHeader->pAccount = pAccount;
    pHeader->size = ulSize;
    pHeader->magic = kLiveMagic;
    {
        std::lock_guard<std::mutex> guard(st.lock);
        pAccount->bytes += ulSize;
        pAccount->blocks += 1;
        if (pAccount->bytes > pAccount->peak)
            pAccount->peak = pAccount->bytes;
    }
    if (pResult != nullptr)
        *pResult = ERR_OK;
    return pHeader + 1;
}

RTS_RESULT SysMemFreeData(const char *pszComponentName, void *pData) {
    if (pData == nullptr)
        return ERR_PARAMETER;
    State &st = GetState();
    BlockHeader *pHeader = static_cast<BlockHeader *>(pData) - 1;
    {
        std::lock_guard<std::mutex> guard(st.lock);
        if (pHeader->magic != kLiveMagic)
            return ERR_PARAMETER; // freed twice, or never ours
        pHeader->magic = kFreedMagic;
        // The block is charged back to the account that paid for it, whatever
        // name the caller gives now.
        pHeader->pAccount->bytes -= pHeader->size;
        pHeader->pAccount->blocks -= 1;
    }
    (void)pszComponentName;
    std::free(pHeader);
    return ERR_OK;
}

// Test access to the accounting (not exported from the module).
RTS_RESULT SysMemGetAccount(const char *pszComponentName, RTS_SIZE *pBytes, RTS_SIZE *pBlocks) {
    State &st = GetState();
    std::lock_guard<std::mutex> guard(st.lock);
    for (const Account &a : st.accounts) {
        if (pszComponentName != nullptr && std::strncmp(a.name, pszComponentName, kMaxName - 1) == 0) {
            if (pBytes != nullptr)
                *pBytes = a.bytes;
            if (pBlocks != nullptr)
                *pBlocks = a.blocks;
            return ERR_OK;
        }
    }
    return ERR_NO_OBJECT;
}

RTS_RESULT SysMemEntry(ComponentInitStruct *pInit) {
    if (pInit == nullptr)
        return ERR_PARAMETER;
    s_cm.Enter(pInit, CMPID_SysMem, ExportFunctions, ImportFunctions, HookFunction);
    GetState();
    return ERR_OK;
}

} // extern "C"
