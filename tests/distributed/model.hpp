// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "distributed.hpp"

#include "sparse.hpp"

#include <random>
#include <vector>

/// A system of random elements that every rank knows as a whole: what the tests compare with. Elements, unknowns and
/// conditions are dealt to ranks.
struct Model
{
    using Index = qx::distributed::Index;
    using Scalar = qx::distributed::Scalar;

    struct Element
    {
        std::vector<Index> unknowns;
        std::vector<Scalar> matrix; ///< by rows
        std::vector<Scalar> load;
    };
    struct Condition
    {
        std::vector<std::pair<Index, Scalar>> entries;
        Scalar value;
    };

    Index count = 0;
    std::vector<Element> elements;
    std::vector<Condition> conditions;

    /// A random matrix, positive definite (Hermitian), of elements of three unknowns that chain all of them.
    static Model random(Index count, unsigned seed);
    /// Conditions of all kinds, none of them at odds with others: fixed values, joins, means of a few, hanging nodes.
    void addRandomConditions(unsigned seed);

    /// By the kernel on one machine.
    std::vector<Scalar> solution() const;

    // --- What a rank of a session has ------------------------------------------------------------------------------

    int ownerOf(Index unknown, int ranks) const;
    std::vector<std::size_t> elementsOf(int rank, int ranks) const;
    /// Owned ones first.
    std::vector<Index> numbersOf(int rank, int ranks, std::size_t& owned) const;
    qx::distributed::Conditions conditionsOf(int rank, int ranks) const;
    qx::distributed::Unknowns unknownsOn(const qx::distributed::Session& session) const;
    void addTo(qx::distributed::Assembly& system, const qx::distributed::Session& session, int batches = 1) const;
    /// Values alone, for a pattern that is there.
    void addAgain(qx::distributed::Assembly& system, const qx::distributed::Session& session, int batches = 1) const;
};

/// Values of this rank's numbers, as the whole vector that all ranks together have; 0 where nobody has one.
std::vector<Model::Scalar> gatheredValues(const qx::distributed::Session& session, const std::vector<Model::Index>& numbers,
                                          const std::vector<Model::Scalar>& values, std::size_t owned, Model::Index count);

double maxDifference(const std::vector<Model::Scalar>& a, const std::vector<Model::Scalar>& b);
