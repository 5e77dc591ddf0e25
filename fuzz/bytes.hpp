// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Choices read from the bytes of a fuzz input; zeros when they are used up.

#include <cstddef>
#include <cstdint>

namespace fuzz {

class Bytes
{
public:
    Bytes(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}
    bool empty() const { return at_ == end_; }
    unsigned next() { return empty() ? 0u : *at_++; }
    unsigned below(unsigned n) { return n == 0 ? 0 : next() % n; }
    bool coin() { return next() % 2 == 1; }
    /// A small integer, sometimes zero or a half.
    double number()
    {
        const unsigned b = next();
        return b % 8 == 0 ? 0.0 : (static_cast<double>(b % 16) - 8.0) / (b % 3 == 0 ? 2.0 : 1.0);
    }

private:
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

} // namespace fuzz
