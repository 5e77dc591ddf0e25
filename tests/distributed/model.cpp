// SPDX-License-Identifier: LicenseRef-qxkernel
#include "distributed/model.hpp"

#include "constrained.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <set>
#include <stdexcept>

using namespace qx::distributed;

namespace {

double uniform(std::mt19937& g) { return std::uniform_real_distribution<double>(-1.0, 1.0)(g); }

Scalar randomScalar(std::mt19937& g)
{
#ifdef QX_DISTRIBUTED_COMPLEX
    const double re = uniform(g);
    return {re, uniform(g)};
#else
    return uniform(g);
#endif
}

Scalar conjugate(const Scalar& z)
{
#ifdef QX_DISTRIBUTED_COMPLEX
    return std::conj(z);
#else
    return z;
#endif
}

} // namespace

Model Model::random(Index count, unsigned seed)
{
    std::mt19937 g(seed);
    Model m;
    m.count = count;
    const auto someUnknown = [&] { return static_cast<Index>(g() % static_cast<unsigned>(count)); };
    for (Index i = 0; i < count; ++i) {
        Element e;
        std::set<Index> corners{i, (i + 1) % count, someUnknown()};
        e.unknowns.assign(corners.begin(), corners.end());
        std::shuffle(e.unknowns.begin(), e.unknowns.end(), g);
        const std::size_t n = e.unknowns.size();
        std::vector<Scalar> half(n * n);
        for (Scalar& h : half)
            h = randomScalar(g);
        e.matrix.assign(n * n, Scalar(0.0));
        for (std::size_t a = 0; a < n; ++a) {
            for (std::size_t b = 0; b < n; ++b)
                for (std::size_t c = 0; c < n; ++c)
                    e.matrix[n * a + b] += half[n * a + c] * conjugate(half[n * b + c]);
            e.matrix[n * a + a] += 1.0;
            e.load.push_back(randomScalar(g));
        }
        m.elements.push_back(std::move(e));
    }
    return m;
}

void Model::addRandomConditions(unsigned seed)
{
    std::mt19937 g(seed);
    const auto unknown = [&](Index from, Index to) { return from + static_cast<Index>(g() % static_cast<unsigned>(to - from)); };
    const Index part = count / 5; // kinds keep to parts of their own, so that none contradict
    for (int k = 0; k < 3; ++k) {
        const Index u = unknown(0, part);
        const bool isNew = std::none_of(conditions.begin(), conditions.end(),
                                        [&](const Condition& c) { return c.entries.front().first == u; });
        if (isNew)
            conditions.push_back({{{u, 2.0}}, randomScalar(g)});
    }
    for (int k = 0; k < 4; ++k) // a chain: joins that share unknowns
        conditions.push_back({{{part + k, 1.0}, {part + k + 1, -1.0}}, Scalar(0.0)});
    conditions.push_back({{{part, 1.0}, {part + 4, -1.0}}, Scalar(0.0)}); // follows from the others
    Condition mean;
    for (Index u = 2 * part; u < 3 * part; ++u)
        mean.entries.emplace_back(u, 1.0 / static_cast<double>(part));
    mean.value = randomScalar(g);
    conditions.push_back(mean);
    const Index h = 3 * part;
    conditions.push_back({{{h, 1.0}, {h + 1, -0.5}, {h + 2, -0.5}}, Scalar(0.0)}); // hanging nodes
    conditions.push_back({{{h + 3, 1.0}, {h + 1, -0.25}, {h + 4, -0.75}}, randomScalar(g)});
}

std::vector<Scalar> Model::solution() const
{
    std::vector<unsigned long> rows, columns;
    std::vector<Scalar> values, f(static_cast<std::size_t>(count), Scalar(0.0));
    for (const Element& e : elements)
        for (std::size_t a = 0; a < e.unknowns.size(); ++a) {
            f[static_cast<std::size_t>(e.unknowns[a])] += e.load[a];
            for (std::size_t b = 0; b < e.unknowns.size(); ++b) {
                rows.push_back(static_cast<unsigned long>(e.unknowns[a]));
                columns.push_back(static_cast<unsigned long>(e.unknowns[b]));
                values.push_back(e.matrix[a * e.unknowns.size() + b]);
            }
        }
    const auto n = static_cast<unsigned long>(count);
    Sparse K, N;
    K.triplet2sparse(rows, columns, values, n, n);
    rows.clear();
    columns.clear();
    values.clear();
    std::vector<Scalar> g;
    for (const Condition& c : conditions) {
        for (const auto& [u, by] : c.entries) {
            rows.push_back(static_cast<unsigned long>(u));
            columns.push_back(g.size());
            values.push_back(conjugate(by));
        }
        g.push_back(c.value);
    }
    N.triplet2sparse(rows, columns, values, n, g.size());
    return qx::solveConstrained(K, std::span<const Scalar>(f), N, std::span<const Scalar>(g)).u;
}

int Model::ownerOf(Index unknown, int ranks) const { return static_cast<int>((unknown * 7 / 3) % ranks); }

std::vector<std::size_t> Model::elementsOf(int rank, int ranks) const
{
    std::vector<std::size_t> own;
    for (std::size_t e = 0; e < elements.size(); ++e)
        if (static_cast<int>(e % static_cast<std::size_t>(ranks)) == rank)
            own.push_back(e);
    return own;
}

std::vector<Index> Model::numbersOf(int rank, int ranks, std::size_t& owned) const
{
    std::vector<Index> numbers;
    for (Index u = 0; u < count; ++u)
        if (ownerOf(u, ranks) == rank)
            numbers.push_back(u);
    owned = numbers.size();
    std::set<Index> touched;
    for (const std::size_t e : elementsOf(rank, ranks))
        touched.insert(elements[e].unknowns.begin(), elements[e].unknowns.end());
    for (const Index u : touched)
        if (ownerOf(u, ranks) != rank)
            numbers.push_back(u);
    return numbers;
}

Conditions Model::conditionsOf(int rank, int ranks) const
{
    Conditions c;
    for (std::size_t k = 0; k < conditions.size(); ++k)
        if (static_cast<int>(k % static_cast<std::size_t>(ranks)) == rank)
            c.add(conditions[k].entries, conditions[k].value);
    return c;
}

Unknowns Model::unknownsOn(const Session& s) const
{
    std::size_t owned = 0;
    const std::vector<Index> numbers = numbersOf(s.rank(), s.size(), owned);
    return Unknowns(s, numbers, owned, conditionsOf(s.rank(), s.size()));
}

namespace {

template <class Take>
void inBatches(const Model& m, const Session& s, int batches, const Take& take)
{
    const std::vector<std::size_t> own = m.elementsOf(s.rank(), s.size());
    for (int batch = 0; batch < batches; ++batch) {
        std::vector<Index> rows, columns;
        std::vector<Scalar> values;
        const std::size_t from = own.size() * static_cast<std::size_t>(batch) / static_cast<std::size_t>(batches);
        const std::size_t to = own.size() * static_cast<std::size_t>(batch + 1) / static_cast<std::size_t>(batches);
        for (std::size_t k = from; k < to; ++k) {
            const Model::Element& e = m.elements[own[k]];
            for (std::size_t a = 0; a < e.unknowns.size(); ++a)
                for (std::size_t b = 0; b < e.unknowns.size(); ++b) {
                    rows.push_back(e.unknowns[a]);
                    columns.push_back(e.unknowns[b]);
                    values.push_back(e.matrix[a * e.unknowns.size() + b]);
                }
        }
        take(std::move(rows), std::move(columns), values);
    }
}

void addLoads(const Model& m, Assembly& system, const Session& s)
{
    for (const std::size_t k : m.elementsOf(s.rank(), s.size()))
        system.addLoad(m.elements[k].unknowns, m.elements[k].load);
}

} // namespace

void Model::addTo(Assembly& system, const Session& s, int batches) const
{
    inBatches(*this, s, batches, [&](std::vector<Index> rows, std::vector<Index> columns, const std::vector<Scalar>& values) {
        system.add(std::move(rows), std::move(columns), values);
    });
    addLoads(*this, system, s);
}

void Model::addAgain(Assembly& system, const Session& s, int batches) const
{
    inBatches(*this, s, batches,
              [&](const std::vector<Index>&, const std::vector<Index>&, const std::vector<Scalar>& values) { system.add(values); });
    addLoads(*this, system, s);
}

std::vector<Scalar> gatheredValues(const Session& session, const std::vector<Index>& numbers, const std::vector<Scalar>& values,
                                   std::size_t owned, Index count)
{
    std::vector<Scalar> all(static_cast<std::size_t>(count), Scalar(0.0));
    for (std::size_t k = 0; k < owned; ++k)
        all[static_cast<std::size_t>(numbers[k])] = values[k];
    MPI_Allreduce(MPI_IN_PLACE, all.data(), static_cast<int>(all.size() * sizeof(Scalar) / sizeof(double)), MPI_DOUBLE,
                  MPI_SUM, session.comm());
    return all;
}

double maxDifference(const std::vector<Scalar>& a, const std::vector<Scalar>& b)
{
    if (a.size() != b.size())
        throw std::invalid_argument("lengths differ");
    double most = 0.0;
    for (std::size_t k = 0; k < a.size(); ++k)
        most = std::max(most, std::abs(a[k] - b[k]));
    return most;
}
