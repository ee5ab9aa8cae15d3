/*
 * SysCpuHandling: atomic operations and calls of IEC functions.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSCPUHANDLINGITF_H
#define KESTREL_SYSCPUHANDLINGITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

/* Adds nSum to *piValue atomically and returns the new value. */
RTS_I32 SysCpuAtomicAdd(volatile RTS_I32 *piValue, RTS_I32 nSum, RTS_RESULT *pResult);
/* Calls an IEC function that takes one pointer to its parameter record. */
typedef void (*PF_IEC_FUNCTION)(void *pParam);
RTS_RESULT SysCpuCallIecFuncWithParams(RTS_VOID_FCTPTR pfIecFunction, void *pParam, RTS_SIZE ulParamSize);

RTS_END_C

#endif
