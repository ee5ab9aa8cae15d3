// Operating-system part of SysSem: a counting semaphore that blocked
// threads wait on, and the identity of the calling thread. The lock itself
// (owner, nesting, waiter count) is portable and lives in SysSem.cpp.
#pragma once

#include <cstdint>

namespace kestrel::syssem {

struct OsSemaphore; // opaque, one per SysSem handle

OsSemaphore *OsSemaphoreCreate();
void OsSemaphoreDelete(OsSemaphore *pSem);
bool OsSemaphoreWait(OsSemaphore *pSem); // blocks until posted
bool OsSemaphorePost(OsSemaphore *pSem);

// A nonzero value unique among the running threads.
std::uintptr_t OsCurrentThread();

} // namespace kestrel::syssem
