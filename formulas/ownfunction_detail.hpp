// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas.hpp"
#include "formulas/host_detail.hpp"

#include <boost/weak_ptr.hpp>

namespace qx {

/// A user's function as the engine sees it.
///
/// The table, which holds this object, is needed to read derivatives; nodes that refer to the object live in the program
/// that owns the table.
class OwnFunction : public MultiFunObj
{
public:
    OwnFunction(const std::string& name, std::shared_ptr<const Function> function, const boost::shared_ptr<FunTable>& table);
    ~OwnFunction() override;

    using FunObj::operator();
    unsigned int operator()(const std::vector<D>& args, int which) const override;
    unsigned int operator()(const std::vector<C>& args, int which) const override;
    unsigned int operator()(const std::vector<DA>& args, Size size, int which) const override;
    unsigned int operator()(const std::vector<CA>& args, Size size, int which) const override;

    /// The user's derivative with the arguments in the places of the parameters.
    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    bool isBuiltin() const override { return false; }

private:
    template <class T, class Body>
    unsigned call(const Body& body, const std::vector<T>& args, std::size_t count, int which) const;

    std::shared_ptr<const Function> function_;
    boost::weak_ptr<FunTable> table_;
};

} // namespace qx
