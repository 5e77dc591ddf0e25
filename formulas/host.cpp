// SPDX-License-Identifier: LicenseRef-qxkernel
#include "host_detail.hpp"

#include "base/nearestname_detail.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>

namespace qx {

namespace {

/// Bytes of arrays of unusual sizes that an allocator keeps.
constexpr unsigned long extraBytes = 1ul << 24;

void fillReal(const ValRepPtr& rep, const PointColumn& column, Range range)
{
    if (column.isArray) {
        DArrayPtr array;
        rep->reset(false, false, range.count);
        rep->addDArray(array);
        std::copy_n(column.real + range.first, range.count, array->data());
    } else {
        boost::shared_ptr<double> number;
        rep->reset(true, false, 0);
        rep->addDScalar(number);
        *number = column.number.real();
    }
}

void fillComplex(const ValRepPtr& rep, const PointColumn& column, Range range)
{
    if (column.isArray) {
        CArrayPtr array;
        rep->reset(false, true, range.count);
        rep->addCArray(array);
        std::copy_n(column.complex + range.first, range.count, array->data());
    } else {
        boost::shared_ptr<std::complex<double>> number;
        rep->reset(true, true, 0);
        rep->addCScalar(number);
        *number = column.number;
    }
}

template <class Map>
std::vector<std::string> sortedKeys(const Map& map, std::vector<std::string> keys = {})
{
    for (const auto& entry : map)
        keys.push_back(entry.first);
    std::sort(keys.begin(), keys.end());
    return keys;
}

} // namespace

std::vector<std::string> Names::valueNames() const { return sortedKeys(definitions, variables); }
std::vector<std::string> Names::functionNames() const { return sortedKeys(*functions); }

Host::Host(const Names& names, const NodeMakerPtr& maker)
    : VarEvaluator(maker, boost::make_shared<ShadowHandler>()), names_(names)
{
}

void Host::eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep, const ValRepCachePtr&)
{
    const auto found = names_.indexOfVariable.find(name);
    if (found == names_.indexOfVariable.end())
        QX_RAISE("formulas", "Unknown_variable_name", qxbase::unknownName(name, names_.valueNames()));
    const PointColumn* const column = columns_ != nullptr ? (*columns_)[found->second] : nullptr;
    if (column == nullptr)
        QX_RAISE("formulas", "Variable_without_values", "Name", name);
    if (column->isComplex)
        fillComplex(rep, *column, range_);
    else
        fillReal(rep, *column, range_);
    rep->setEvaluated();
}

EvalNodePtr Host::expand(const VarEvaluatorPtr& evaluator, const std::string& name)
{
    const auto found = names_.definitions.find(name);
    return found == names_.definitions.end() ? EvalNodePtr() : found->second->getRoot(evaluator);
}

FunObjPtr Host::getFun(const std::string& name, int nArgs)
{
    const auto found = names_.functions->find(name);
    if (found == names_.functions->end())
        QX_RAISE("formulas", "Unknown_function_name", qxbase::unknownName(name, names_.functionNames()));
    const FunObjPtr& f = found->second;
    if (f->nArgs() != nArgs)
        QX_RAISE("formulas", "Wrong_number_of_function_arguments",
                 qxbase::ExceptionArgs{
                     {"Name", name}, {"Expected", std::to_string(f->nArgs())}, {"Found", std::to_string(nArgs)}});
    return f;
}

FunObjPtr Host::getStringFun(const std::string& name, int, const std::vector<std::string>&, const std::vector<int>&)
{
    QX_RAISE("formulas", "Unknown_function_name", "Name", name);
}

Worker::Worker(const Names& names, const NodeMakerPtr& maker, std::size_t block)
    : host(boost::make_shared<Host>(names, maker)), asEvaluator(host),
      cache(boost::make_shared<ValRepCache>(boost::make_shared<ArrayAllocImpl>(block, extraBytes))), block_(block),
      thread_(std::this_thread::get_id())
{
}

void Worker::setPoints(const Columns& columns, Range range)
{
    cache->reset();
    host->setPoints(columns, range);
}

void Worker::rest()
{
    values.clear();
    cache->reset();
}

} // namespace qx
