// SPDX-License-Identifier: LicenseRef-qxkernel
// Index reduction: bytes choose equations over a few unknowns, given functions and excluded unknowns. What is not refused is
// complete in structure: a second call differentiates nothing.
#include "dae.hpp"
#include "qxexception.hpp"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

class Bytes
{
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    unsigned pick(unsigned n) { return next_ < size_ ? data_[next_++] % n : 0; }
    bool isEmpty() const { return next_ >= size_; }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t next_ = 0;
};

std::string unknown(Bytes& bytes, unsigned n)
{
    std::string text = "z" + std::to_string(bytes.pick(n));
    for (unsigned order = bytes.pick(4); order > 0; --order)
        text = "(DIFF) " + text + " t";
    return text;
}

std::string term(Bytes& bytes, unsigned n)
{
    switch (bytes.pick(8)) {
    case 0: return "() sin 1 " + unknown(bytes, n);
    case 1: return "* " + unknown(bytes, n) + " " + unknown(bytes, n);
    case 2: return "^ " + unknown(bytes, n) + " 2";
    case 3: return "(DIFF) * " + unknown(bytes, n) + " " + unknown(bytes, n) + " t";
    case 4: return bytes.pick(2) ? "p" : "f";
    case 5: { // occurs in appearance only
        const std::string z = unknown(bytes, n);
        return "- " + z + " " + z;
    }
    default: return "* " + std::to_string(1 + bytes.pick(9)) + " " + unknown(bytes, n);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 300)
        return 0;
    Bytes bytes(data, size);
    Dae dae("t");
    const unsigned n = 1 + bytes.pick(7);
    dae.addVar("p", false, false, true);
    dae.addVar("f", false, true);
    for (unsigned i = 0; i < n; ++i)
        dae.addVar("z" + std::to_string(i));
    for (unsigned i = 0; i < n; ++i) {
        std::string text = "() cos 1 t";
        for (unsigned k = 1 + bytes.pick(3); k > 0 && !bytes.isEmpty(); --k)
            text = "+ " + text + " " + term(bytes, n);
        dae.addEq(text);
    }
    try {
        dae.reduceIndex();
        const std::size_t nEqs = dae.getEqs().size();
        dae.reduceIndex();
        if (dae.getEqs().size() != nEqs)
            std::abort();
        dae.simplify();
        for (std::size_t i = 0; i < dae.getEqs().size(); ++i)
            dae.getEq(static_cast<int>(i));
    } catch (const qxbase::Exception&) {
    }
    return 0;
}
