/*
 * CmpLog: loggers with an in-memory ring of recent entries and backends.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_CMPLOGITF_H
#define KESTREL_CMPLOGITF_H

#include <stdarg.h>
#include "RtsTypes.h"

RTS_BEGIN_C

#define LOG_MAX_NAME 32
#define LOG_MAX_INFO 256

/* Logger options as handed to a backend. */
typedef struct LogOptions_ {
    char name[LOG_MAX_NAME];
    RTS_I32 enable;
    RTS_UI32 options;
    RTS_UI32 filter;
    RTS_I32 maxEntries;
    RTS_I32 maxFileSize;   /* bytes; 0 or less: no limit */
    RTS_I32 maxFiles;      /* numbered backups; 0: time-stamped backups */
    const char *path;      /* directory of the log file, may be null */
} LogOptions;

#define LOG_OPT_HIGHSPEED 0x1u
#define LOG_OPT_SAFE 0x2u
#define LOG_OPT_LOCALTIME 0x8u
#define LOG_OPT_TIMESTAMP_MS 0x20u
#define LOG_OPT_TIMESTAMP_US 0x40u
#define LOG_OPT_TIMESTAMP_NS 0x80u
#define LOG_OPT_NOT_DEACTIVATABLE 0x100u
#define LOG_OPT_DUMP_ON_CLOSE 0x800u
#define LOG_OPT_DUMP_ON_REQUEST 0x1000u
#define LOG_OPT_TIMESTAMP_RTC_HIGHRES 0x2000u
#define LOG_OPT_PLAIN_TEXT 0x4000u

/* One log entry. */
typedef struct LogEntry_ {
    RTS_UI64 timestamp;
    CMPID cmpId;
    RTS_I32 classId;
    RTS_I32 errorId;
    RTS_UI32 infoId;
    char infoText[LOG_MAX_INFO];
} LogEntry;

/* Backend interface (interface id 22 of a backend's instance). */
typedef struct ILogBackend_ {
    void *pInstance;
    RTS_HANDLE (*Open)(RTS_HANDLE hIgnored1, RTS_HANDLE hIgnored2, LogOptions *pOptions);
    RTS_RESULT (*Close)(RTS_HANDLE hFile);
    RTS_HANDLE (*WriteEntry)(RTS_HANDLE hFile, LogOptions *pOptions, LogEntry *pEntry, RTS_I32 *pbFailed);
} ILogBackend;

RTS_RESULT LogAdd(RTS_HANDLE hLogger, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                  const char *pszInfo, ...);
RTS_RESULT LogAddArg(RTS_HANDLE hLogger, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                     const char *pszInfo, va_list args);
RTS_HANDLE LogCreate(const LogOptions *pOptions, RTS_RESULT *pResult);
RTS_RESULT LogDelete(RTS_HANDLE hLogger);
/* Oldest entry still in the ring; the returned handle walks on with LogGetNextEntry. */
RTS_HANDLE LogGetFirstEntry(RTS_HANDLE hLogger, LogEntry *pEntry, RTS_RESULT *pResult);
RTS_HANDLE LogGetNextEntry(RTS_HANDLE hLogger, RTS_HANDLE hEntry, LogEntry *pEntry, RTS_RESULT *pResult);
/* hLogger all ones: every logger; classId: the backend's class. */
RTS_RESULT LogUnregisterBackend(RTS_HANDLE hLogger, CLASSID classId);

RTS_END_C

#endif
