// SPDX-License-Identifier: LicenseRef-qxkernel
#include "assembly.hpp"

#include "formulas/explain.hpp"
#include "support/csv.hpp"

#include "qxexception.hpp"

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

/// So many cells have their points in memory at a time.
constexpr std::size_t kCellsAtOnce = 1 << 17;

double dot(const Point& a, const Point& b)
{
    return a[0] * b[0] + a[1] * b[1];
}

} // namespace

Assembly::Assembly(const NamedMesh& mesh, const HeatModel& model, const Effort& effort)
    : mesh_(mesh), model_(model), effort_(effort)
{
    body_ = part<3>("element", mesh.triangles, {read("source", model.source), read("conductivity", model.conductivity)});
    linear_ = linear_ && !body_.coefficients[1].dependsOnU();
    for (const BoundaryFormula& q : model.flux)
        boundaries_.push_back(part<2>("edge of " + q.boundary, mesh.boundary(q.boundary),
                                      {read("flux on " + q.boundary, q.text)}));
    if (!linear_) { // J is assembled in every step
        pattern_ = AssemblyPattern(rows_, columns_, mesh.points.size(), mesh.points.size());
        rows_ = columns_ = {};
    }
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
        linear_ = linear_ && !c.slopeVaries();
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

/// `cell` is what messages call the place: "element", or empty where there are no cells.
template <class T>
Assembly::Values<T> Assembly::evaluate(const Coefficient& c, const Points& points, const std::string& cell,
                                       std::size_t firstCell, std::size_t pointsOfCell) const
{
    Values<T> v;
    try {
        c.evaluate(points, effort_, v.value, v.slope);
    } catch (const qxbase::CancelException&) {
        throw;
    } catch (const qxbase::Exception& e) {
        const std::string point = argumentOf(e, "Evaluation_failed_at_point", "Point");
        if (point.empty())
            throw;
        const std::size_t k = std::stoul(point);
        std::size_t number = firstCell + k / pointsOfCell;
        if (pointsOfCell == 3 && !mesh_.numbers.empty())
            number = static_cast<std::size_t>(mesh_.numbers[number]);
        const std::string where = cell.empty() ? "" : " in " + cell + " " + std::to_string(number + 1);
        const std::string u = cell.empty() ? "" : ", u = " + toText(points.u[k]);
        throw EvaluationError(c.name() + " fails" + where + " at x = " + toText(points.x[k]) + ", y = " +
                              toText(points.y[k]) + u + explain(e));
    }
    return v;
}

/// What one cell adds to its place among the triplets (J) and loads (F); its points begin at firstPoint.
template <class T, int N>
void Assembly::addCell(const Part<N>& part, std::size_t cell, std::size_t firstPoint, const std::vector<double>& u,
                       const Values<T>& f, const Values<T>& k, T* J, T* F) const
{
    const Shape<N> shape(mesh_, part.nodes[cell]);
    const double weight = shape.measure / N;
    Point slopeOfU{0.0, 0.0};
    for (std::size_t i = 0; i < N; ++i)
        for (std::size_t d = 0; d < 2; ++d)
            slopeOfU[d] += u[static_cast<std::size_t>(part.nodes[cell][i])] * shape.gradient[i][d];
    for (std::size_t q = 0; q < N; ++q) {
        const auto& phi = Rule<N>::phi[q];
        const std::size_t p = firstPoint + q;
        for (std::size_t i = 0; i < N; ++i) {
            const double into = dot(slopeOfU, shape.gradient[i]);
            F[i] -= weight * f.value[p] * phi[i];
            if constexpr (N == 3)
                F[i] += weight * k.value[p] * into;
            for (std::size_t j = 0; j < N; ++j) {
                J[N * i + j] -= weight * f.slope[p] * (phi[j] * phi[i]);
                if constexpr (N == 3)
                    J[N * i + j] += weight * (k.value[p] * dot(shape.gradient[j], shape.gradient[i]) +
                                              k.slope[p] * (phi[j] * into));
            }
        }
    }
}

template <class T, int N>
void Assembly::assemblePart(const Part<N>& part, const std::vector<double>& u, std::vector<T>& triplets,
                            std::vector<T>& loads) const
{
    for (std::size_t first = 0; first < part.nodes.size(); first += kCellsAtOnce) {
        const Range cells{first, std::min(kCellsAtOnce, part.nodes.size() - first)};
        const Points points = pointsOf(part, cells, u);
        const Values<T> f = evaluate<T>(part.coefficients[0], points, part.cell, first, N);
        const Values<T> k = N == 3 ? evaluate<T>(part.coefficients[1], points, part.cell, first, N) : Values<T>();
#pragma omp parallel for num_threads(effort_.threads)
        for (std::size_t c = first; c < first + cells.count; ++c)
            addCell<T, N>(part, c, N * (c - first), u, f, k, &triplets[part.firstTriplet + N * N * c],
                          &loads[part.firstLoad + N * c]);
    }
}

template <class T>
void Assembly::assemble(const std::vector<double>& u, Sparse& J, std::vector<T>& F) const
{
    std::vector<T> triplets(linear_ ? rows_.size() : pattern_.getCount(), T(0.0));
    std::vector<T> loads(loadNodes_.size(), T(0.0));
    assemblePart(body_, u, triplets, loads);
    for (const Part<2>& boundary : boundaries_)
        assemblePart(boundary, u, triplets, loads);

    const std::size_t n = mesh_.points.size();
    if (linear_)
        J.triplet2sparse(rows_, columns_, triplets, n, n);
    else
        pattern_.assemble(triplets, J);
    F.assign(n, T(0.0));
    for (std::size_t k = 0; k < loads.size(); ++k)
        F[static_cast<std::size_t>(loadNodes_[k])] += loads[k];
}

template <class T>
std::vector<T> Assembly::atNodes(const std::string& name, const std::string& text, const std::vector<int>& nodes) const
{
    const Coefficient c = read(name, text);
    if (c.dependsOnU())
        throw EvaluationError(name + " may use x and y, not u: " + text);
    Points points;
    points.resize(nodes.size());
    for (std::size_t k = 0; k < nodes.size(); ++k) {
        const Point& node = mesh_.points[static_cast<std::size_t>(nodes[k])];
        points.x[k] = node[0];
        points.y[k] = node[1];
    }
    return evaluate<T>(c, points, "", 0, 1).value;
}

template <class T>
double Assembly::error(const std::vector<T>& u, const std::string& exact) const
{
    const Coefficient c = read("exact solution", exact);
    const std::vector<double> zero(u.size(), 0.0);
    double sum = 0.0;
    for (std::size_t first = 0; first < body_.nodes.size(); first += kCellsAtOnce) {
        const Range cells{first, std::min(kCellsAtOnce, body_.nodes.size() - first)};
        const std::vector<T> value = evaluate<T>(c, pointsOf(body_, cells, zero), body_.cell, first, 3).value;
        for (std::size_t k = 0; k < value.size(); ++k) {
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
