// A destination buffer filled with a marker, so that a test sees exactly which elements a
// function wrote.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace kestrel::test {

template <typename Ch = char, std::size_t N = 96> struct MarkedBuffer {
    static constexpr Ch kMarker = static_cast<Ch>(0x7E);
    std::array<Ch, N> data;
    MarkedBuffer() { data.fill(kMarker); }
    Ch *get() { return data.data(); }
    // True when the elements in [from, to) still hold the marker.
    bool UntouchedFrom(std::size_t from, std::size_t to = N) const {
        for (std::size_t i = from; i < to; ++i) {
            if (data[i] != kMarker) {
                return false;
            }
        }
        return true;
    }
    std::basic_string<Ch> Text() const { return std::basic_string<Ch>(data.data()); }
};

} // namespace kestrel::test
