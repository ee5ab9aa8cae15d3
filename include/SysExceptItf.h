/*
 * SysExcept: hardware exceptions (invalid access, division by zero, ...)
 * turned into a jump back to a registered point.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSEXCEPTITF_H
#define KESTREL_SYSEXCEPTITF_H

#include <setjmp.h>
#include "RtsTypes.h"

RTS_BEGIN_C

/* Exception codes. */
#define RTSEXCPT_NOEXCEPTION 0x0000u
#define RTSEXCPT_ACCESS_VIOLATION 0x0010u
#define RTSEXCPT_DIVIDEBYZERO 0x0013u
#define RTSEXCPT_ILLEGAL_INSTRUCTION 0x0015u
#define RTSEXCPT_MISALIGNMENT 0x0014u
#define RTSEXCPT_FPU_ERROR 0x0016u
#define RTSEXCPT_SOFT 0x0100u /* raised by SysExceptGenerateException */

/* A registered catch point: the jump buffer and, after a catch, the exception. */
typedef struct RTS_EXCEPT_FRAME_ {
    jmp_buf jmpBuf;
    RTS_UI32 ulException;     /* code of the caught exception */
    RTS_UINTPTR ulAddress;    /* faulting address, when known */
    struct RTS_EXCEPT_FRAME_ *pPrevious; /* managed by SysExcept */
} RTS_EXCEPT_FRAME;

RTS_RESULT SysExceptRegisterJmpBuf(RTS_EXCEPT_FRAME *pFrame);
RTS_RESULT SysExceptUnregisterJmpBuf(RTS_EXCEPT_FRAME *pFrame);
/* Called after the jump returned nonzero: fills in the exception and unregisters the frame. */
RTS_RESULT SysExceptCatch(RTS_EXCEPT_FRAME *pFrame, RTS_UI32 *pulException);
RTS_RESULT SysExceptGenerateException(RTS_UI32 ulException);

RTS_END_C

#endif
