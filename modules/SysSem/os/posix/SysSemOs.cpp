// POSIX backend of SysSem: unnamed POSIX semaphores.
#include "SysSemOs.h"

#include <errno.h>
#include <semaphore.h>

#include <new>

namespace kestrel::syssem {

struct OsSemaphore {
    sem_t sem;
};

OsSemaphore *OsSemaphoreCreate() {
    auto *p = new (std::nothrow) OsSemaphore;
    if (p == nullptr)
        return nullptr;
    if (sem_init(&p->sem, 0, 0) != 0) {
        delete p;
        return nullptr;
    }
    return p;
}

void OsSemaphoreDelete(OsSemaphore *pSem) {
    sem_destroy(&pSem->sem);
    delete pSem;
}

bool OsSemaphoreWait(OsSemaphore *pSem) {
    // A signal handler may interrupt the wait; that is no reason to give up.
    while (sem_wait(&pSem->sem) != 0) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

bool OsSemaphorePost(OsSemaphore *pSem) {
    return sem_post(&pSem->sem) == 0;
}

} // namespace kestrel::syssem
