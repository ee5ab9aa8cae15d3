// Operating-system part of SysSem: a counting semaphore that blocked
// threads wait on. The identity of the calling thread, a nonzero value
// unique among the running threads, comes from SysSemThread.h of the OS
// backend, since the fast path wants it inline. The lock itself (owner,
// nesting, waiter count) is portable and lives in SysSem.cpp.
#pragma once

#include <cstdint>

namespace kestrel::syssem {

struct OsSemaphore; // opaque, one per SysSem handle

OsSemaphore *OsSemaphoreCreate();
void OsSemaphoreDelete(OsSemaphore *pSem);
bool OsSemaphoreWait(OsSemaphore *pSem); // blocks until posted
bool OsSemaphorePost(OsSemaphore *pSem);

} // namespace kestrel::syssem
