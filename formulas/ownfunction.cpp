// SPDX-License-Identifier: LicenseRef-qxkernel
#include "ownfunction_detail.hpp"

#include "eval/treebuilder_detail.hpp"
#include "evalshadow.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>
#include <new>
#include <type_traits>

namespace qx {

namespace {

bool isNaN(double v) { return std::isnan(v); }
bool isNaN(const std::complex<double>& v) { return std::isnan(v.real()) || std::isnan(v.imag()); }

bool turnsComplex(double) { return false; }
bool turnsComplex(const std::complex<double>& v) { return v.imag() != 0.0; }

/// The operands and the result of a call, kept from call to call by each thread. A body may call the library again, so
/// they are taken from their place while in use.
template <class T>
struct CallBuffers
{
    std::vector<std::span<const T>> arguments;
    std::vector<T> result;
};

template <class T>
class BorrowedBuffers
{
public:
    BorrowedBuffers() : mine(std::move(kept())) {}
    ~BorrowedBuffers() { kept() = std::move(mine); }
    BorrowedBuffers(const BorrowedBuffers&) = delete;
    BorrowedBuffers& operator=(const BorrowedBuffers&) = delete;

    CallBuffers<T> mine;

private:
    static CallBuffers<T>& kept()
    {
        static thread_local CallBuffers<T> buffers;
        return buffers;
    }
};

/// The pointers to numbers that the call forms get, whatever they point from.
template <class P>
auto* numbersOf(const P& p)
{
    if constexpr (requires { p->data(); })
        return p->data();
    else
        return p.get();
}

} // namespace

OwnFunction::OwnFunction(const std::string& name, std::shared_ptr<const Function> function,
                         const boost::shared_ptr<FunTable>& table)
    : MultiFunObj(name, static_cast<int>(function->parameters.size()), false, static_cast<bool>(function->real)), function_(std::move(function)),
      table_(table)
{
}

OwnFunction::~OwnFunction() = default;

template <class T, class Body>
unsigned OwnFunction::call(const Body& body, const std::vector<T>& args, std::size_t count, int which) const
{
    using Number = std::remove_pointer_t<decltype(numbersOf(args[0]))>;
    if (!body)
        return kFunKind;
    BorrowedBuffers<Number> buffers;
    auto& [arguments, result] = buffers.mine;
    arguments.clear();
    for (const T& a : args)
        arguments.emplace_back(numbersOf(a), count);
    result.resize(count);
    const std::span<Number> out(result);
    try {
        body(arguments, out);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        QX_RAISE("formulas", "Exception_in_function",
                 qxbase::ExceptionArgs{{"Name", getName()}, {"Reason", e.what()}});
    }
    std::copy(out.begin(), out.end(), numbersOf(args[static_cast<std::size_t>(which - 1)]));
    unsigned bits = 0;
    for (const Number& v : out)
        bits |= (isNaN(v) ? kFunDomain : 0u) | (turnsComplex(v) ? kFunComplex : 0u);
    return bits;
}

unsigned int OwnFunction::operator()(const std::vector<D>& args, int which) const
{
    return call(function_->real, args, 1, which);
}

unsigned int OwnFunction::operator()(const std::vector<C>& args, int which) const
{
    return call(function_->complex, args, 1, which);
}

unsigned int OwnFunction::operator()(const std::vector<DA>& args, Size size, int which) const
{
    return call(function_->real, args, size, which);
}

unsigned int OwnFunction::operator()(const std::vector<CA>& args, Size size, int which) const
{
    return call(function_->complex, args, size, which);
}

EvalNodePtr OwnFunction::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    const auto k = static_cast<std::size_t>(argIndex - 1);
    const boost::shared_ptr<FunTable> table = table_.lock();
    if (function_->derivatives.empty() || !table)
        QX_RAISE("formulas", "No_derivative_of_function", "Name", getName());
    Names names;
    names.functions = table;
    qxeval::BoundNames bound;
    for (std::size_t i = 0; i < args.size(); ++i)
        bound.emplace(function_->parameters[i], args[i]);
    return qxeval::buildNodes(function_->derivatives[k], boost::make_shared<Host>(names, maker), bound);
}

} // namespace qx
