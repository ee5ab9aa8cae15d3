// Text formatting of the logger: printf-style formatting of entry texts and
// the console line of an entry.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "CmpLogItf.h"

namespace kestrel::cmplog {

// printf-compatible formatting into buf (always terminated, cut to size).
// The conversions log texts use (d i u x X o c s p %, with flags, width,
// precision and the length modifiers hh h l ll z j t) are formatted here
// directly; a format with anything else (floating point, %n, ...) is handed
// to vsnprintf whole. Returns the number of characters written.
std::size_t FormatText(char *buf, std::size_t size, const char *fmt, va_list args);

// The console form of an entry: "hh:mm:ss.mmm LEVEL text" in UTC, with the
// markup tags of log texts (<cmp>, </cmp>, <id>, ...) removed. The time is
// taken from ulMsOfDay (milliseconds since midnight).
std::size_t FormatConsoleLine(char *buf, std::size_t size, const LogEntry &entry, RTS_UI32 ulMsOfDay);

} // namespace kestrel::cmplog
