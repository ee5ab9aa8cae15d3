// Memory pages followed by one that may not be touched: a read past the end
// of the accessible ones faults, so a scan that strays across a page end
// crashes the test instead of reading the next page's bytes unnoticed.
#pragma once

#include <cstddef>

namespace kestrel::test {

class GuardedPages {
  public:
    static constexpr std::size_t kPage = 4096;
    explicit GuardedPages(std::size_t pages);
    ~GuardedPages();
    GuardedPages(const GuardedPages &) = delete;
    GuardedPages &operator=(const GuardedPages &) = delete;
    // One past the last accessible byte.
    char *end() const { return begin_ + size_; }

  private:
    char *begin_;
    std::size_t size_;
};

} // namespace kestrel::test
