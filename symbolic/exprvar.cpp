// SPDX-License-Identifier: LicenseRef-qxkernel
#include "exprvar.hpp"

#include "qxexception.hpp"

#include <boost/make_shared.hpp>

namespace {

ExprVar::Type checkedType(int type)
{
    if (type < ExprVar::TypeConstant || type > ExprVar::TypeDependent)
        QX_RAISE("exprvar", "Internal_error_symbolic_processing");
    return static_cast<ExprVar::Type>(type);
}

} // namespace

ExprVar::ExprVar(const std::string& name, int type) : name_(name), type_(checkedType(type)) {}

void ExprVar::setType(int type) { type_ = checkedType(type); }

const boost::shared_ptr<ExprVar>& ExprVarStore::getVar(const std::string& name)
{
    const auto found = vars_.find(name);
    if (found != vars_.end())
        return found->second;
    return vars_.emplace(name, boost::make_shared<ExprVar>(name)).first->second;
}
