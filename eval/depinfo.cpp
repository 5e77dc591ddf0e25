// SPDX-License-Identifier: LicenseRef-qxkernel
#include "depinfo.hpp"

#include <algorithm>

void DepInfo::set(Words& w, int bit, int index)
{
    const auto i = static_cast<std::size_t>(std::max(index, 0));
    w.grow(i + 1);
    w[i] |= mask(bit);
}

bool DepInfo::any(const Words& w)
{
    for (std::size_t i = 0; i < w.size(); ++i)
        if (w[i] != 0)
            return true;
    return false;
}

void DepInfo::merge(Words& w, const Words& other)
{
    w.grow(other.size());
    for (std::size_t i = 0; i < other.size(); ++i)
        w[i] |= other[i];
}

void DepInfo::narrow(Words& w, int index)
{
    const unsigned kept = word(w, index);
    w.clear();
    w.grow(1);
    w[0] = kept;
}

void DepInfo::chain(Words& w, const Words& partial, const Words& argument)
{
    for (std::size_t i = 0; i < partial.size(); ++i)
        for (std::size_t j = 0; j < argument.size(); ++j)
            if (partial[i] != 0 && argument[j] != 0) {
                w.grow(i + j + 1);
                w[i + j] |= partial[i];
            }
}

void DepInfo::makeDependent(int nPar, int parIndex, int solIndex, int solBit)
{
    *this = DepInfo();
    const auto lowBits = [](int n) { return n >= 32 ? ~0u : n <= 0 ? 0u : (1u << n) - 1u; };
    const auto fill = [](Words& w, int lastIndex, unsigned bits) {
        for (int i = 0; i <= lastIndex; ++i) {
            w.grow(static_cast<std::size_t>(i) + 1);
            w[static_cast<std::size_t>(i)] = bits;
        }
    };
    fill(sol_, solIndex, solBit >= 31 ? ~0u : lowBits(solBit + 1));
    fill(par_, parIndex, lowBits(nPar));
}

void DepInfo::makeDependent()
{
    makeDependent(32, 1, 1, 31);
}

void DepInfo::makeFailed()
{
    *this = DepInfo();
    failed_ = true;
}

void DepInfo::selectJacTOrder(int index)
{
    narrow(sol_, index);
    narrow(par_, index);
}

void DepInfo::setJacDep(const DepInfo& partial, const DepInfo& argument)
{
    chain(sol_, partial.sol_, argument.sol_);
    chain(par_, partial.par_, argument.par_);
    failed_ = failed_ || partial.failed_ || argument.failed_;
    incompleteJac_ = incompleteJac_ || partial.incompleteJac_ || argument.incompleteJac_;
}

DepInfo& DepInfo::operator|=(const DepInfo& other)
{
    merge(sol_, other.sol_);
    merge(par_, other.par_);
    failed_ = failed_ || other.failed_;
    incompleteJac_ = incompleteJac_ || other.incompleteJac_;
    return *this;
}
