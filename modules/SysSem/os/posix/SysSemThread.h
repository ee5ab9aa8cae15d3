// POSIX part of SysSem inlined into the lock's fast path: the calling
// thread's identity is the address of a thread-local byte, which costs one
// instruction. The initial-exec model keeps it so in a loaded module as well
// (the C library reserves static TLS for that).
#pragma once

#include <cstdint>

namespace kestrel::syssem {

inline std::uintptr_t OsCurrentThread() {
    static thread_local __attribute__((tls_model("initial-exec"))) char t_marker;
    return reinterpret_cast<std::uintptr_t>(&t_marker);
}

} // namespace kestrel::syssem
