// SPDX-License-Identifier: LicenseRef-qxkernel
#include "constraints.hpp"

#include "support/csv.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>

namespace examples {
namespace {

// Pairs of nodes that a translation carries from one boundary to the other.
std::vector<std::array<int, 2>> partners(const NamedMesh& mesh, const std::string& from, const std::string& to)
{
    std::vector<int> a = mesh.boundaryNodes(from);
    std::vector<int> b = mesh.boundaryNodes(to);
    const auto at = [&](int node) { return mesh.points[static_cast<std::size_t>(node)]; };
    const auto fail = [&] {
        throw std::invalid_argument("boundaries '" + from + "' and '" + to + "' are not periodic: no translation carries " +
                                    "the nodes of one to the other");
    };
    if (a.size() != b.size())
        fail();
    Point shift{0.0, 0.0};
    for (std::size_t k = 0; k < a.size(); ++k)
        for (std::size_t d = 0; d < 2; ++d)
            shift[d] += (at(b[k])[d] - at(a[k])[d]) / static_cast<double>(a.size());

    const auto [left, right] = std::minmax_element(a.begin(), a.end(), [&](int i, int j) { return at(i)[0] < at(j)[0]; });
    const auto [low, high] = std::minmax_element(a.begin(), a.end(), [&](int i, int j) { return at(i)[1] < at(j)[1]; });
    const double width = a.empty() ? 0.0 : at(*right)[0] - at(*left)[0];
    const double height = a.empty() ? 0.0 : at(*high)[1] - at(*low)[1];
    const std::size_t along = width > height ? 0 : 1;
    const auto before = [&](int i, int j) { return at(i)[along] < at(j)[along]; };
    std::sort(a.begin(), a.end(), before);
    std::sort(b.begin(), b.end(), before);

    std::vector<std::array<int, 2>> pairs;
    for (std::size_t k = 0; k < a.size(); ++k) {
        const double dx = at(b[k])[0] - at(a[k])[0] - shift[0];
        const double dy = at(b[k])[1] - at(a[k])[1] - shift[1];
        if (std::hypot(dx, dy) > 1e-6 * (width + height))
            fail();
        pairs.push_back({a[k], b[k]});
    }
    return pairs;
}

// The conditions as triplets, one column each.
template <class T>
class Builder
{
public:
    Builder(const NamedMesh& mesh, const Assembly& assembly) : mesh_(mesh), assembly_(assembly) {}

    void fix(const BoundaryFormula& f)
    {
        begin("value fixed on " + f.boundary);
        const std::vector<int> nodes = mesh_.boundaryNodes(f.boundary);
        const std::vector<T> values = assembly_.atNodes<T>("value fixed on " + f.boundary, f.text, nodes);
        for (std::size_t k = 0; k < nodes.size(); ++k)
            if (fixed_.insert(nodes[k]).second)
                add({{nodes[k], 1.0}}, values[k]);
    }

    void join(const std::string& from, const std::string& to)
    {
        begin("periodic " + from + "," + to);
        for (const auto& [a, b] : partners(mesh_, from, to))
            if (a != b)
                add({{a, 1.0}, {b, -1.0}}, T(0.0));
    }

    void mean(const BoundaryFormula& m)
    {
        begin("mean over " + m.boundary);
        std::map<int, double> weight; // int phi_i / length
        double length = 0.0;
        for (const auto& [a, b] : mesh_.boundary(m.boundary)) {
            const Point& p = mesh_.points[static_cast<std::size_t>(a)];
            const Point& q = mesh_.points[static_cast<std::size_t>(b)];
            const double half = 0.5 * std::hypot(q[0] - p[0], q[1] - p[1]);
            weight[a] += half;
            weight[b] += half;
            length += 2.0 * half;
        }
        std::vector<int> nodes;
        std::vector<std::pair<int, double>> entries;
        for (const auto& [node, w] : weight) {
            nodes.push_back(node);
            entries.emplace_back(node, w / length);
        }
        const std::vector<T> values = assembly_.atNodes<T>("mean over " + m.boundary, m.text, nodes);
        T wanted(0.0);
        for (std::size_t k = 0; k < nodes.size(); ++k)
            wanted += entries[k].second * values[k];
        add(entries, wanted);
    }

    Constraints<T> result()
    {
        Constraints<T> c;
        c.N.triplet2sparse(rows_, columns_, entries_, mesh_.points.size(), values_.size());
        c.value = std::move(values_);
        c.origins = std::move(origins_);
        return c;
    }

private:
    void begin(const std::string& what) { origins_.emplace_back(values_.size(), what); }

    void add(const std::vector<std::pair<int, double>>& column, T value)
    {
        for (const auto& [node, entry] : column) {
            rows_.push_back(static_cast<unsigned long>(node));
            columns_.push_back(values_.size());
            entries_.push_back(entry);
        }
        values_.push_back(value);
    }

    const NamedMesh& mesh_;
    const Assembly& assembly_;
    std::set<int> fixed_;
    std::vector<unsigned long> rows_, columns_;
    std::vector<double> entries_;
    std::vector<T> values_;
    std::vector<std::pair<std::size_t, std::string>> origins_;
};

} // namespace

template <class T>
std::string Constraints<T>::describe(std::size_t condition, const NamedMesh& mesh) const
{
    const auto behind = std::find_if(origins.begin(), origins.end(), [&](const auto& o) { return o.first > condition; });
    std::string words = std::prev(behind)->second;
    const unsigned long first = N.getColPtr()[condition];
    if (N.getColPtr()[condition + 1] - first <= 2) { // a mean is not at any one place
        const unsigned long node = N.getRow()[first];
        const Point& p = mesh.points[node];
        words += " at node " + std::to_string(node + 1) + " (" + toText(p[0]) + ", " + toText(p[1]) + ")";
    }
    return words;
}

template <class T>
Constraints<T> constraintsOf(const NamedMesh& mesh, const HeatModel& model, const Assembly& assembly)
{
    Builder<T> builder(mesh, assembly);
    for (const BoundaryFormula& f : model.fixed)
        builder.fix(f);
    for (const auto& [from, to] : model.periodic)
        builder.join(from, to);
    for (const BoundaryFormula& m : model.mean)
        builder.mean(m);
    return builder.result();
}

template struct Constraints<double>;
template struct Constraints<std::complex<double>>;
template Constraints<double> constraintsOf(const NamedMesh&, const HeatModel&, const Assembly&);
template Constraints<std::complex<double>> constraintsOf(const NamedMesh&, const HeatModel&, const Assembly&);

} // namespace examples
