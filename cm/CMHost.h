/*
 * What the host program tells the component manager before start-up: the
 * entry functions of the components linked into the host executable rather
 * than into the component manager. Only "SysTarget", "SysFile" and
 * "CmpMemPool" are looked up among the linked-in components; every other name
 * is a module file. CmpMemPool is linked into the component manager itself
 * and needs no registration.
 */
#ifndef KESTREL_CM_HOST_H
#define KESTREL_CM_HOST_H

#include "CmpItf.h"

RTS_BEGIN_C

/* Supplies (or, with a null entry, withdraws) the entry function of a
 * linked-in component. Call it before CMInit3. Returns 0, or 2 for a null
 * name or a name other than the three linked-in ones. */
RTS_RESULT CMSetLinkedComponent(const char *pszName, PF_COMPONENT_ENTRY pfEntry);

RTS_END_C

#endif
