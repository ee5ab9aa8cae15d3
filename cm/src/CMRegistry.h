// The lookup state of the API registry, shared by the lookup itself (CMRegistry.cpp) and the
// export-row cache that speeds it up (CMRegistryCache.cpp).
#pragma once

#include "CMPrivate.h"

namespace kestrel::cm {

inline constexpr std::size_t kMaxApiName = 64; // wanted-name buffer: names of at most 63 characters

// The match of the component being asked: the first of its rows that fits the wanted name.
struct ApiMatch {
    bool bFound;
    RTS_VOID_FCTPTR pfFunction;
    RTS_UI32 ulSignature;
    RTS_UI32 ulVersion;
};

// Valid during one lookup; lookups are not re-entrant.
struct LookupState {
    bool bActive;               // a lookup walks the table
    bool bCaseInsensitive;      // IEC lookup: external-library rows compare ignoring case
    char szWanted[kMaxApiName]; // the wanted name
    ApiMatch match;             // match of the component being asked
};
extern LookupState g_lookup;

// Called once per component that matched, in table order; returns false to end the walk.
using MatchVisitor = bool (*)(void *pContext, const ComponentInfo *pComponent, const ApiMatch &match);

// True when a name equals the wanted one under the lookup's rules.
bool NameMatches(const char *pszName, bool bExternal);

// The cache. CacheTakeRow is asked first by CMRegisterAPI2: while a component's rows are being
// collected it takes the row and answers true. CacheWalk answers false when the cache cannot be
// used (switched off, or out of memory); the caller then walks the table itself.
bool CacheTakeRow(const char *pszName, RTS_VOID_FCTPTR pfFunction, RTS_UI32 bExternal, RTS_UI32 ulSignature,
                  RTS_UI32 ulVersion);
bool CacheWalk(MatchVisitor pfVisit, void *pContext);

} // namespace kestrel::cm
