// The passes that fill the component table at start-up: the fixed basic components, the host's
// component list (system pass and full pass) and the components named in the settings.
#include <cstdio>

#include "CMOs.h"
#include "CMPrivate.h"

namespace kestrel::cm {

namespace {

const char *const s_basicComponents[] = {"CM", "CmpMemPool", "CmpLog", "CmpSettings", "SysFile"};

inline void Keep(RTS_RESULT &kept, RTS_RESULT result) {
    if (kept == ERR_OK)
        kept = result;
}

inline bool IsListEnd(const ComponentListEntry *pEntry) {
    return pEntry->pszName == nullptr || pEntry->pszName[0] == '\0';
}

inline bool BeginsWithSys(const char *pszName) {
    return std::strncmp(pszName, "Sys", 3) == 0;
}

// The host may supply a basic component under its own name or with the suffix "Embedded" or
// "Flash" (a variant of the same component).
PF_COMPONENT_ENTRY BasicEntryFromList(const ComponentListEntry *pList, const char *pszBasic) {
    if (pList == nullptr)
        return nullptr;
    std::size_t nBasic = std::strlen(pszBasic);
    for (const ComponentListEntry *p = pList; !IsListEnd(p); ++p) {
        if (p->pfEntry == nullptr || std::strncmp(p->pszName, pszBasic, nBasic) != 0)
            continue;
        const char *pszRest = p->pszName + nBasic;
        if (*pszRest == '\0' || std::strcmp(pszRest, "Embedded") == 0 || std::strcmp(pszRest, "Flash") == 0)
            return p->pfEntry;
    }
    return nullptr;
}

// Adds a prepared record; a module loaded for it is let go again when the record cannot be added.
RTS_RESULT AddRecord(const ComponentInfo &tmpl) {
    RTS_RESULT result = ERR_OK;
    ComponentInfo *pComponent = CMAddComponent(&tmpl, &result);
    if (IsInvalidRecord(pComponent) && tmpl.hModule != RTS_INVALID_HANDLE)
        os::UnloadModule(tmpl.hModule);
    return result;
}

ComponentInfo FreshRecord(const char *pszName, RTS_UI8 bStaticName) {
    ComponentInfo tmpl{};
    tmpl.hModule = RTS_INVALID_HANDLE;
    tmpl.pszName = pszName;
    tmpl.bStaticName = bStaticName;
    tmpl.usState = CM_STATE_LOADED;
    return tmpl;
}

} // namespace

RTS_RESULT AddBasicComponents(const ComponentListEntry *pList) {
    RTS_RESULT kept = ERR_OK;
    for (const char *pszName : s_basicComponents) {
        if (FindByName(pszName, kAnyState) != nullptr)
            continue;
        ComponentInfo tmpl = FreshRecord(pszName, 1);
        tmpl.usFlags = CM_FLAG_STATIC | CM_FLAG_SYSTEM;
        tmpl.pfEntry = BasicEntryFromList(pList, pszName);
        if (tmpl.pfEntry == nullptr && std::strcmp(pszName, kCMName) == 0)
            tmpl.pfEntry = &CMEntry;
        if (tmpl.pfEntry == nullptr) {
            RTS_RESULT result = ResolveEntry(pszName, &tmpl.hModule, &tmpl.pfEntry);
            if (result != ERR_OK) {
                Keep(kept, result);
                continue;
            }
            if (tmpl.hModule != RTS_INVALID_HANDLE)
                tmpl.usFlags = CM_FLAG_DYNAMIC | CM_FLAG_SYSTEM;
        }
        Keep(kept, AddRecord(tmpl));
    }
    return kept;
}

namespace {

// Names of a list pass that have no module file here. A host's list names every component the
// product knows; an installation carries only some of them, so these are summed up in one line
// instead of an error each.
class MissingModules {
  public:
    void Add(const char *pszName) {
        if (++n_ == 1)
            CMUtlSafeStrCpy(sz_, sizeof(sz_), pszName);
        else if (!bCut_ && CMUtlStrLen(sz_) + CMUtlStrLen(pszName) + 6 < sizeof(sz_)) {
            CMUtlSafeStrCat(sz_, sizeof(sz_), ", ");
            CMUtlSafeStrCat(sz_, sizeof(sz_), pszName);
        } else if (!bCut_) {
            CMUtlSafeStrCat(sz_, sizeof(sz_), ", ...");
            bCut_ = true;
        }
    }
    void Report() const {
        if (n_ > 0)
            CM_LOG(LOG_INFO, ERR_OK, 0, "%d components of the list are not installed: %s", n_, sz_);
    }

  private:
    int n_ = 0;
    bool bCut_ = false;
    char sz_[200] = "";
};

} // namespace

RTS_RESULT AddComponentList(const ComponentListEntry *pList, bool bSystemPass, bool bMarkExisting) {
    RTS_RESULT kept = ERR_OK;
    if (pList == nullptr)
        return kept;
    MissingModules missing;
    for (const ComponentListEntry *pEntry = pList; !IsListEnd(pEntry); ++pEntry) {
        const char *pszName = pEntry->pszName;
        bool bSysName = BeginsWithSys(pszName);
        bool bMemGC = std::strcmp(pszName, "CmpMemGC") == 0;
        if (bSystemPass && pEntry->bSystem == 0 && !bSysName && !bMemGC)
            continue;
        if (bMarkExisting) {
            if (ComponentInfo *pExisting = FindByName(pszName, kAnyState)) {
                pExisting->usFlags |= CM_FLAG_MARK_EXISTING;
                continue;
            }
        }
        if (FindByName(pszName, StateBit(CM_STATE_LOADED) | StateBit(CM_STATE_INITIALIZED)) != nullptr)
            continue;
        ComponentInfo tmpl = FreshRecord(pszName, 1);
        if (pEntry->pfEntry != nullptr) {
            tmpl.pfEntry = pEntry->pfEntry;
            tmpl.usFlags = bSystemPass ? (CM_FLAG_STATIC | CM_FLAG_SYSTEM) : CM_FLAG_STATIC;
        } else {
            g_cm.bLoadMissing = false;
            RTS_RESULT result = ResolveEntry(pszName, &tmpl.hModule, &tmpl.pfEntry);
            if (result != ERR_OK) {
                if (LastLoadFoundNoFile())
                    missing.Add(pszName);
                Keep(kept, result);
                continue;
            }
            tmpl.usFlags = tmpl.hModule == RTS_INVALID_HANDLE ? CM_FLAG_STATIC : CM_FLAG_DYNAMIC;
            if (pEntry->bSystem != 0 || bSysName)
                tmpl.usFlags |= CM_FLAG_SYSTEM;
        }
        if (bMarkExisting)
            tmpl.usFlags |= CM_FLAG_MARK_EXISTING;
        if (bMemGC)
            tmpl.usFlags |= CM_FLAG_SYSTEM;
        Keep(kept, AddRecord(tmpl));
    }
    missing.Report();
    return kept;
}

RTS_RESULT AddSettingsComponents() {
    auto pfGetString = Imp_SettgGetStringValue();
    if (pfGetString == nullptr)
        return ERR_OK;
    RTS_RESULT kept = ERR_OK;
    for (RTS_I32 i = 0;; ++i) {
        char szKey[50];
        CMUtlsnprintf(szKey, sizeof(szKey), "%s.%d", "Component", static_cast<int>(i));
        char szName[32] = "";
        RTS_I32 nLen = static_cast<RTS_I32>(sizeof(szName));
        RTS_RESULT result = pfGetString(kSection, szKey, szName, &nLen, "");
        bool bMissing = (result != ERR_OK && result != ERR_BUFFERSIZE) || szName[0] == '\0';
        if (bMissing) {
            // The first two keys may be left out; the list ends at the first gap after them.
            if (i < 2)
                continue;
            break;
        }
        if (FindByName(szName, StateBit(CM_STATE_LOADED) | StateBit(CM_STATE_INITIALIZED)) != nullptr)
            continue;
        ComponentInfo tmpl = FreshRecord(szName, 0); // the name is copied on add
        g_cm.bLoadMissing = false;
        result = ResolveEntry(szName, &tmpl.hModule, &tmpl.pfEntry);
        if (result != ERR_OK) {
            CM_LOG(LOG_ERROR, result, 12, "*** Error: Component <cmp>%s</cmp> NOT loaded", szName);
            if (LastLoadFoundNoFile())
                LogLoadFailure(nullptr); // configured by name: the loader's reason helps
            Keep(kept, ERR_FAILED);
            continue;
        }
        tmpl.usFlags = CM_FLAG_DYNAMIC;
        if (BeginsWithSys(szName))
            tmpl.usFlags |= CM_FLAG_SYSTEM;
        Keep(kept, AddRecord(tmpl));
    }
    return kept;
}

} // namespace kestrel::cm
