// The API registry: components publish their functions through their export callbacks, and a
// lookup asks the components in table order which of them exports the wanted name. Also the import
// passes, which let every component fill its API slots.
#include "CMRegistry.h"

namespace kestrel::cm {

LookupState g_lookup = {};

bool NameMatches(const char *pszName, bool bExternal) {
    if (std::strcmp(pszName, g_lookup.szWanted) == 0)
        return true;
    return g_lookup.bCaseInsensitive && bExternal && CMUtlStrICmp(pszName, g_lookup.szWanted) == 0;
}

namespace {

// What a lookup has found so far.
struct LookupContext {
    RTS_UI32 *pulSignature;
    RTS_UI32 *pulVersion;
    bool bIec;
    bool bHaveCandidate;
    RTS_VOID_FCTPTR pfCandidate;
    const ComponentInfo *pProvider;
    RTS_RESULT failure; // the latest signature or version mismatch
};

// Tests the match of one component against the wanted signature and version. A mismatch writes
// the found value back, so that the caller learns what is there.
bool VisitMatch(void *pContext, const ComponentInfo *pComponent, const ApiMatch &match) {
    auto &ctx = *static_cast<LookupContext *>(pContext);
    if (ctx.pulSignature != nullptr && match.ulSignature != 0 && *ctx.pulSignature != 0 &&
        match.ulSignature != *ctx.pulSignature) {
        *ctx.pulSignature = match.ulSignature;
        ctx.failure = ERR_SIGNATURE_MISMATCH;
        return true;
    }
    if (ctx.pulVersion != nullptr) {
        RTS_UI32 ulWanted = *ctx.pulVersion;
        bool bAgree = RTS_VERSIONS_AGREE(match.ulVersion, ulWanted);
        // IEC code built against a pre-1.0 library version accepts any version.
        if (ctx.bIec && ulWanted != 0 && ulWanted < 0x01000000u)
            bAgree = true;
        if (!bAgree) {
            *ctx.pulVersion = match.ulVersion;
            ctx.failure = ERR_VERSION_MISMATCH;
            return true;
        }
    }
    ctx.bHaveCandidate = true;
    ctx.pfCandidate = match.pfFunction;
    ctx.pProvider = pComponent;
    // With overloading a later component replaces the candidate; without, the first one stays.
    return g_cm.iOverloadable != 0;
}

// The walk without the cache: every component's export callback is asked in table order.
void PlainWalk(MatchVisitor pfVisit, void *pContext) {
    for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p)) {
        g_lookup.match = ApiMatch{};
        if (p->pfExportFunctions != nullptr)
            p->pfExportFunctions();
        if (!g_lookup.match.bFound)
            continue;
        ApiMatch match = g_lookup.match;
        if (!pfVisit(pContext, p, match))
            break;
    }
}

} // namespace

RTS_RESULT Lookup(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulOptions, RTS_UI32 *pulSignature,
                  RTS_UI32 *pulVersion, const ComponentInfo **ppProvider) {
    if (ppProvider != nullptr)
        *ppProvider = nullptr;
    if (pszName == nullptr)
        return ERR_PARAMETER;
    g_lookup.match = ApiMatch{};
    std::size_t nLen = std::strlen(pszName);
    if (nLen >= kMaxApiName)
        return ERR_BUFFERSIZE;
    std::memcpy(g_lookup.szWanted, pszName, nLen + 1);
    g_lookup.bCaseInsensitive = (ulOptions & CM_IMPORT_IEC) != 0;

    LookupContext ctx{pulSignature, pulVersion, g_lookup.bCaseInsensitive, false, nullptr, nullptr, ERR_OK};
    RTS_RESULT result;
    if (!TableExists()) {
        result = ERR_FAILED;
    } else {
        LockTable();
        g_lookup.bActive = true;
        if (!CacheWalk(&VisitMatch, &ctx))
            PlainWalk(&VisitMatch, &ctx);
        g_lookup.bActive = false;
        UnlockTable();
        if (ppfFunction != nullptr)
            *ppfFunction = ctx.bHaveCandidate ? ctx.pfCandidate : nullptr;
        if (ctx.bHaveCandidate)
            result = ERR_OK;
        else
            result = ctx.failure != ERR_OK ? ctx.failure : ERR_FAILED;
    }
    if (ppProvider != nullptr && ctx.bHaveCandidate)
        *ppProvider = ctx.pProvider;
    if (result != ERR_OK) {
        if ((ulOptions & CM_IMPORT_OPTIONAL) != 0)
            return ERR_OK;
        CM_LOG(LOG_ERROR, ERR_FAILED, 22, "Failed to resolve <name>%s</name>", pszName);
    }
    return result;
}

RTS_RESULT ImportPass(RTS_UI16 usMask) {
    RTS_RESULT result = ERR_OK;
    LockTable();
    for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p)) {
        if (p->pfImportFunctions == nullptr || !FlagsMatch(p->usFlags, usMask))
            continue;
        if (p->pfImportFunctions() != ERR_OK) {
            p->usState = CM_STATE_DISABLED;
            CM_LOG(LOG_ERROR, ERR_FAILED, 22, "Import function(s) failed of <name>%s</name>", p->pszName);
            result = ERR_FAILED;
        }
    }
    UnlockTable();
    return result;
}

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" RTS_RESULT CMRegisterAPI2(const char *pszName, RTS_VOID_FCTPTR pfFunction, RTS_UI32 bExternalLibrary,
                                     RTS_UI32 ulSignature, RTS_UI32 ulVersion) {
    if (CacheTakeRow(pszName, pfFunction, bExternalLibrary, ulSignature, ulVersion))
        return ERR_OK;
    // Outside a lookup, or after the asked component matched with an earlier row: nothing to do.
    if (!g_lookup.bActive || g_lookup.match.bFound || pszName == nullptr)
        return ERR_OK;
    if (NameMatches(pszName, bExternalLibrary != 0))
        g_lookup.match = ApiMatch{true, pfFunction, ulSignature, ulVersion};
    return ERR_OK;
}

extern "C" RTS_RESULT CMRegisterAPI(const void *pTableOrName, RTS_VOID_FCTPTR pfFunction, RTS_UI32 bExternalLibrary,
                                    RTS_UI32 ulCmpIdOrSignature) {
    if (pTableOrName == nullptr)
        return ERR_NOT_INITIALIZED;
    if (pfFunction != nullptr) {
        const char *pszName = static_cast<const char *>(pTableOrName);
        return CMRegisterAPI2(pszName, pfFunction, bExternalLibrary, ulCmpIdOrSignature, 0) != ERR_OK ? ERR_FAILED
                                                                                                      : ERR_OK;
    }
    for (const auto *pRow = static_cast<const ExportEntry *>(pTableOrName); pRow->pfFunction != nullptr; ++pRow) {
        if (CMRegisterAPI2(pRow->pszName, pRow->pfFunction, bExternalLibrary, pRow->ulSignature, pRow->ulVersion) !=
            ERR_OK) {
            if (auto pfLog = Imp_LogAdd())
                pfLog(LOG_STD_LOGGER, ulCmpIdOrSignature, LOG_ERROR, ERR_FAILED, 0, "Export of [%s] failed\n",
                      pRow->pszName);
            return ERR_FAILED;
        }
    }
    return ERR_OK;
}

extern "C" RTS_RESULT CMGetAPI3(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulOptions,
                                RTS_UI32 *pulSignature, RTS_UI32 *pulVersion) {
    return Lookup(pszName, ppfFunction, ulOptions, pulSignature, pulVersion, nullptr);
}

extern "C" RTS_RESULT CMGetAPI2(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulOptions,
                                RTS_UI32 ulSignature, RTS_UI32 ulVersion) {
    RTS_UI32 ulSig = ulSignature;
    RTS_UI32 ulVer = ulVersion;
    return CMGetAPI3(pszName, ppfFunction, ulOptions, &ulSig, &ulVer);
}

extern "C" RTS_RESULT CMGetAPI(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulSignature) {
    return CMGetAPI2(pszName, ppfFunction, 0, ulSignature, 0);
}

extern "C" RTS_RESULT CMReleaseAPI(const char *) {
    return ERR_OK;
}

extern "C" RTS_RESULT CMImportFunctions(void) {
    return ImportPass(CM_FLAG_IMPORT_MASK);
}
