// Win32 part of SysSem used by the lock's fast path: the thread id, from
// SysSemOs.cpp (GetCurrentThreadId reads the thread's own block; no kernel call).
#pragma once

#include <cstdint>

namespace kestrel::syssem {

std::uintptr_t OsCurrentThread();

} // namespace kestrel::syssem
