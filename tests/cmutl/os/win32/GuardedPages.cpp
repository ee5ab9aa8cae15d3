#include "GuardedPages.h"

#include <new>
#include <windows.h>

namespace kestrel::test {

GuardedPages::GuardedPages(std::size_t pages) : size_(pages * kPage) {
    void *p = VirtualAlloc(nullptr, size_ + kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    begin_ = static_cast<char *>(p);
    DWORD previous = 0;
    if (!VirtualProtect(begin_ + size_, kPage, PAGE_NOACCESS, &previous)) {
        VirtualFree(begin_, 0, MEM_RELEASE);
        throw std::bad_alloc();
    }
}

GuardedPages::~GuardedPages() {
    VirtualFree(begin_, 0, MEM_RELEASE);
}

} // namespace kestrel::test
