// The export-row cache of the API registry. A lookup without it calls every component's export
// callback and compares every row; with a hundred components importing twenty functions each,
// start-up would spend its time there. The cache asks a component's export callback once, keeps
// the rows it registered (in their order), and answers later lookups from an index by name. The
// observable rules stay those of the plain walk: components in table order, the first fitting row
// of a component, the overloading rule and the signature and version tests (those run unchanged in
// the visitor). A component whose export callback fails, or changes, is asked again next time.
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "CMInternal.h"
#include "CMRegistry.h"

namespace kestrel::cm {

namespace {

struct CachedRow {
    std::string name;
    RTS_VOID_FCTPTR pfFunction;
    RTS_UI32 ulSignature;
    RTS_UI32 ulVersion;
    bool bExternal;
};

// The cached rows of one record of the table.
struct CacheEntry {
    ComponentInfo *pComponent;
    RTS_UI64 ullSequence;             // order of addition = table order
    PF_EXPORT_FUNCTIONS pfFilledWith; // export callback the rows came from
    bool bValid;                      // rows complete (the callback answered 0)
    std::vector<CachedRow> rows;
};

// One component's first row of a name.
struct Candidate {
    CacheEntry *pEntry;
    RTS_UI64 ullSequence;
    std::size_t nRow;
};

// The components that export a name, in table order. Nearly every name has exactly one exporter,
// so the first candidate lives in the index node itself and only overloads need the vector.
class CandidateList {
  public:
    bool Empty() const { return m_first.pEntry == nullptr; }
    bool Contains(const CacheEntry *pEntry) const {
        if (m_first.pEntry == pEntry)
            return true;
        return std::any_of(m_more.begin(), m_more.end(), [pEntry](const Candidate &c) { return c.pEntry == pEntry; });
    }
    void Insert(const Candidate &cand) {
        if (Empty()) {
            m_first = cand;
            return;
        }
        if (cand.ullSequence < m_first.ullSequence) {
            m_more.insert(m_more.begin(), m_first);
            m_first = cand;
            return;
        }
        auto pos = std::upper_bound(m_more.begin(), m_more.end(), cand.ullSequence,
                                    [](RTS_UI64 seq, const Candidate &c) { return seq < c.ullSequence; });
        m_more.insert(pos, cand);
    }
    void Remove(const CacheEntry *pEntry) {
        m_more.erase(
            std::remove_if(m_more.begin(), m_more.end(), [pEntry](const Candidate &c) { return c.pEntry == pEntry; }),
            m_more.end());
        if (m_first.pEntry != pEntry)
            return;
        if (m_more.empty()) {
            m_first = Candidate{};
        } else {
            m_first = m_more.front();
            m_more.erase(m_more.begin());
        }
    }
    // Calls visit(candidate) in table order until it answers false.
    template <typename Visit> void ForEach(Visit visit) const {
        if (Empty() || !visit(m_first))
            return;
        for (const Candidate &c : m_more)
            if (!visit(c))
                return;
    }

  private:
    Candidate m_first{};
    std::vector<Candidate> m_more;
};

struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
};

struct Cache {
    bool bUse = true;     // switched on by default
    bool bBroken = false; // out of memory once: the plain walk serves until the next reset
    RTS_UI64 ullNextSequence = 0;
    RTS_UI64 ullCheckedGeneration = ~0ull;            // table generation when every entry was last checked
    std::size_t nIncomplete = 0;                      // entries whose export callback failed last time
    std::vector<std::unique_ptr<CacheEntry>> entries; // table order
    std::unordered_map<std::string, CandidateList, NameHash, std::equal_to<>> index;
    CacheEntry *pFilling = nullptr;
};
Cache s_cache;

void Unindex(CacheEntry &entry) {
    for (const CachedRow &row : entry.rows) {
        auto it = s_cache.index.find(std::string_view(row.name));
        if (it == s_cache.index.end())
            continue;
        it->second.Remove(&entry);
        if (it->second.Empty())
            s_cache.index.erase(it);
    }
}

// Indexes the first row of every name of an entry, keeping each name's candidates in table order.
void Index(CacheEntry &entry) {
    for (std::size_t i = 0; i < entry.rows.size(); ++i) {
        CandidateList &cands = s_cache.index[entry.rows[i].name];
        if (!cands.Contains(&entry)) // else an earlier row of this component has the name
            cands.Insert(Candidate{&entry, entry.ullSequence, i});
    }
}

void Fill(CacheEntry &entry) {
    Unindex(entry);
    entry.rows.clear();
    entry.pfFilledWith = entry.pComponent->pfExportFunctions;
    entry.bValid = true;
    if (entry.pfFilledWith == nullptr)
        return;
    s_cache.pFilling = &entry;
    RTS_RESULT result = entry.pfFilledWith();
    s_cache.pFilling = nullptr;
    // A component that could not register everything (the CM's own before its entry call, for
    // instance) is asked again by the next lookup.
    entry.bValid = entry.bValid && result == ERR_OK; // a row that found no memory fails it too
    Index(entry);
}

// Brings every entry up to date. The table changes only through the CM (records added, removed or
// entered), which counts the changes; between changes a lookup need not look at every record.
void FillAll() {
    if (s_cache.nIncomplete == 0 && s_cache.ullCheckedGeneration == g_cm.ullTableGeneration)
        return;
    std::size_t nIncomplete = 0;
    // By index: an export callback that adds a component to the table appends an entry.
    for (std::size_t i = 0; i < s_cache.entries.size(); ++i) {
        CacheEntry &entry = *s_cache.entries[i];
        if (!entry.bValid || entry.pfFilledWith != entry.pComponent->pfExportFunctions)
            Fill(entry);
        if (!entry.bValid)
            ++nIncomplete;
    }
    s_cache.nIncomplete = nIncomplete;
    s_cache.ullCheckedGeneration = g_cm.ullTableGeneration;
}

void Break() {
    s_cache.ullCheckedGeneration = ~0ull;
    s_cache.pFilling = nullptr;
    s_cache.entries.clear();
    s_cache.index.clear();
    s_cache.bBroken = true;
}

} // namespace

bool CacheTakeRow(const char *pszName, RTS_VOID_FCTPTR pfFunction, RTS_UI32 bExternal, RTS_UI32 ulSignature,
                  RTS_UI32 ulVersion) {
    CacheEntry *pEntry = s_cache.pFilling;
    if (pEntry == nullptr)
        return false;
    if (pszName != nullptr) {
        try {
            pEntry->rows.push_back(CachedRow{pszName, pfFunction, ulSignature, ulVersion, bExternal != 0});
        } catch (...) {
            pEntry->bValid = false; // retried by the next lookup
        }
    }
    return true;
}

bool CacheWalk(MatchVisitor pfVisit, void *pContext) {
    if (!s_cache.bUse || s_cache.bBroken)
        return false;
    try {
        FillAll();
    } catch (...) {
        Break();
        return false;
    }
    if (!g_lookup.bCaseInsensitive) {
        auto it = s_cache.index.find(std::string_view(g_lookup.szWanted));
        if (it == s_cache.index.end())
            return true;
        it->second.ForEach([&](const Candidate &cand) {
            const CachedRow &row = cand.pEntry->rows[cand.nRow];
            return pfVisit(pContext, cand.pEntry->pComponent,
                           ApiMatch{true, row.pfFunction, row.ulSignature, row.ulVersion});
        });
        return true;
    }
    // IEC lookups compare external-library rows ignoring case; they are rare, so they scan.
    for (auto &pEntry : s_cache.entries) {
        for (const CachedRow &row : pEntry->rows) {
            if (!NameMatches(row.name.c_str(), row.bExternal))
                continue;
            if (!pfVisit(pContext, pEntry->pComponent, ApiMatch{true, row.pfFunction, row.ulSignature, row.ulVersion}))
                return true;
            break;
        }
    }
    return true;
}

void RegistryOnAdd(ComponentInfo *pComponent) {
    if (s_cache.bBroken)
        return;
    try {
        auto pEntry = std::make_unique<CacheEntry>();
        pEntry->pComponent = pComponent;
        pEntry->ullSequence = s_cache.ullNextSequence++;
        pEntry->pfFilledWith = nullptr;
        pEntry->bValid = false;
        s_cache.entries.push_back(std::move(pEntry));
    } catch (...) {
        Break();
    }
}

void RegistryOnRemove(const ComponentInfo *pComponent) {
    auto &entries = s_cache.entries;
    for (auto it = entries.begin(); it != entries.end(); ++it) {
        if ((*it)->pComponent == pComponent) {
            Unindex(**it);
            entries.erase(it);
            return;
        }
    }
}

void RegistryReset() {
    s_cache.ullCheckedGeneration = ~0ull;
    s_cache.nIncomplete = 0;
    s_cache.pFilling = nullptr;
    s_cache.entries.clear();
    s_cache.index.clear();
    s_cache.bBroken = false;
}

void RegistryUseCache(bool bUse) {
    s_cache.bUse = bUse;
    // Rows collected before the switch may be stale by the time it is switched back on.
    for (auto &pEntry : s_cache.entries)
        pEntry->bValid = false;
    s_cache.ullCheckedGeneration = ~0ull;
}

bool RegistryCacheInUse() {
    return s_cache.bUse && !s_cache.bBroken;
}

} // namespace kestrel::cm
