// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <vector>

/// A list of vectors of type T (Array<T,1>, Matrix<1>): basis vectors of a Krylov space that are no columns of one matrix.
///
/// One level only: N is 1. Copies share the list, so that a vector written through one is seen through all. Indices are
/// not checked. Threads: as for a plain vector.
template <class T, int N>
class MultiTree
{
    static_assert(N == 1, "MultiTree has one level");

public:
    MultiTree() : MultiTree(0) {}
    /// size empty vectors.
    explicit MultiTree(unsigned long size) : vectors_(boost::make_shared<std::vector<T>>(size)) {}

    unsigned long size() const { return vectors_->size(); }
    T& operator[](unsigned long i) { return (*vectors_)[i]; }
    const T& operator[](unsigned long i) const { return (*vectors_)[i]; }

private:
    boost::shared_ptr<std::vector<T>> vectors_;
};
