/*
 * CmpSettings: the settings database (INI text: [Section], Key=Value).
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_CMPSETTINGSITF_H
#define KESTREL_CMPSETTINGSITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

#define SETTG_OPT_SPLIT_DATABASES 0x1u

/* Adds ".cfg" when the name has no extension; fails when the file cannot be read. */
RTS_RESULT SettgSetDatabaseName(const char *pszDatabase);
RTS_RESULT SettgGetDatabaseName(char *pszDatabase, RTS_SIZE ulBufferSize);
RTS_RESULT SettgSetOptions(RTS_UI32 ulOptions);
/* Decimal or 0x hexadecimal; a missing key writes the default and answers ERR_NO_OBJECT. */
RTS_RESULT SettgGetIntValue(const char *pszSection, const char *pszKey, RTS_I32 *piValue, RTS_I32 iDefault);
RTS_RESULT SettgSetIntValue(const char *pszSection, const char *pszKey, RTS_I32 iValue);
/* *piLen: in, the buffer size; out, the length of the value plus one. A null buffer
 * only asks whether the key exists (ERR_OK) or not (ERR_NO_OBJECT). A missing key
 * copies the default and answers ERR_NO_OBJECT; a cut value answers ERR_BUFFERSIZE. */
RTS_RESULT SettgGetStringValue(const char *pszSection, const char *pszKey, char *pszValue, RTS_I32 *piLen,
                               const char *pszDefault);
/* The same for UTF-16 text; sizes in characters. */
RTS_RESULT SettgGetWStringValue(const char *pszSection, const char *pszKey, RTS_WCHAR *pwszValue, RTS_I32 *piLen,
                                const RTS_WCHAR *pwszDefault);
RTS_RESULT SettgSetStringValue(const char *pszSection, const char *pszKey, const char *pszValue);
RTS_RESULT SettgRemoveKey(const char *pszSection, const char *pszKey);

RTS_END_C

#endif
