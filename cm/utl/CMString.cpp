// Dynamic strings (CMSTRING): the text lives in the record's own 32 bytes
// while it is short and in a buffer from the imported memory service once it
// grows. Also holds the setter through which that service is handed over.
#include <cstring>

#include "CMUtlItf.h"
#include "CMUtlServices.h"

namespace {

// Set during start-up before any component runs, read afterwards only.
PFCMUTL_ALLOC g_pfAlloc = nullptr;
PFCMUTL_FREE g_pfFree = nullptr;

// Allocates through the memory service; a missing service, a null buffer and
// an error result all count as out of memory.
char *Allocate(const char *pszComponentName, RTS_SIZE size) {
    if (g_pfAlloc == nullptr) {
        return nullptr;
    }
    RTS_RESULT result = ERR_OK;
    void *p = g_pfAlloc(pszComponentName, size, &result);
    if (p != nullptr && result != ERR_OK) {
        // A buffer that comes with an error is not used; giving it back keeps
        // the component's memory account straight.
        if (g_pfFree != nullptr) {
            g_pfFree(pszComponentName, p);
        }
        p = nullptr;
    }
    return static_cast<char *>(p);
}

} // namespace

extern "C" {

void CMUtlSetMemoryService(PFCMUTL_ALLOC pfAlloc, PFCMUTL_FREE pfFree) {
    g_pfAlloc = pfAlloc;
    g_pfFree = pfFree;
}

RTS_RESULT CMStringCreate(CMSTRING *pString, const char *pszComponentName, const char *pszText) {
    if (pString == nullptr || pszText == nullptr) {
        return ERR_PARAMETER;
    }
    std::memset(pString, 0, sizeof *pString);
    const RTS_SIZE n = std::strlen(pszText) + 1;
    char *text = nullptr;
    if (n <= CMSTRING_INLINE_SIZE) {
        pString->ulFlags = CMSTRING_FLAG_INLINE;
        pString->ulSize = CMSTRING_INLINE_SIZE;
        text = pString->buffer.inline_;
    } else {
        text = Allocate(pszComponentName, n);
        if (text == nullptr) {
            return ERR_NOMEMORY;
        }
        pString->buffer.pHeap = text;
        pString->ulFlags = CMSTRING_FLAG_HEAP;
        pString->ulSize = static_cast<RTS_UI32>(n);
    }
    pString->ulFlags |= CMSTRING_FLAG_INITIALIZED;
    return CMUtlSafeStrCpy(text, pString->ulSize, pszText);
}

RTS_RESULT CMStringDelete(CMSTRING *pString, const char *pszComponentName) {
    if (pString == nullptr) {
        return ERR_PARAMETER;
    }
    if ((pString->ulFlags & CMSTRING_FLAG_HEAP) && pString->buffer.pHeap != nullptr && g_pfFree != nullptr) {
        g_pfFree(pszComponentName, pString->buffer.pHeap);
    }
    std::memset(pString, 0, sizeof *pString);
    return ERR_OK;
}

RTS_RESULT CMStringExtend(CMSTRING *pString, const char *pszComponentName, RTS_UI32 ulNewSize) {
    if (pString == nullptr) {
        return ERR_PARAMETER;
    }
    if (ulNewSize <= pString->ulSize) {
        return ERR_OK;
    }
    if ((pString->ulFlags & CMSTRING_FLAG_HEAP) && pString->buffer.pHeap != nullptr && g_pfFree != nullptr) {
        g_pfFree(pszComponentName, pString->buffer.pHeap);
        pString->buffer.pHeap = nullptr;
        pString->ulSize = 0;
    }
    // The old text is not carried over: the caller fills the new buffer.
    char *text = Allocate(pszComponentName, ulNewSize);
    if (text == nullptr) {
        return ERR_NOMEMORY;
    }
    pString->buffer.pHeap = text;
    pString->ulFlags = (pString->ulFlags & ~CMSTRING_FLAG_INLINE) | CMSTRING_FLAG_HEAP;
    pString->ulSize = ulNewSize;
    return ERR_OK;
}

char *CMStringGetText(CMSTRING *pString) {
    if (pString == nullptr) {
        return nullptr;
    }
    return (pString->ulFlags & CMSTRING_FLAG_HEAP) ? pString->buffer.pHeap : pString->buffer.inline_;
}

} // extern "C"
