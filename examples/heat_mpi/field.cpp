// SPDX-License-Identifier: LicenseRef-qxkernel
#include "field.hpp"

#include "heat/assembly.hpp"
#include "heat/constraints.hpp"

#include "qxexception.hpp"
#include "sparse.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>
#include <stdexcept>
#include <type_traits>

namespace examples {
namespace {

namespace dist = qx::distributed;

#ifdef QX_DISTRIBUTED_COMPLEX
Scalar entryOf(const Sparse& A, unsigned long k)
{
    return A.isReal() ? Scalar(A.getDoubleVal()[k]) : A.getDcmplxVal()[k];
}
#else
Scalar entryOf(const Sparse& A, unsigned long k)
{
    return A.getDoubleVal()[k];
}
#endif

double realPart(const Scalar& z)
{
    return std::real(z);
}

/// The lists of all ranks on the first one, in the order of ranks.
template <class T>
std::vector<T> gathered(const Session& session, const std::vector<T>& mine)
{
    const int bytes = static_cast<int>(mine.size() * sizeof(T));
    std::vector<int> counts(static_cast<std::size_t>(session.size())), at(counts.size() + 1, 0);
    MPI_Gather(&bytes, 1, MPI_INT, counts.data(), 1, MPI_INT, 0, session.comm());
    if (session.rank() == 0)
        for (std::size_t r = 0; r < counts.size(); ++r)
            at[r + 1] = at[r] + counts[r];
    std::vector<T> all(static_cast<std::size_t>(at.back()) / sizeof(T));
    MPI_Gatherv(mine.data(), bytes, MPI_BYTE, all.data(), counts.data(), at.data(), MPI_BYTE, 0, session.comm());
    return all;
}

struct BoundaryEdge
{
    std::array<Index, 2> node;
    std::array<Point, 2> at;

    bool operator<(const BoundaryEdge& other) const { return node < other.node; }
    bool operator==(const BoundaryEdge& other) const { return node == other.node; }
};

/// Together: the boundaries of the whole mesh on the first rank, without triangles. `number` tells its nodes' numbers, which
/// ascend: conditions on it are those of the serial program, in the same order.
NamedMesh outline(const Session& session, const MeshPart& part, std::vector<Index>& number)
{
    std::map<std::string, std::vector<BoundaryEdge>> edges;
    for (const auto& [name, list] : part.boundaries) {
        std::vector<BoundaryEdge> mine;
        for (const auto& [a, b] : list) {
            const auto i = static_cast<std::size_t>(a);
            const auto j = static_cast<std::size_t>(b);
            mine.push_back({{part.nodeNumber[i], part.nodeNumber[j]}, {part.points[i], part.points[j]}});
        }
        std::vector<BoundaryEdge>& all = edges[name] = gathered(session, mine);
        std::sort(all.begin(), all.end()); // a boundary inside the body has two ranks beside it
        all.erase(std::unique(all.begin(), all.end()), all.end());
    }
    std::map<Index, Point> nodes;
    for (const auto& [name, list] : edges)
        for (const BoundaryEdge& e : list)
            for (std::size_t k = 0; k < 2; ++k)
                nodes.emplace(e.node[k], e.at[k]);
    NamedMesh mesh;
    std::map<Index, int> local;
    for (const auto& [n, point] : nodes) {
        local[n] = static_cast<int>(number.size());
        number.push_back(n);
        mesh.points.push_back(point);
    }
    for (const auto& [name, list] : edges) {
        std::vector<NamedMesh::Edge>& to = mesh.boundaries[name];
        for (const BoundaryEdge& e : list)
            to.push_back({local[e.node[0]], local[e.node[1]]});
    }
    return mesh;
}

/// The conditions of the model, handed in by the first rank, and what they stand for.
struct Given
{
    NamedMesh mesh;
    std::vector<Index> number;
    Constraints<Scalar> constraints;
    dist::Conditions conditions;
};

Given conditionsOf(const Session& session, const MeshPart& part, const HeatModel& model, const Effort& effort)
{
    Given g;
    g.mesh = outline(session, part, g.number);
    session.together([&] {
        if (session.rank() != 0)
            return;
        HeatModel onBoundaries = model;
        onBoundaries.flux.clear();
        const Assembly evaluator(g.mesh, onBoundaries, effort);
        g.constraints = constraintsOf<Scalar>(g.mesh, model, evaluator);
        const Sparse& N = g.constraints.N;
        for (unsigned long c = 0; c < N.getN(); ++c) {
            std::vector<std::pair<Index, Scalar>> entries;
            for (unsigned long k = N.getColPtr()[c]; k < N.getColPtr()[c + 1]; ++k)
                entries.emplace_back(g.number[N.getRow()[k]], entryOf(N, k)); // real: its own conjugate
            g.conditions.add(entries, g.constraints.value[c]);
        }
    });
    return g;
}

std::string argument(const qxbase::Exception& e, const std::string& key)
{
    for (const auto& [name, value] : e.getArgs(0))
        if (name == key)
            return value;
    return {};
}

/// The failure with conditions named by boundary and node.
void explainContradiction(const Session& session, const Given& g, const qxbase::Exception& e)
{
    session.together([&] {
        if (session.rank() != 0)
            return;
        const auto words = [&](std::size_t k) {
            return "condition " + std::to_string(k + 1) + ", " + g.constraints.describe(k, g.mesh);
        };
        std::string message = words(std::stoul(argument(e, "Condition"))) + ", contradicts";
        std::istringstream others(argument(e, "With"));
        int shown = 0;
        for (std::string other; shown < 4 && others >> other; ++shown)
            message += "\n  " + words(std::stoul(other.substr(other.find(':') + 1)));
        throw std::invalid_argument(message);
    });
}

/// Residual and matrix on a rank: the serial program's assembly on its part.
class Local
{
public:
    Local(const Session& session, const MeshPart& part, const HeatModel& model, const Effort& effort,
          const std::vector<std::size_t>& order)
        : session_(session), part_(part)
    {
        session.together([&] { assembly_ = std::make_unique<Assembly>(part, model, effort); });
        for (const std::size_t k : order)
            numbers_.push_back(part.nodeNumber[k]);
    }

    bool isLinear() const { return assembly_->isLinear(); }

    /// Together: F at u; the matrix where it is not constant, or not there yet.
    void evaluate(const std::vector<Scalar>& u)
    {
        session_.together([&] {
            if (isLinear()) {
                if (J_.getM() == 0)
                    assembly_->assemble(std::vector<double>(u.size(), 0.0), J_, atZero_);
                F_ = atZero_;
                for (unsigned long j = 0; j < J_.getN(); ++j)
                    for (unsigned long k = J_.getColPtr()[j]; k < J_.getColPtr()[j + 1]; ++k)
                        F_[J_.getRow()[k]] += entryOf(J_, k) * u[j];
            } else {
                std::vector<double> real(u.size());
                std::transform(u.begin(), u.end(), real.begin(), realPart);
                assembly_->assemble(real, J_, F_);
            }
        });
    }

    /// Together: -F as the right side. Returns its norm.
    double putResidual(dist::Assembly& system)
    {
        system.restart();
        addResidual(system);
        system.finishLoads();
        return system.rightSideNorm();
    }

    /// Together: the matrix and -F.
    void putSystem(dist::Assembly& system)
    {
        system.restart();
        std::vector<Scalar> values(J_.getNnz());
        for (unsigned long k = 0; k < J_.getNnz(); ++k)
            values[k] = entryOf(J_, k);
        if (hasPattern_) {
            system.add(values);
        } else {
            std::vector<Index> rows, columns;
            rows.reserve(values.size());
            columns.reserve(values.size());
            for (unsigned long j = 0; j < J_.getN(); ++j)
                for (unsigned long k = J_.getColPtr()[j]; k < J_.getColPtr()[j + 1]; ++k) {
                    rows.push_back(part_.nodeNumber[J_.getRow()[k]]);
                    columns.push_back(part_.nodeNumber[j]);
                }
            system.add(std::move(rows), std::move(columns), values);
            hasPattern_ = true;
        }
        addResidual(system);
        system.finish();
    }

private:
    void addResidual(dist::Assembly& system) const
    {
        std::vector<Scalar> load(F_);
        for (Scalar& f : load)
            f = -f;
        system.addLoad(part_.nodeNumber, load);
    }

    const Session& session_;
    const MeshPart& part_;
    std::unique_ptr<Assembly> assembly_;
    std::vector<Index> numbers_;
    Sparse J_;
    std::vector<Scalar> F_, atZero_;
    bool hasPattern_ = false;
};

} // namespace

std::vector<std::size_t> ownedFirst(const Session& session, const MeshPart& part, std::size_t& owned)
{
    std::vector<std::size_t> order(part.points.size());
    for (std::size_t k = 0; k < order.size(); ++k)
        order[k] = k;
    const auto behind = std::stable_partition(order.begin(), order.end(),
                                              [&](std::size_t k) { return part.owner[k] == session.rank(); });
    owned = static_cast<std::size_t>(behind - order.begin());
    return order;
}

Field solve(const Session& session, const MeshPart& part, const HeatModel& model, const FieldOptions& options,
            qxutil::RunInfo& runInfo, Phases& phases)
{
    phases.start("read formulas");
    std::size_t owned = 0;
    const std::vector<std::size_t> order = ownedFirst(session, part, owned);
    Local local(session, part, model, options.newton.effort, order);
    session.together([&] {
        if (!std::is_same_v<Scalar, double> && !local.isLinear())
            throw std::invalid_argument("complex problems must be linear in u");
    });

    phases.start("constraints");
    const Given given = conditionsOf(session, part, model, options.newton.effort);
    std::vector<Index> numbers;
    for (const std::size_t k : order)
        numbers.push_back(part.nodeNumber[k]);
    std::unique_ptr<dist::Unknowns> unknowns;
    try {
        unknowns = std::make_unique<dist::Unknowns>(session, numbers, owned, given.conditions,
                                                    dist::UnknownsOptions{.run = &runInfo});
    } catch (const qxbase::CancelException&) {
        throw;
    } catch (const qxbase::Exception& e) {
        if (e.getId() == "Contradicting_conditions")
            explainContradiction(session, given, e);
        throw;
    }
    const auto toNodes = [&](std::span<const Scalar> values) { // from the order of the unknowns
        std::vector<Scalar> at(values.size());
        for (std::size_t k = 0; k < order.size(); ++k)
            at[order[k]] = values[k];
        return at;
    };

    Field field;
    field.u = toNodes(unknowns->particular());
    field.unknowns = unknowns->freeCount();
    field.conditions = unknowns->count() - unknowns->freeCount();

    phases.start("elements");
    dist::Assembly system(*unknowns, {.lifted = false});
    dist::Solver solver(*unknowns, options.linear);
    local.evaluate(field.u);
    const double first = local.putResidual(system);
    field.residual = first > 0.0 ? 1.0 : 0.0;
    if (!options.start.empty()) { // what is left is measured by where others begin
        std::vector<Scalar> start;
        for (const std::size_t k : order)
            start.push_back(options.start[k]);
        field.u = toNodes(unknowns->admissible(start));
        local.evaluate(field.u);
        const double now = local.putResidual(system);
        field.residual = first > 0.0 ? now / first : 0.0;
    }
    const int most = local.isLinear() ? 2 : options.newton.maxSteps;
    while (field.residual > options.newton.tolerance) {
        session.agreeOnCancel(runInfo);
        session.together([&] {
            if (field.steps == most)
                throw std::invalid_argument("Newton's method does not converge: relative residual " +
                                            std::to_string(field.residual) + " after " + std::to_string(field.steps) +
                                            " steps");
        });
        phases.start("add up");
        local.putSystem(system);
        const auto mine = static_cast<double>(system.entries());
        MPI_Allreduce(&mine, &field.entries, 1, MPI_DOUBLE, MPI_SUM, session.comm());
        phases.start("solve");
        const dist::Solution step = solver.solve(system);
        const std::vector<Scalar> direction = toNodes(step.values);
        field.iterations += step.iterations;

        phases.start("elements");
        double length = 1.0;
        double reached = INFINITY;
        for (int halvings = 0; halvings < 12; ++halvings, length *= 0.5) {
            std::vector<Scalar> trial = field.u;
            for (std::size_t k = 0; k < trial.size(); ++k)
                trial[k] += length * direction[k];
            local.evaluate(trial);
            reached = local.putResidual(system);
            if (reached < first * field.residual || local.isLinear()) {
                field.u = std::move(trial);
                break;
            }
        }
        session.together([&] {
            if (!std::isfinite(reached) || (reached >= first * field.residual && !local.isLinear()))
                throw std::invalid_argument("Newton's method does not converge: no step reduces the residual");
        });
        field.residual = reached / first;
        ++field.steps;
        if (local.isLinear() && field.residual <= 1e3 * options.linear.tolerance)
            break; // as far as the linear method was asked to go
    }
    phases.start("");
    return field;
}

double error(const Session& session, const MeshPart& part, const HeatModel& model, const Effort& effort,
             const std::vector<Scalar>& u, const std::string& exact)
{
    double mine = 0.0;
    session.together([&] { mine = Assembly(part, model, effort).error(u, exact); });
    const double square = mine * mine;
    double all = 0.0;
    MPI_Allreduce(&square, &all, 1, MPI_DOUBLE, MPI_SUM, session.comm());
    return std::sqrt(all);
}

} // namespace examples
