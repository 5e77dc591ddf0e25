// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <array>
#include <cstddef>
#include <vector>

/// What an expression depends on: solution components and parameters, each at a set of derivative orders.
///
/// Word i of a set is a mask of component groups at order i: bit b is set when the expression depends on group b at
/// order i. What the bits and orders mean is the host's; they are only stored here. Bits of 32 and above wrap onto the
/// low ones. Orders 0 and 1 are held in the object, so the usual query allocates nothing.
///
/// A failed analysis reads as dependence on everything. Plain value, deep copies, no shared state.
class QX_API DepInfo
{
public:
    /// Growable vector whose first N elements live in the object. New elements are T().
    template <std::size_t N, class T>
    class ShortVector
    {
    public:
        std::size_t size() const { return count_; }
        const T& operator[](std::size_t i) const { return i < N ? inline_[i] : overflow_[i - N]; }
        T& operator[](std::size_t i) { return i < N ? inline_[i] : overflow_[i - N]; }
        /// Makes the vector at least n long.
        void grow(std::size_t n)
        {
            if (n > N && n - N > overflow_.size())
                overflow_.resize(n - N);
            if (n > count_)
                count_ = n;
        }
        void clear() { *this = ShortVector(); }

    private:
        std::size_t count_ = 0;
        std::array<T, N> inline_{};
        std::vector<T> overflow_;
    };

    /// Marks component group bit at order index; words grow as needed.
    void setSolDep(int bit, int index) { set(sol_, bit, index); }
    void setParDep(int bit, int index) { set(par_, bit, index); }

    /// Any group at that order? True when failed, false past the stored orders.
    bool isSolDep(int index) const { return failed_ || any(sol_, index); }
    bool isParDep(int index) const { return failed_ || any(par_, index); }

    /// That group at that order? True when failed, false past the stored orders.
    bool getSolDep(int bit, int index) const { return failed_ || (word(sol_, index) & mask(bit)) != 0; }
    bool getParDep(int bit, int index) const { return failed_ || (word(par_, index) & mask(bit)) != 0; }

    /// Any group at any order? True when failed.
    bool isSolDepAll() const { return failed_ || any(sol_); }
    bool isParDepAll() const { return failed_ || any(par_); }

    /// Forgets everything, then sets bits 0..solBit of the solution words 0..solIndex and bits 0..nPar-1 of the
    /// parameter words 0..parIndex.
    void makeDependent(int nPar, int parIndex, int solIndex, int solBit);
    /// Forgets everything, then sets all bits of orders 0 and 1 in both sets. Not a failure.
    void makeDependent();

    /// The analysis could not tell.
    void setFailed() { failed_ = true; }
    /// Forgets everything, then setFailed().
    void makeFailed();
    bool isFailed() const { return failed_; }

    /// The Jacobian dependence is known to be incomplete.
    void setIncompleteJac() { incompleteJac_ = true; }
    bool isIncomplete() const { return incompleteJac_; }

    /// Narrows both sets to one order: word `index`, or 0 past the end, becomes the only word.
    void selectJacTOrder(int index);

    /// The chain rule for a partial derivative and the argument it multiplies: every dependence of partial is kept, at
    /// its own order plus each order at which argument depends on anything. Failed and incomplete marks are or-ed.
    void setJacDep(const DepInfo& partial, const DepInfo& argument);

    /// Union, word by word; the shorter set is extended. Failed and incomplete marks are or-ed.
    DepInfo& operator|=(const DepInfo& other);

private:
    using Words = ShortVector<2, unsigned int>;

    static unsigned mask(int bit) { return 1u << (static_cast<unsigned>(bit) & 31u); }
    static unsigned word(const Words& w, int index)
    {
        return index >= 0 && static_cast<std::size_t>(index) < w.size() ? w[static_cast<std::size_t>(index)] : 0u;
    }
    static bool any(const Words& w, int index) { return word(w, index) != 0; }
    static bool any(const Words& w);
    static void set(Words& w, int bit, int index);
    static void merge(Words& w, const Words& other);
    static void narrow(Words& w, int index);
    static void chain(Words& w, const Words& partial, const Words& argument);

    Words sol_;
    Words par_;
    bool failed_ = false;
    bool incompleteJac_ = false;
};
