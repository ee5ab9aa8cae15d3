// A destination buffer for the string-utility tests: filled with a marker
// byte so that a test sees exactly which bytes a function wrote.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace kestrel::test {

constexpr char kMarker = '\x7E';

template <typename Ch = char, std::size_t N = 96> struct MarkedBuffer {
    std::array<Ch, N> data;
    MarkedBuffer() { data.fill(static_cast<Ch>(kMarker)); }
    Ch *get() { return data.data(); }
    // The bytes in [from, to) that still hold the marker.
    bool UntouchedFrom(std::size_t from, std::size_t to = N) const {
        for (std::size_t i = from; i < to; ++i) {
            if (data[i] != static_cast<Ch>(kMarker)) {
                return false;
            }
        }
        return true;
    }
    std::basic_string<Ch> Text() const { return std::basic_string<Ch>(data.data()); }
};

} // namespace kestrel::test
