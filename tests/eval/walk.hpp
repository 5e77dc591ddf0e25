// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// The value of a graph by the definition, without programs, and all that can be seen of a value.

#include "host.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <sstream>

namespace qxtest {

/// Everything that can be seen of a value. Any NaN is printed alike.
inline std::string stateOf(const ValRepPtr& v)
{
    std::ostringstream out;
    const auto number = [&](double x) {
        if (std::isnan(x))
            out << "nan ";
        else
            out << std::hex << std::bit_cast<std::uint64_t>(x) << ' ';
    };
    out << (v->isScalar() ? "scalar " : "array ") << (v->isStoredAsComplex() ? "stored complex " : "stored real ")
        << (v->isComplex() ? "complex " : "real ") << (v->isEvaluated() ? "" : "not evaluated ") << v->getSize() << " x "
        << v->getNBlocks() << (v->getAllocator() && !v->isScalar() ? " leased " : " ");
    if (v->isNaN()) {
        out << "NaN: ";
        try {
            v->throwError();
        } catch (const qxbase::Exception& e) {
            out << e.toString();
        }
        return out.str();
    }
    const auto points = static_cast<int>(std::max(v->getSize(), 1ul)), blocks = static_cast<int>(v->getNBlocks());
    const CValRepReaderPtr read = v->getComplexReader();
    for (int i = 0; i < points; ++i)
        for (int j = 0; j < blocks; ++j) {
            number((*read)(i, j).real());
            number((*read)(i, j).imag());
        }
    return out.str();
}

/// The value of a node by the definition: the arguments in order, then the function.
inline ValRepPtr walk(const EvalNodePtr& node, const HostPtr& host, const ValRepCachePtr& cache, unsigned flags)
{
    if (const auto* const proxy = dynamic_cast<const ProxyNode*>(node.get()))
        return walk(proxy->getTarget(), host, cache, flags);
    const auto* const op = dynamic_cast<const OpNode*>(node.get());
    if (op == nullptr)
        return node->eval(host, cache, flags);
    std::vector<ValRepPtr> values;
    for (const EvalNodePtr& arg : op->getArgs())
        values.push_back(walk(arg, host, cache, flags));
    return op->apply(values.data(), flags);
}

} // namespace qxtest
