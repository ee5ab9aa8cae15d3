/*
 * String utilities exported by the component manager: narrow and wide
 * strings, number-to-text, bounded formatting and copying, GUID text, binary
 * search and the small dynamic string record. Every destination size counts
 * the whole buffer including the terminator (bytes for 8-bit strings,
 * characters for wide strings).
 */
#ifndef KESTREL_CMUTL_ITF_H
#define KESTREL_CMUTL_ITF_H

#include <stdarg.h>

#include "RtsTypes.h"

RTS_BEGIN_C

typedef struct RTS_GUID_ {
    RTS_UI32 Data1;
    RTS_UI16 Data2;
    RTS_UI16 Data3;
    RTS_UI8 Data4[8];
} RTS_GUID;

/* Dynamic string: inline while short, on the heap once it grows. */
#define CMSTRING_INLINE_SIZE 32u
#define CMSTRING_FLAG_INLINE 0x1u
#define CMSTRING_FLAG_HEAP 0x2u
#define CMSTRING_FLAG_INITIALIZED 0x10000u
typedef struct CMSTRING_ {
    union {
        char inline_[CMSTRING_INLINE_SIZE]; /* the text while it is short */
        char *pHeap;                        /* the heap buffer once bit 1 is set */
    } buffer;
    RTS_UI32 ulSize;  /* capacity of the current buffer in bytes */
    RTS_UI32 ulFlags; /* CMSTRING_FLAG_... */
} CMSTRING;

/* Narrow strings and memory. */
char *CMUtlStrrev(char *psz);
char *CMUtlSkipWhiteSpace(char *psz);
char *CMUtlStrRChr(char *pszStart, char *pszPosition, char c);
RTS_I32 CMUtlStrICmp(const char *psz1, const char *psz2);
RTS_I32 CMUtlStrNICmp(const char *psz1, const char *psz2, RTS_SIZE n);
char *CMUtlStrIStr(const char *pszHaystack, const char *pszNeedle);
char *CMUtlStrlwr(char *psz);
char *CMUtlStrupr(char *psz);
char *CMUtlStrToLower(char *psz);
char *CMUtlStrToUpper(char *psz);
RTS_SIZE CMUtlStrLen(const char *psz);
RTS_RESULT CMUtlSafeMemCpy(void *pDest, RTS_SIZE ulDestSize, const void *pSrc, RTS_SIZE ulCount);

/* Bounded copy and formatting. */
RTS_RESULT CMUtlSafeStrCpy2(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc, RTS_UI32 ulIgnored);
RTS_RESULT CMUtlSafeStrCpy(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc);
RTS_RESULT CMUtlSafeStrNCpy(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc, RTS_SIZE ulCount);
RTS_RESULT CMUtlSafeStrCat(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc);
RTS_RESULT CMUtlvsnprintf(char *pszDest, RTS_SIZE ulDestSize, const char *pszFormat, va_list args);
RTS_RESULT CMUtlsnprintf(char *pszDest, RTS_SIZE ulDestSize, const char *pszFormat, ...);

/* Number to text. */
char *CMUtlLtoa(RTS_I32 lValue, char *pszBuffer, RTS_SIZE ulBufferSize, RTS_I32 iRadix, RTS_RESULT *pResult);
char *CMUtlUltoa(RTS_UI32 ulValue, char *pszBuffer, RTS_SIZE ulBufferSize, RTS_I32 iRadix, RTS_RESULT *pResult);

/* GUID text: {01234567-89abcdef-00112233-44556677}. */
RTS_RESULT CMUtlGUIDToString(const RTS_GUID *pGuid, char *pszBuffer, RTS_SIZE ulBufferSize);

/* Binary search over an array sorted ascending by a u32 key. */
RTS_SIZE CMUtlBinarySearch_UI32(const void *pBase, RTS_SIZE ulTotalBytes, RTS_SIZE ulElementSize,
                                RTS_SIZE ulKeyOffset, RTS_SIZE ulFirstIndex, RTS_UI32 ulKey, RTS_RESULT *pResult);

/* Wide strings over RTS_WCHAR. */
RTS_I32 CMUtlwstrcmp(const RTS_WCHAR *pwsz1, const RTS_WCHAR *pwsz2);
RTS_I32 CMUtlwstrncmp(const RTS_WCHAR *pwsz1, const RTS_WCHAR *pwsz2, RTS_SIZE n);
RTS_RESULT CMUtlwstrcpy(RTS_WCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_WCHAR *pwszSrc);
RTS_RESULT CMUtlwstrcat(RTS_WCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_WCHAR *pwszSrc);
RTS_RESULT CMUtlwstrncpy(RTS_WCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_WCHAR *pwszSrc, RTS_SIZE ulCount);
RTS_SIZE CMUtlwstrlen(const RTS_WCHAR *pwsz);
RTS_WCHAR *CMUtlwtolower(RTS_WCHAR *pwsz);
RTS_WCHAR *CMUtlwtoupper(RTS_WCHAR *pwsz);
RTS_WCHAR *CMUtlwstrchr(const RTS_WCHAR *pwsz, RTS_WCHAR c);
RTS_RESULT CMUtlStrToW(const char *pszSrc, RTS_WCHAR *pwszDest, RTS_SIZE ulDestSize);
RTS_RESULT CMUtlWToStr(const RTS_WCHAR *pwszSrc, char *pszDest, RTS_SIZE ulDestSize);

/* The same family over RTS_CWCHAR. */
RTS_I32 CMUtlcwstrcmp(const RTS_CWCHAR *pwsz1, const RTS_CWCHAR *pwsz2);
RTS_RESULT CMUtlcwstrcpy(RTS_CWCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_CWCHAR *pwszSrc);
RTS_RESULT CMUtlcwstrcat(RTS_CWCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_CWCHAR *pwszSrc);
RTS_RESULT CMUtlcwstrncpy(RTS_CWCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_CWCHAR *pwszSrc, RTS_SIZE ulCount);
RTS_SIZE CMUtlcwstrlen(const RTS_CWCHAR *pwsz);
RTS_CWCHAR *CMUtlcwtolower(RTS_CWCHAR *pwsz);
RTS_CWCHAR *CMUtlcwtoupper(RTS_CWCHAR *pwsz);
RTS_CWCHAR *CMUtlcwstrchr(const RTS_CWCHAR *pwsz, RTS_CWCHAR c);
RTS_RESULT CMUtlStrToCW(const char *pszSrc, RTS_CWCHAR *pwszDest, RTS_SIZE ulDestSize);
RTS_RESULT CMUtlCWToStr(const RTS_CWCHAR *pwszSrc, char *pszDest, RTS_SIZE ulDestSize);

/* Dynamic strings; memory from SysMemAllocData under the component name. */
RTS_RESULT CMStringCreate(CMSTRING *pString, const char *pszComponentName, const char *pszText);
RTS_RESULT CMStringDelete(CMSTRING *pString, const char *pszComponentName);
RTS_RESULT CMStringExtend(CMSTRING *pString, const char *pszComponentName, RTS_UI32 ulNewSize);
/* The text of a dynamic string (inline or on the heap). */
char *CMStringGetText(CMSTRING *pString);

RTS_END_C

#endif
