// SPDX-License-Identifier: LicenseRef-qxkernel
#include "eval/evalrep_detail.hpp"

#include <algorithm>

using Complex = std::complex<double>;
using Ops = ValRepOps;

namespace {

template <class To, class From>
void convertAll(To* __restrict to, const From* __restrict from, std::size_t n)
{
    if constexpr (std::is_same_v<To, From>)
        std::copy_n(from, n, to);
    else
        for (std::size_t i = 0; i < n; ++i)
            to[i] = Ops::convert<To>(from[i]);
}

} // namespace

ValRepPtr ValRep::clone() const
{
    ValRepPtr copy = make(allocator_);
    Ops::copyFlags(*copy, *this);
    copy->size_ = size_;
    copy->nBlocks_ = nBlocks_;
    copy->errors_ = Ops::copyOf(errors_);
    for (const auto& x : dScalars_)
        copy->dScalars_.push_back(Ops::newScalar(*x));
    for (const auto& x : cScalars_)
        copy->cScalars_.push_back(Ops::newScalar(*x));
    for (const DArrayPtr& x : dArrays_) {
        DArrayPtr out;
        allocator_ ? allocator_->dClone(x, out) : void(out = boost::make_shared<Array<double, 1>>(*x));
        copy->dArrays_.push_back(out);
    }
    for (const CArrayPtr& x : cArrays_) {
        CArrayPtr out;
        allocator_ ? allocator_->cClone(x, out) : void(out = boost::make_shared<Array<Complex, 1>>(*x));
        copy->cArrays_.push_back(out);
    }
    return copy;
}

/// Appends one block of element type T to target, filled by fill(elements, count).
template <class T, class Fill>
static void addBlock(ValRep& target, Fill fill)
{
    if (target.isScalar()) {
        T value{};
        fill(&value, 1);
        if constexpr (std::is_same_v<T, double>) {
            boost::shared_ptr<double> out;
            target.addDScalar(out);
            *out = value;
        } else {
            boost::shared_ptr<Complex> out;
            target.addCScalar(out);
            *out = value;
        }
    } else if constexpr (std::is_same_v<T, double>) {
        DArrayPtr out;
        target.addDArray(out);
        fill(out->data(), target.getSize());
    } else {
        CArrayPtr out;
        target.addCArray(out);
        fill(out->data(), target.getSize());
    }
}

template <class T>
static void castBlocks(const auto& blocks, ValRep& target, std::size_t sourceSize, bool zero, std::size_t count)
{
    for (std::size_t j = 0; j < count; ++j) {
        if (zero) {
            addBlock<T>(target, [](T* to, std::size_t n) { std::fill_n(to, n, T()); });
            continue;
        }
        const auto& block = blocks[count == blocks.size() ? j : 0];
        addBlock<T>(target, [&](T* to, std::size_t n) {
            if constexpr (requires { block->data(); }) {
                Ops::check(n <= sourceSize);
                convertAll(to, block->data(), n);
            } else {
                std::fill_n(to, n, Ops::convert<T>(*block));
            }
        });
    }
}

ValRepPtr ValRep::cloneCast(const ArrayAllocatorPtr& allocator, unsigned long size, bool scalar, bool complex,
                            unsigned long nBlocks) const
{
    throwError();
    ValRepPtr target = make(allocator);
    target->reset(scalar, complex, size);
    const std::size_t own = zero_ ? std::max(nBlocks_, 1u) : nBlocks_, count = nBlocks == 0 ? own : nBlocks;
    Ops::check(zero_ || nBlocks_ > 0 || count == 0);
    Ops::withBlocks(*this, [&](const auto& blocks) {
        if (complex)
            castBlocks<Complex>(blocks, *target, size_, zero_, count);
        else
            castBlocks<double>(blocks, *target, size_, zero_, count);
    });
    target->complex_ = complex && storedComplex_ && complex_;
    target->evaluated_ = true;
    return target;
}

ValRepPtr ValRep::cloneToReal() const
{
    if (zero_ || nan_) {
        ValRepPtr copy = make(allocator_);
        Ops::copyFlags(*copy, *this);
        copy->storedComplex_ = copy->complex_ = false;
        copy->size_ = size_;
        copy->errors_ = Ops::copyOf(errors_);
        return copy;
    }
    if (complex_ && storedComplex_)
        Ops::withBlocks(*this, [this](const auto& blocks) {
            for (const auto& block : blocks) {
                bool real = true;
                if constexpr (requires { block->data(); })
                    for (std::size_t i = 0; i < size_; ++i)
                        real = real && std::imag((*block)[i]) == 0.0;
                else
                    real = std::imag(*block) == 0.0;
                if (!real)
                    QX_RAISE("evalrep", "Complex_number_in_real_expression");
            }
        });
    return cloneCast(allocator_, size_, scalar_, false, 0);
}
