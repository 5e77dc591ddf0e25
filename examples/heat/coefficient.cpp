#include "coefficient.hpp"

#include "formulas/explain.hpp"
#include "support/options.hpp"

#include "depinfo.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>

namespace examples {

BoundaryFormula BoundaryFormula::parse(const std::string& typed)
{
    const std::size_t colon = typed.find(':');
    if (colon == std::string::npos)
        throw UsageError("'" + typed + "' has no colon: BOUNDARY: FORMULA");
    return {split(typed.substr(0, colon), ':').front(), typed.substr(colon + 1)};
}

void Points::resize(std::size_t n)
{
    x.resize(n);
    y.resize(n);
    u.resize(n);
}

Coefficients::Coefficients(const std::vector<Formula>& definitions) : nodeMaker_(boost::make_shared<NodeMaker>())
{
    for (const Formula& d : definitions) {
        if (std::find(names_.begin(), names_.end(), d.name) != names_.end())
            throw EvaluationError("definition '" + d.name + "' hides the variable of that name");
        if (!definitions_.emplace(d.name, boost::make_shared<EvalTree>(d.text, false)).second)
            throw EvaluationError("'" + d.name + "' is defined twice");
    }
    for (const auto& [name, tree] : definitions_)
        read("definition " + name, tree->getExpr());
}

Coefficient Coefficients::read(const std::string& name, const std::string& text) const
{
    const BlockEvaluator block = makeEvaluator(1);
    Coefficient c{name, boost::make_shared<EvalTree>(text, false), EvalTreePtr()};
    try {
        EvalTreePtr slope = c.value->diff("u", block.evaluator());
        if (!slope->getRoot(block.evaluator())->isZero()) {
            c.slope = slope;
            c.slopeVaries = slope->depends({"u"}, block.evaluator()).isSolDepAll();
        }
    } catch (const qxbase::Exception& e) {
        throw EvaluationError(name + " cannot be read: " + text + explain(e));
    }
    return c;
}

BlockEvaluator Coefficients::makeEvaluator(std::size_t blockSize) const
{
    return BlockEvaluator(names_, definitions_, nodeMaker_, blockSize);
}

template <class T>
void Coefficients::evaluate(BlockEvaluator& evaluator, const Coefficient& c, const Points& points,
                            std::vector<T>& value, std::vector<T>& slope)
{
    value.resize(points.size());
    slope.assign(points.size(), T(0.0));
    evaluator.values(*c.value, value.data());
    if (c.slope)
        evaluator.values(*c.slope, slope.data());
}

template <class T>
std::string Coefficients::failure(const Coefficient& c, const Points& points) const
{
    return storyOf([&] {
        BlockEvaluator evaluator = makeEvaluator(points.size());
        evaluator.setPoints({points.x.data(), points.y.data(), points.u.data()}, points.size());
        std::vector<T> value;
        std::vector<T> slope;
        evaluate(evaluator, c, points, value, slope);
    });
}

template void Coefficients::evaluate(BlockEvaluator&, const Coefficient&, const Points&, std::vector<double>&,
                                     std::vector<double>&);
template void Coefficients::evaluate(BlockEvaluator&, const Coefficient&, const Points&,
                                     std::vector<std::complex<double>>&, std::vector<std::complex<double>>&);
template std::string Coefficients::failure<double>(const Coefficient&, const Points&) const;
template std::string Coefficients::failure<std::complex<double>>(const Coefficient&, const Points&) const;

} // namespace examples
