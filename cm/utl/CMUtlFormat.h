// The formatter behind CMUtlvsnprintf: C99 printf formatting into a bounded
// buffer. Internal to the string utilities.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace kestrel::cmutl {

// Formats like the C library's vsnprintf: stores at most size - 1 characters
// followed by a terminator (nothing when size is 0) and returns the length the
// full output has, or a negative number when the output cannot be produced.
// Integers, characters and strings are formatted here; floating-point values,
// pointers and null strings are handed one conversion at a time to the C
// library, and formats this code does not know (positional arguments, wide
// characters, %n) go to the C library whole, so every output is the C
// library's.
std::ptrdiff_t FormatV(char *pszDest, std::size_t size, const char *pszFormat, va_list args);

} // namespace kestrel::cmutl
