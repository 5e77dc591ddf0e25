// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <string>
#include <unordered_map>

/// A variable of symbolic expressions: a name and a kind that says how it differentiates.
///
/// Two mentions of one name in one store are one object; nodes compare variables by object. Belongs to one thread at a
/// time, like the store that made it.
class QX_API ExprVar
{
public:
    /// The kinds. The numbers are the interface; d/dv stands for differentiation by a variable v.
    enum Type : int {
        TypeConstant = 0,       ///< d/dv = 0
        TypeFunction = 1,       ///< a given function: treated as a constant, d/dv = 0
        TypeIndependent = 2,    ///< 1 by itself, 0 by any other; what a store makes by default
        TypeDifferentiated = 3, ///< 1 by itself, otherwise the derivative stays: an unknown of a differential equation
        TypeDependent = 4       ///< the derivative always stays
    };

    /// Raises "Internal_error_symbolic_processing" for a type outside 0 to 4.
    explicit ExprVar(const std::string& name, int type = TypeIndependent);

    const std::string& getName() const { return name_; }
    Type getType() const { return type_; }
    /// Raises "Internal_error_symbolic_processing" for a type outside 0 to 4; the kind is then as it was.
    void setType(int type);

private:
    std::string name_;
    Type type_;
};

/// One variable object for each name: the only maker of variables of a family of expressions.
class QX_API ExprVarStore
{
public:
    /// The variable of that name, made as TypeIndependent if it is not there. Cost: one hash look-up.
    const boost::shared_ptr<ExprVar>& getVar(const std::string& name);
    /// Number of variables made so far.
    std::size_t size() const { return vars_.size(); }

private:
    std::unordered_map<std::string, boost::shared_ptr<ExprVar>> vars_;
};
