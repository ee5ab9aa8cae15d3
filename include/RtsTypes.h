/*
 * Shared types of every KESTREL Control component: sized integers, result
 * codes, handles, versions, component ids, hook ids and log classes.
 * Usable from C and C++; contains no operating-system dependency.
 */
#ifndef KESTREL_RTS_TYPES_H
#define KESTREL_RTS_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define RTS_EXTERN_C extern "C"
#define RTS_BEGIN_C extern "C" {
#define RTS_END_C }
#else
#define RTS_EXTERN_C
#define RTS_BEGIN_C
#define RTS_END_C
#endif

/* Sized integers (the basic platform checks measure these). */
typedef int8_t RTS_I8;
typedef int16_t RTS_I16;
typedef int32_t RTS_I32;
typedef int64_t RTS_I64;
typedef uint8_t RTS_UI8;
typedef uint16_t RTS_UI16;
typedef uint32_t RTS_UI32;
typedef uint64_t RTS_UI64;
typedef int32_t RTS_BOOL;
typedef double RTS_REAL64;

/* Pointer-sized words: 4 bytes on the 32-bit build, 8 on 64-bit builds. */
typedef uintptr_t RTS_UINTPTR;
typedef intptr_t RTS_INTPTR;
typedef size_t RTS_SIZE;

/* 16-bit code units of wide strings (UTF-16). */
typedef uint16_t RTS_WCHAR;
typedef uint16_t RTS_CWCHAR;

/* An opaque handle; in practice the address of the object. */
typedef void *RTS_HANDLE;
#define RTS_INVALID_HANDLE ((RTS_HANDLE)(~(RTS_UINTPTR)0))

/* Generic function pointer as stored in API slots and export tables. */
typedef void (*RTS_VOID_FCTPTR)(void);

typedef RTS_UI32 CMPID;
typedef RTS_UI32 CLASSID;
typedef RTS_UI32 EVENTID;
typedef RTS_UI32 ITFID;

/* Result of every API function; one meaning per code across the system. */
typedef RTS_UI32 RTS_RESULT;
#define ERR_OK 0u                  /* done */
#define ERR_FAILED 1u              /* failed or not found */
#define ERR_PARAMETER 2u           /* invalid parameter or invalid handle */
#define ERR_NOT_INITIALIZED 3u     /* called before hook 1 or after hook 15 of the component */
#define ERR_CALL_AGAIN 10u         /* a hook asks for more time */
#define ERR_NOTIMPLEMENTED 12u     /* not implemented, or a needed imported function is missing */
#define ERR_BUFFERSIZE 15u         /* buffer too small, output truncated */
#define ERR_NO_OBJECT 16u          /* nothing there: no module, empty list, key not found, file not opened */
#define ERR_NOMEMORY 17u           /* out of memory */
#define ERR_DUPLICATE 18u          /* duplicate or already done */
#define ERR_INVALID_POOL 20u       /* invalid or exhausted pool */
#define ERR_NO_COMPONENT 24u       /* the component that would serve the call is not there */
#define ERR_SIZE_TOO_LARGE 26u     /* requested size larger than the block size */
#define ERR_SIGNATURE_MISMATCH 30u /* signature mismatch */
#define ERR_VERSION_MISMATCH 31u   /* version mismatch */
#define ERR_NO_ACCESS_RIGHTS 39u   /* no access rights */
#define ERR_DISK_FULL 41u          /* disk full */

/* Versions: four bytes A.B.C.D, A in the highest byte. */
#define RTS_MAKE_VERSION(a, b, c, d) \
    ((RTS_UI32)(((RTS_UI32)(a) << 24) | ((RTS_UI32)(b) << 16) | ((RTS_UI32)(c) << 8) | (RTS_UI32)(d)))
#define RTS_VERSION_MAJOR(v) (((RTS_UI32)(v) >> 24) & 0xFFu)
#define RTS_VERSION_MINOR(v) (((RTS_UI32)(v) >> 16) & 0xFFu)
#define RTS_VERSION_PATCH(v) (((RTS_UI32)(v) >> 8) & 0xFFu)
#define RTS_VERSION_BUILD(v) ((RTS_UI32)(v) & 0xFFu)
/* Two versions agree when either is 0 or their highest bytes are equal. */
#define RTS_VERSIONS_AGREE(a, b) \
    ((a) == 0 || (b) == 0 || RTS_VERSION_MAJOR(a) == RTS_VERSION_MAJOR(b))

#define RTS_SYSTEM_VERSION 0x03050500u
#define RTS_SYSTEM_VERSION_TEXT "3.5.5.0"
#define RTS_PRODUCT_NAME "KESTREL Control"

/* Component ids the system itself knows. */
#define CMPID_CM 1u
#define CMPID_CmpMemPool 0x1Eu
#define CMPID_SysFile 0x104u
#define CMPID_SysTarget 0x112u
/* Ids of the runtime service modules of this host. */
#define CMPID_SysMem 0x13u
#define CMPID_SysSem 0x1Fu
#define CMPID_CmpLog 0x101u
#define CMPID_CmpSettings 0x108u
#define CMPID_SysExcept 0x10Bu
#define CMPID_SysTime 0x114u
#define CMPID_SysTimeRtc 0x115u
#define CMPID_SysInt 0x116u
#define CMPID_SysOut 0x117u
#define CMPID_SysCpuHandling 0x118u
#define CMPID_CmpEventMgr 0x119u
#define CMPID_CmpChecksum 0x11Au
/* Ids of the IEC-side range: bit 0x1000. */
#define CMPID_IEC 0x1000u

/* Hook ids and the order in which the component manager sends them. */
#define CH_INIT 1u                 /* first hook after the entry calls */
#define CH_INIT2 2u                /* param1: pointer to the stop-start-up word */
#define CH_INIT3 3u
#define CH_INIT_TASKS 4u
#define CH_INIT_COMM 5u
#define CH_INIT_FINISHED 6u
#define CH_INIT_IO 7u
#define CH_INIT_SYSTEM 8u          /* after hook 1 */
#define CH_INIT_APPS 500u
#define CH_INIT_DONE 1000u
#define CH_EXIT_REQUEST 10u        /* may answer ERR_CALL_AGAIN */
#define CH_EXIT_TASKS 11u
#define CH_EXIT_APPS 2200u
#define CH_EXIT_COMM 12u
#define CH_EXIT_IO 13u
#define CH_EXIT 14u
#define CH_EXIT_SYSTEM 17u
#define CH_EXIT2 15u
#define CH_EXIT_FINAL 16u
#define CH_COMM_CYCLE 20u
#define CH_COMPONENT_INITIALIZED 23u /* param1: component name */
#define CH_COMPONENT_EXIT 24u        /* param1: component name */
#define CH_COMPONENT_LOADED 25u      /* param1: component name */
#define CH_INSTANCE_REGISTERED 27u   /* param1: class id, param2: instance handle */
#define CH_INSTANCE_UNREGISTERED 28u /* param1: class id, param2: instance handle */

/* Log classes of LogAdd. */
#define LOG_INFO 1u
#define LOG_WARNING 2u
#define LOG_ERROR 4u
#define LOG_EXCEPTION 8u
#define LOG_DEBUG 16u /* pool-leak reports */
#define LOG_PRINT 32u /* banner and component-list lines */
#define LOG_STD_LOGGER ((RTS_HANDLE)0)

#endif
