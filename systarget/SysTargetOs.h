/*
 * Operating-system layer of SysTarget: the computer name. One backend per
 * operating system (os/posix, os/win32) defines these functions.
 */
#ifndef KESTREL_SYSTARGET_OS_H
#define KESTREL_SYSTARGET_OS_H

#include "RtsTypes.h"

RTS_BEGIN_C

/* Buffer size of a computer name: at most 15 characters plus the terminator. */
#define SYSTARGET_COMPUTERNAME_SIZE 16u

/* Fills pszName (ulSize bytes, at least 1) with the computer name, cut so that
 * it fits; 0 on success, 1 when the name cannot be read. */
typedef RTS_RESULT (*PF_SYSTARGET_COMPUTERNAME)(char *pszName, RTS_SIZE ulSize);

RTS_RESULT SysTargetOsGetComputerName(char *pszName, RTS_SIZE ulSize);

/* Replaces the computer-name source (tests inject long or unreadable names);
 * null restores the operating system's. */
void SysTargetSetComputerNameSource(PF_SYSTARGET_COMPUTERNAME pfSource);

RTS_END_C

#endif
