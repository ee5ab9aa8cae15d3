// The exception guards of the OS backend: an invalid memory access, an
// integer division by zero or an illegal instruction inside a guarded call
// comes back as "false"; normal calls, repeated faults and nested guards work.
#include <gtest/gtest.h>

#include <atomic>

#include "HostOs.h"

namespace kestrel::host {
namespace {

// An address in the never-mapped first page; volatile so that the compiler
// cannot see the access is invalid.
volatile RTS_UINTPTR s_badAddress = 16;

// Keeps the compiler from moving the counters across the faulting access.
void Barrier() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

struct Counter {
    int before = 0;
    int after = 0;
};

void InvalidAccess(void *p) {
    auto *c = static_cast<Counter *>(p);
    ++c->before;
    Barrier();
    *reinterpret_cast<volatile int *>(s_badAddress) = 1;
    Barrier();
    ++c->after;
}

#if defined(__GNUC__)
__attribute__((no_sanitize_undefined))
#endif
void DivideByZero(void *p) {
    auto *c = static_cast<Counter *>(p);
    ++c->before;
    // Both volatile, or the compiler replaces the division by comparisons.
    volatile int dividend = 7;
    volatile int zero = 0;
    Barrier();
    volatile int result = dividend / zero;
    (void)result;
    Barrier();
    ++c->after;
}

void IllegalInstruction(void *p) {
    auto *c = static_cast<Counter *>(p);
    ++c->before;
    __builtin_trap();
}

void Fine(void *p) {
    auto *c = static_cast<Counter *>(p);
    ++c->before;
    ++c->after;
}

struct FaultCase {
    const char *name;
    HostGuardedFunction fn;
};

class HostGuardFaults : public ::testing::TestWithParam<FaultCase> {};

TEST_P(HostGuardFaults, AreCaughtAgainAndAgain) {
    // Repeats show that the signal mask (or the handler) is restored each time.
    for (int i = 0; i < 3; ++i) {
        Counter c;
        EXPECT_FALSE(HostOsGuardedCall(GetParam().fn, &c));
        EXPECT_EQ(c.before, 1);
        EXPECT_EQ(c.after, 0);
    }
    Counter c;
    EXPECT_TRUE(HostOsGuardedCall(&Fine, &c)) << "a normal call after the faults";
    EXPECT_EQ(c.before, 1);
    EXPECT_EQ(c.after, 1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, HostGuardFaults,
                         ::testing::Values(FaultCase{"InvalidAccess", &InvalidAccess},
                                           FaultCase{"DivideByZero", &DivideByZero},
                                           FaultCase{"IllegalInstruction", &IllegalInstruction}),
                         [](const ::testing::TestParamInfo<FaultCase> &p) { return p.param.name; });

struct Nested {
    bool innerResult = true;
    int afterInner = 0;
};

void OuterCallsInner(void *p) {
    auto *n = static_cast<Nested *>(p);
    Counter c;
    n->innerResult = HostOsGuardedCall(&InvalidAccess, &c);
    ++n->afterInner;
}

void FaultAfterInner(void *p) {
    OuterCallsInner(p);
    static Counter counter;
    InvalidAccess(&counter);
}

TEST(HostGuard, NestedGuardsCatchInTheInnerOneThenInTheOuterOne) {
    Nested n;
    EXPECT_TRUE(HostOsGuardedCall(&OuterCallsInner, &n));
    EXPECT_FALSE(n.innerResult);
    EXPECT_EQ(n.afterInner, 1);
    Nested again;
    EXPECT_FALSE(HostOsGuardedCall(&FaultAfterInner, &again));
    EXPECT_EQ(again.afterInner, 1);
}

} // namespace
} // namespace kestrel::host
