#include "assembly.hpp"

#include "support/csv.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace examples {
namespace {

// N points a cell with equal weights; phi[q][i] is the value of shape function i at point q.
template <int N>
struct Rule;

template <>
struct Rule<3> // interior points, exact for degree 2
{
    static constexpr double phi[3][3] = {
        {2.0 / 3.0, 1.0 / 6.0, 1.0 / 6.0}, {1.0 / 6.0, 2.0 / 3.0, 1.0 / 6.0}, {1.0 / 6.0, 1.0 / 6.0, 2.0 / 3.0}};
};

template <>
struct Rule<2> // Gauss points at (1 -+ 1/sqrt(3))/2, exact for degree 3
{
    static constexpr double a = 0.21132486540518711775;
    static constexpr double phi[2][2] = {{1.0 - a, a}, {a, 1.0 - a}};
};

// Length of an edge, area of a triangle; gradients of the shape functions of a triangle.
template <int N>
struct Shape
{
    double measure = 0.0;
    Point gradient[3] = {};

    Shape(const Mesh& mesh, const std::array<int, N>& nodes)
    {
        const auto at = [&](std::size_t k) { return mesh.points[static_cast<std::size_t>(nodes[k % N])]; };
        const Point a = at(0);
        const Point b = at(1);
        if constexpr (N == 2) {
            measure = std::hypot(b[0] - a[0], b[1] - a[1]);
        } else {
            const Point c = at(2);
            const double twice = (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
            measure = 0.5 * twice;
            for (std::size_t i = 0; i < 3; ++i) // the opposite edge, turned by a right angle
                gradient[i] = {(at(i + 1)[1] - at(i + 2)[1]) / twice, (at(i + 2)[0] - at(i + 1)[0]) / twice};
        }
    }
};

double dot(const Point& a, const Point& b)
{
    return a[0] * b[0] + a[1] * b[1];
}

} // namespace

Assembly::Assembly(const NamedMesh& mesh, const HeatModel& model, const Effort& effort)
    : mesh_(mesh), effort_(effort), coefficients_(model.definitions)
{
    body_ = part<3>("element", mesh.triangles,
                    {coefficients_.read("source", model.source), coefficients_.read("conductivity", model.conductivity)});
    linear_ = linear_ && !body_.coefficients[1].slope;
    for (const BoundaryFormula& q : model.flux)
        boundaries_.push_back(part<2>("edge of " + q.boundary, mesh.boundary(q.boundary),
                                      {coefficients_.read("flux on " + q.boundary, q.text)}));
}

template <int N>
Assembly::Part<N> Assembly::part(const std::string& cell, std::vector<std::array<int, N>> nodes,
                                 std::vector<Coefficient> coefficients)
{
    Part<N> p{cell, std::move(nodes), std::move(coefficients), rows_.size(), loadNodes_.size()};
    for (const auto& cellNodes : p.nodes)
        for (const int i : cellNodes) {
            loadNodes_.push_back(i);
            for (const int j : cellNodes) {
                rows_.push_back(static_cast<unsigned long>(i));
                columns_.push_back(static_cast<unsigned long>(j));
            }
        }
    for (const Coefficient& c : p.coefficients)
        linear_ = linear_ && !c.slopeVaries;
    return p;
}

template <int N>
Points Assembly::pointsOf(const Part<N>& part, Range cells, const std::vector<double>& u) const
{
    Points points;
    points.resize(N * cells.count);
    std::size_t k = 0;
    for (std::size_t c = cells.first; c < cells.first + cells.count; ++c)
        for (std::size_t q = 0; q < N; ++q, ++k)
            for (std::size_t i = 0; i < N; ++i) {
                const auto node = static_cast<std::size_t>(part.nodes[c][i]);
                const double phi = Rule<N>::phi[q][i];
                points.x[k] += phi * mesh_.points[node][0];
                points.y[k] += phi * mesh_.points[node][1];
                points.u[k] += phi * u[node];
            }
    return points;
}

template <class T, int N>
void Assembly::assemblePart(const Part<N>& part, const std::vector<double>& u, std::vector<T>& triplets,
                            std::vector<T>& loads) const
{
    const auto work = [&](BlockEvaluator& evaluator, Range cells) {
        effort_.pulse();
        const Points points = pointsOf(part, cells, u);
        evaluator.setPoints({points.x.data(), points.y.data(), points.u.data()}, points.size());
        std::vector<T> f, fSlope, k, kSlope;
        Coefficients::evaluate(evaluator, part.coefficients[0], points, f, fSlope);
        if constexpr (N == 3)
            Coefficients::evaluate(evaluator, part.coefficients[1], points, k, kSlope);

        for (std::size_t c = cells.first; c < cells.first + cells.count; ++c) {
            const Shape<N> shape(mesh_, part.nodes[c]);
            const double weight = shape.measure / N;
            const std::size_t first = N * (c - cells.first);
            T* const J = &triplets[part.firstTriplet + N * N * c];
            T* const F = &loads[part.firstLoad + N * c];
            Point slopeOfU{0.0, 0.0};
            for (std::size_t i = 0; i < N; ++i)
                for (std::size_t d = 0; d < 2; ++d)
                    slopeOfU[d] += u[static_cast<std::size_t>(part.nodes[c][i])] * shape.gradient[i][d];
            for (std::size_t q = 0; q < N; ++q) {
                const auto& phi = Rule<N>::phi[q];
                for (std::size_t i = 0; i < N; ++i) {
                    const double into = dot(slopeOfU, shape.gradient[i]);
                    F[i] -= weight * f[first + q] * phi[i];
                    if constexpr (N == 3)
                        F[i] += weight * k[first + q] * into;
                    for (std::size_t j = 0; j < N; ++j) {
                        J[N * i + j] -= weight * fSlope[first + q] * (phi[j] * phi[i]);
                        if constexpr (N == 3)
                            J[N * i + j] += weight * (k[first + q] * dot(shape.gradient[j], shape.gradient[i]) +
                                                      kSlope[first + q] * (phi[j] * into));
                    }
                }
            }
        }
    };
    const Range bad = runBlocks(
        part.nodes.size(), effort_.block, effort_.threads,
        [&] { return coefficients_.makeEvaluator(N * effort_.block); }, work);
    if (bad.count > 0)
        tell<T>(part, bad, u);
}

template <class T, int N>
void Assembly::tell(const Part<N>& part, Range cells, const std::vector<double>& u) const
{
    effort_.pulse(); // stopped by the user: raises again
    for (const Coefficient& c : part.coefficients) {
        const auto fails = [&](Range r) { return !coefficients_.failure<T>(c, pointsOf(part, r, u)).empty(); };
        if (!fails(cells))
            continue;
        const std::size_t cell = firstFailing(cells, fails);
        const Points points = pointsOf(part, {cell, 1}, u);
        for (std::size_t k = 0; k < points.size(); ++k) {
            const Points point{{points.x[k]}, {points.y[k]}, {points.u[k]}};
            const std::string story = coefficients_.failure<T>(c, point);
            if (!story.empty())
                throw EvaluationError(c.name + " fails in " + part.cell + " " + std::to_string(cell + 1) + " at x = " +
                                      toText(point.x[0]) + ", y = " + toText(point.y[0]) + ", u = " +
                                      toText(point.u[0]) + story);
        }
    }
    throw EvaluationError("a block of elements failed for a reason that is gone: probably memory ran out");
}

template <class T>
void Assembly::assemble(const std::vector<double>& u, Sparse& J, std::vector<T>& F) const
{
    std::vector<T> triplets(rows_.size(), T(0.0));
    std::vector<T> loads(loadNodes_.size(), T(0.0));
    assemblePart(body_, u, triplets, loads);
    for (const Part<2>& boundary : boundaries_)
        assemblePart(boundary, u, triplets, loads);

    const std::size_t n = mesh_.points.size();
    J.triplet2sparse(rows_, columns_, triplets, n, n);
    F.assign(n, T(0.0));
    for (std::size_t k = 0; k < loads.size(); ++k)
        F[static_cast<std::size_t>(loadNodes_[k])] += loads[k];
}

template <class T>
std::vector<T> Assembly::atNodes(const std::string& name, const std::string& text, const std::vector<int>& nodes) const
{
    const Coefficient c = coefficients_.read(name, text);
    if (c.slope)
        throw EvaluationError(name + " may use x and y, not u: " + text);
    const auto pointsAt = [&](Range r) {
        Points p;
        p.resize(r.count);
        for (std::size_t k = 0; k < r.count; ++k) {
            const Point& node = mesh_.points[static_cast<std::size_t>(nodes[r.first + k])];
            p.x[k] = node[0];
            p.y[k] = node[1];
        }
        return p;
    };
    const auto fails = [&](Range r) { return !coefficients_.failure<T>(c, pointsAt(r)).empty(); };
    const Range all{0, nodes.size()};
    if (nodes.empty())
        return {};
    if (fails(all)) {
        const std::size_t k = firstFailing(all, fails);
        const Points p = pointsAt({k, 1});
        throw EvaluationError(name + " fails at x = " + toText(p.x[0]) + ", y = " + toText(p.y[0]) +
                              coefficients_.failure<T>(c, p));
    }
    const Points points = pointsAt(all);
    BlockEvaluator evaluator = coefficients_.makeEvaluator(points.size());
    evaluator.setPoints({points.x.data(), points.y.data(), points.u.data()}, points.size());
    std::vector<T> value, slope;
    Coefficients::evaluate(evaluator, c, points, value, slope);
    return value;
}

template <class T>
double Assembly::error(const std::vector<T>& u, const std::string& exact) const
{
    const Coefficient c = coefficients_.read("exact solution", exact);
    BlockEvaluator evaluator = coefficients_.makeEvaluator(3 * effort_.block);
    const std::vector<double> zero(u.size(), 0.0);
    double sum = 0.0;
    for (std::size_t first = 0; first < body_.nodes.size(); first += effort_.block) {
        const Range cells{first, std::min(effort_.block, body_.nodes.size() - first)};
        const Points points = pointsOf(body_, cells, zero);
        evaluator.setPoints({points.x.data(), points.y.data(), points.u.data()}, points.size());
        std::vector<T> value, slope;
        Coefficients::evaluate(evaluator, c, points, value, slope);
        for (std::size_t k = 0; k < points.size(); ++k) {
            const auto& nodes = body_.nodes[first + k / 3];
            T difference = -value[k];
            for (std::size_t i = 0; i < 3; ++i)
                difference += Rule<3>::phi[k % 3][i] * u[static_cast<std::size_t>(nodes[i])];
            sum += Shape<3>(mesh_, nodes).measure / 3.0 * std::norm(difference);
        }
    }
    return std::sqrt(sum);
}

using Complex = std::complex<double>;
template void Assembly::assemble(const std::vector<double>&, Sparse&, std::vector<double>&) const;
template void Assembly::assemble(const std::vector<double>&, Sparse&, std::vector<Complex>&) const;
template double Assembly::error(const std::vector<double>&, const std::string&) const;
template double Assembly::error(const std::vector<Complex>&, const std::string&) const;
template std::vector<double> Assembly::atNodes(const std::string&, const std::string&, const std::vector<int>&) const;
template std::vector<Complex> Assembly::atNodes(const std::string&, const std::string&, const std::vector<int>&) const;

} // namespace examples
