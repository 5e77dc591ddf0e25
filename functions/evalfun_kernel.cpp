// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalfun_kernel.hpp"

#include "errinfo.hpp"
#include "functions/records_detail.hpp"

#include <ostream>

using namespace qxfun_detail;
using namespace qxkernels;

namespace {

double* data(const FunObj::D& x) { return x.get(); }
double* data(const FunObj::C& x) { return reinterpret_cast<double*>(x.get()); }
double* data(const FunObj::DA& x) { return x->data(); }
double* data(const FunObj::CA& x) { return reinterpret_cast<double*>(x->data()); }

template <class X>
constexpr bool isScalar = std::is_same_v<X, FunObj::D> || std::is_same_v<X, FunObj::C>;
template <class X>
constexpr bool isComplex = std::is_same_v<X, FunObj::C> || std::is_same_v<X, FunObj::CA>;

boost::shared_ptr<ErrInfo> recordOf(const ErrorKeys& keys, unsigned bits, const FunObj& f)
{
    const char* key = (bits & kFunDomain) != 0 && keys.domain != nullptr ? keys.domain
                      : (bits & kFunKind) != 0                           ? keys.kind
                                                                         : nullptr;
    if (key == nullptr)
        return f.FunObj::makeError(bits);
    auto errors = boost::make_shared<ErrInfo>();
    errors->newLine(keys.file, __LINE__);
    (*errors)["message"] = key;
    (*errors)["fun"] = f.getName();
    return errors;
}

Term termOf(const EvalNodePtr& node, const NodeMakerPtr& maker) { return {node, *maker}; }

} // namespace

unsigned int LoopUnFun::operator()(const D& x) const { return applyReal(data(x), data(x), 1); }
unsigned int LoopUnFun::operator()(const C& x) const { return applyComplex(data(x), data(x), 1); }
unsigned int LoopUnFun::operator()(const DA& x, Size size) const { return applyReal(data(x), data(x), size); }
unsigned int LoopUnFun::operator()(const CA& x, Size size) const { return applyComplex(data(x), data(x), size); }

bool LoopUnFun::unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const
{
    if (shape == kOutComplex)
        return false;
    bits = shape == kXComplex ? applyComplex(out, x, n) : applyReal(out, x, n);
    return true;
}

bool LoopBinFun::binaryInto(double* out, const double* x, const double* y, unsigned shape, std::size_t n,
                            unsigned& bits) const
{
    bits = apply(out, x, y, shape, n);
    return true;
}

template <class X, class Y>
unsigned int LoopBinFun::run(const X& x, const Y& y, Size size, int which) const
{
    constexpr unsigned operands = (isScalar<X> ? kXScalar : 0u) | (isScalar<Y> ? kYScalar : 0u) |
                                  (isComplex<X> ? kXComplex : 0u) | (isComplex<Y> ? kYComplex : 0u);
    const bool intoY = isScalar<X> == isScalar<Y> ? which == 2 : isScalar<X>;
    return apply(intoY ? data(y) : data(x), data(x), data(y), operands | (intoY ? kLikeY : 0u), size);
}

#define QX_SCALAR_FORM(X, Y) \
    unsigned int LoopBinFun::operator()(const X& x, const Y& y, int which) const { return run(x, y, 1, which); }
#define QX_ARRAY_FORM(X, Y)                                                                                              \
    unsigned int LoopBinFun::operator()(const X& x, const Y& y, Size size, int which) const                            \
    {                                                                                                                    \
        return run(x, y, size, which);                                                                                   \
    }
QX_SCALAR_FORM(D, D) QX_SCALAR_FORM(C, D) QX_SCALAR_FORM(D, C) QX_SCALAR_FORM(C, C)
QX_ARRAY_FORM(DA, D) QX_ARRAY_FORM(CA, D) QX_ARRAY_FORM(DA, C) QX_ARRAY_FORM(CA, C)
QX_ARRAY_FORM(D, DA) QX_ARRAY_FORM(C, DA) QX_ARRAY_FORM(D, CA) QX_ARRAY_FORM(C, CA)
QX_ARRAY_FORM(DA, DA) QX_ARRAY_FORM(CA, DA) QX_ARRAY_FORM(DA, CA) QX_ARRAY_FORM(CA, CA)
#undef QX_SCALAR_FORM
#undef QX_ARRAY_FORM

KernelUnFun::KernelUnFun(const UnaryRecord& record)
    : record_(record), loops_(kernels().*record.kernel)
{
}

unsigned int KernelUnFun::applyReal(double* out, const double* x, std::size_t n) const { return loops_.real(out, x, n); }
unsigned int KernelUnFun::applyComplex(double* out, const double* z, std::size_t n) const { return loops_.complex(out, z, n); }

bool KernelUnFun::unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const
{
    bits = (shape & kXComplex ? loops_.complex : shape & kOutComplex ? loops_.promoted : loops_.real)(out, x, n);
    return true;
}

EvalNodePtr KernelUnFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    if (argIndex != 1 || record_.derivative == nullptr)
        return maker->makeZeroNode();
    return record_.derivative(termOf(args[0], maker)).node();
}

EvalNodePtr KernelUnFun::simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const
{
    return record_.simplify != nullptr ? record_.simplify(self, args, *maker) : UnFunObj::simpRule(self, args, maker);
}

boost::shared_ptr<ErrInfo> KernelUnFun::makeError(unsigned int bits) const { return recordOf(record_.errors, bits, *this); }
std::string KernelUnFun::getName() const { return record_.name; }
bool KernelUnFun::isAlwaysReal() const { return (record_.properties & kAlwaysReal) != 0; }
bool KernelUnFun::isRealIfReal() const { return (record_.properties & kRealIfReal) != 0; }
bool KernelUnFun::isLinear(int argIndex) const { return argIndex == 1 && (record_.properties & kLinear1) != 0; }

void KernelUnFun::ostreamOperator(const EvalNodes& args, std::ostream& stream) const
{
    if ((record_.properties & kOperator) == 0)
        return UnFunObj::ostreamOperator(args, stream);
    stream << '(' << record_.name[1]; // "U+" and "U-" print as the bare sign
    args[0]->ostreamOperator(stream);
    stream << ')';
}

KernelBinFun::KernelBinFun(const BinaryRecord& record, Loop own)
    : record_(record), loop_(own != nullptr ? own : kernels().*record.kernel)
{
}

EvalNodePtr KernelBinFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    const auto rule = argIndex == 1 ? record_.derivative1 : argIndex == 2 ? record_.derivative2 : nullptr;
    return rule != nullptr ? rule(termOf(args[0], maker), termOf(args[1], maker)).node() : maker->makeZeroNode();
}

EvalNodePtr KernelBinFun::simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const
{
    return record_.simplify != nullptr ? record_.simplify(self, args, *maker) : BinFunObj::simpRule(self, args, maker);
}

boost::shared_ptr<ErrInfo> KernelBinFun::makeError(unsigned int bits) const { return recordOf(record_.errors, bits, *this); }
std::string KernelBinFun::getName() const { return record_.name; }
bool KernelBinFun::isAlwaysReal() const { return (record_.properties & kAlwaysReal) != 0; }
bool KernelBinFun::isRealIfReal() const { return (record_.properties & kRealIfReal) != 0; }
bool KernelBinFun::isLinear(int argIndex) const
{
    return (argIndex == 1 && (record_.properties & kLinear1) != 0) || (argIndex == 2 && (record_.properties & kLinear2) != 0);
}

void KernelBinFun::ostreamOperator(const EvalNodes& args, std::ostream& stream) const
{
    if ((record_.properties & kOperator) == 0)
        return BinFunObj::ostreamOperator(args, stream);
    stream << '(';
    args[0]->ostreamOperator(stream);
    stream << record_.name;
    args[1]->ostreamOperator(stream);
    stream << ')';
}
