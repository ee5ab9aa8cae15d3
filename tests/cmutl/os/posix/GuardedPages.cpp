#include "GuardedPages.h"

#include <new>
#include <sys/mman.h>

namespace kestrel::test {

GuardedPages::GuardedPages(std::size_t pages) : size_(pages * kPage) {
    void *p = mmap(nullptr, size_ + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        throw std::bad_alloc();
    }
    begin_ = static_cast<char *>(p);
    if (mprotect(begin_ + size_, kPage, PROT_NONE) != 0) {
        munmap(begin_, size_ + kPage);
        throw std::bad_alloc();
    }
}

GuardedPages::~GuardedPages() {
    munmap(begin_, size_ + kPage);
}

} // namespace kestrel::test
