// Win32 backend of SysSem: kernel semaphores and the thread id.
#include "SysSemOs.h"
#include "SysSemThread.h"

#include <windows.h>

namespace kestrel::syssem {

OsSemaphore *OsSemaphoreCreate() {
    HANDLE h = CreateSemaphoreA(nullptr, 0, 0x7FFFFFFF, nullptr);
    return reinterpret_cast<OsSemaphore *>(h);
}

void OsSemaphoreDelete(OsSemaphore *pSem) {
    CloseHandle(reinterpret_cast<HANDLE>(pSem));
}

bool OsSemaphoreWait(OsSemaphore *pSem) {
    return WaitForSingleObject(reinterpret_cast<HANDLE>(pSem), INFINITE) == WAIT_OBJECT_0;
}

bool OsSemaphorePost(OsSemaphore *pSem) {
    return ReleaseSemaphore(reinterpret_cast<HANDLE>(pSem), 1, nullptr) != 0;
}

// Thread ids are never 0 on Windows.
std::uintptr_t OsCurrentThread() {
    return static_cast<std::uintptr_t>(GetCurrentThreadId());
}

} // namespace kestrel::syssem
