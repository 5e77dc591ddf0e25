// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalfun.hpp"

#include "errinfo.hpp"
#include "evalnodes.hpp"
#include "funfactory.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "varevaluator.hpp"

#include <boost/make_shared.hpp>
#include <ostream>

namespace {

void printCall(const std::string& name, const EvalNodes& args, std::ostream& stream)
{
    stream << name << '(';
    const char* separator = "";
    for (const EvalNodePtr& arg : args) {
        stream << separator;
        arg->ostreamOperator(stream);
        separator = ",";
    }
    stream << ')';
}

} // namespace

FunObj::~FunObj() = default;

boost::shared_ptr<ErrInfo> FunObj::makeError(unsigned int bits) const
{
    if ((bits & kFunErrorMask) == 0)
        return {};
    auto errors = boost::make_shared<ErrInfo>();
    errors->newLine("evalfun", __LINE__);
    (*errors)["message"] = "funeval";
    (*errors)["fun"] = getName();
    return errors;
}

bool FunObj::unaryInto(double*, const double*, unsigned, std::size_t, unsigned&) const { return false; }
bool FunObj::binaryInto(double*, const double*, const double*, unsigned, std::size_t, unsigned&) const { return false; }

// The forms that do not fit a function's arity, and the rules that are the same whatever the arity.
#define QX_NO_UNARY(Class)                                                     \
    unsigned int Class::operator()(const D&) const { return 0; }               \
    unsigned int Class::operator()(const C&) const { return 0; }               \
    unsigned int Class::operator()(const DA&, Size) const { return 0; }        \
    unsigned int Class::operator()(const CA&, Size) const { return 0; }
#define QX_NO_PAIR(Class, X, Y) \
    unsigned int Class::operator()(const X&, const Y&, int) const { return 0; }
#define QX_NO_ARRAY_PAIR(Class, X, Y) \
    unsigned int Class::operator()(const X&, const Y&, Size, int) const { return 0; }
#define QX_NO_BINARY(Class)                                                                                            \
    QX_NO_PAIR(Class, D, D) QX_NO_PAIR(Class, C, D) QX_NO_PAIR(Class, D, C) QX_NO_PAIR(Class, C, C)                    \
    QX_NO_ARRAY_PAIR(Class, DA, D) QX_NO_ARRAY_PAIR(Class, CA, D) QX_NO_ARRAY_PAIR(Class, DA, C)                       \
    QX_NO_ARRAY_PAIR(Class, CA, C) QX_NO_ARRAY_PAIR(Class, D, DA) QX_NO_ARRAY_PAIR(Class, C, DA)                       \
    QX_NO_ARRAY_PAIR(Class, D, CA) QX_NO_ARRAY_PAIR(Class, C, CA) QX_NO_ARRAY_PAIR(Class, DA, DA)                      \
    QX_NO_ARRAY_PAIR(Class, CA, DA) QX_NO_ARRAY_PAIR(Class, DA, CA) QX_NO_ARRAY_PAIR(Class, CA, CA)
#define QX_NO_MULTI(Class)                                                                   \
    unsigned int Class::operator()(const std::vector<D>&, int) const { return 0; }           \
    unsigned int Class::operator()(const std::vector<C>&, int) const { return 0; }           \
    unsigned int Class::operator()(const std::vector<DA>&, Size, int) const { return 0; }    \
    unsigned int Class::operator()(const std::vector<CA>&, Size, int) const { return 0; }
#define QX_COMMON_RULES(Class)                                                                                         \
    EvalNodePtr Class::diffRule(const EvalNodes&, int, const NodeMakerPtr& maker) const { return maker->makeZeroNode(); } \
    EvalNodePtr Class::simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const         \
    {                                                                                                                  \
        return maker->makeOpNode(self, args);                                                                          \
    }                                                                                                                  \
    void Class::ostreamOperator(const EvalNodes& args, std::ostream& stream) const                                     \
    {                                                                                                                  \
        printCall(getName(), args, stream);                                                                            \
    }

QX_NO_BINARY(UnFunObj)
QX_NO_MULTI(UnFunObj)
QX_COMMON_RULES(UnFunObj)

QX_NO_UNARY(BinFunObj)
QX_NO_MULTI(BinFunObj)
QX_COMMON_RULES(BinFunObj)

MultiFunObj::MultiFunObj(const std::string& name, int nArgs, bool alwaysReal, bool realIfReal)
    : name_(name), nArgs_(nArgs), alwaysReal_(alwaysReal), realIfReal_(realIfReal)
{
}

QX_NO_UNARY(MultiFunObj)
QX_NO_BINARY(MultiFunObj)
QX_COMMON_RULES(MultiFunObj)

void VarEvaluator::getStdFuns(std::vector<FunObjPtr>& funs) const { makeStandardFunctions(funs); }
