// Number-to-text conversion, the GUID text form and the binary search over
// arrays of records keyed by a u32.
#include <cstring>

#include "CMUtlItf.h"

namespace {

constexpr RTS_I32 kMinRadix = 2;
constexpr RTS_I32 kMaxRadix = 36;
constexpr RTS_SIZE kNotFound = ~RTS_SIZE{0};
constexpr char kDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

void SetResult(RTS_RESULT *pResult, RTS_RESULT result) {
    if (pResult != nullptr) {
        *pResult = result;
    }
}

// The common body of CMUtlLtoa and CMUtlUltoa. The digits are produced least
// significant first, followed by the reversed sign or prefix, and the whole
// text is then turned around in place.
char *ToText(RTS_UI32 magnitude, bool negative, char *pszBuffer, RTS_SIZE ulBufferSize, RTS_I32 iRadix,
             RTS_RESULT *pResult) {
    SetResult(pResult, ERR_PARAMETER);
    if (pszBuffer == nullptr || ulBufferSize == 0) {
        return nullptr;
    }
    if (iRadix < kMinRadix || iRadix > kMaxRadix) {
        if (ulBufferSize > 1) {
            pszBuffer[0] = '0';
            pszBuffer[1] = 0;
        } else {
            pszBuffer[0] = 0;
        }
        return pszBuffer;
    }
    const RTS_SIZE reserve = iRadix == 16 ? 2 : (negative ? 1 : 0);
    // Room for digits: the buffer less the sign or prefix and the terminator.
    const RTS_SIZE room = ulBufferSize > reserve + 1 ? ulBufferSize - reserve - 1 : 0;
    const auto radix = static_cast<RTS_UI32>(iRadix);
    RTS_SIZE n = 0;
    do {
        if (n == room) {
            pszBuffer[0] = 0; // the number does not fit
            return pszBuffer;
        }
        pszBuffer[n++] = kDigits[magnitude % radix];
        magnitude /= radix;
    } while (magnitude != 0);
    if (iRadix == 16) {
        pszBuffer[n++] = 'x';
        pszBuffer[n++] = '0';
    } else if (negative) {
        pszBuffer[n++] = '-';
    }
    pszBuffer[n] = 0;
    CMUtlStrrev(pszBuffer);
    SetResult(pResult, ERR_OK);
    return pszBuffer;
}

char *PutHex(char *p, RTS_UI32 value, int digits) {
    static constexpr char kHex[] = "0123456789abcdef";
    for (int i = digits - 1; i >= 0; --i) {
        p[i] = kHex[value & 0xF];
        value >>= 4;
    }
    return p + digits;
}

} // namespace

extern "C" {

char *CMUtlLtoa(RTS_I32 lValue, char *pszBuffer, RTS_SIZE ulBufferSize, RTS_I32 iRadix, RTS_RESULT *pResult) {
    // Only decimal text carries a sign; other radices show the two's
    // complement digits of a negative value.
    const bool negative = iRadix == 10 && lValue < 0;
    const RTS_UI32 bits = static_cast<RTS_UI32>(lValue);
    return ToText(negative ? 0u - bits : bits, negative, pszBuffer, ulBufferSize, iRadix, pResult);
}

char *CMUtlUltoa(RTS_UI32 ulValue, char *pszBuffer, RTS_SIZE ulBufferSize, RTS_I32 iRadix, RTS_RESULT *pResult) {
    return ToText(ulValue, false, pszBuffer, ulBufferSize, iRadix, pResult);
}

RTS_RESULT CMUtlGUIDToString(const RTS_GUID *pGuid, char *pszBuffer, RTS_SIZE ulBufferSize) {
    // The text is {Data1-Data2Data3-Data4[0..3]-Data4[4..7]}: 37 characters
    // and the terminator, so a buffer that passes this check always holds it.
    constexpr RTS_SIZE kTextSize = 1 + 8 + 1 + 4 + 4 + 1 + 8 + 1 + 8 + 1 + 1;
    if (pGuid == nullptr || pszBuffer == nullptr || ulBufferSize < kTextSize) {
        return ERR_PARAMETER;
    }
    char *p = pszBuffer;
    *p++ = '{';
    p = PutHex(p, pGuid->Data1, 8);
    *p++ = '-';
    p = PutHex(p, pGuid->Data2, 4);
    p = PutHex(p, pGuid->Data3, 4);
    *p++ = '-';
    for (int i = 0; i < 8; ++i) {
        p = PutHex(p, pGuid->Data4[i], 2);
        if (i == 3) {
            *p++ = '-';
        }
    }
    *p++ = '}';
    *p = 0;
    return ERR_OK;
}

RTS_SIZE CMUtlBinarySearch_UI32(const void *pBase, RTS_SIZE ulTotalBytes, RTS_SIZE ulElementSize, RTS_SIZE ulKeyOffset,
                                RTS_SIZE ulFirstIndex, RTS_UI32 ulKey, RTS_RESULT *pResult) {
    if (pBase == nullptr || ulElementSize == 0 || ulElementSize > ulTotalBytes || ulKeyOffset >= ulElementSize) {
        SetResult(pResult, ERR_PARAMETER);
        return kNotFound;
    }
    const auto *base = static_cast<const unsigned char *>(pBase);
    RTS_SIZE lo = ulFirstIndex;
    // The upper bound is the element count itself: callers keep one more
    // readable element behind the array, since the search may look at it.
    RTS_SIZE hi = ulTotalBytes / ulElementSize;
    while (hi >= lo) {
        const RTS_SIZE mid = lo + (hi - lo) / 2;
        RTS_UI32 key;
        std::memcpy(&key, base + mid * ulElementSize + ulKeyOffset, sizeof key);
        if (key == ulKey) {
            SetResult(pResult, ERR_OK);
            return mid;
        }
        if (key > ulKey) {
            if (mid == 0) {
                break;
            }
            hi = mid - 1;
        } else {
            lo = mid + 1;
        }
    }
    SetResult(pResult, ERR_NO_OBJECT);
    return kNotFound;
}

} // extern "C"
