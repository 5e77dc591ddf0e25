// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"

#include <cstddef>
#include <iosfwd>
#include <string>

struct QxHashFun;
struct QxHashComp;
template <class V, class K, class H, class C>
class QxHashMap;

/// Bits that the call forms of a function object return, OR-ed over blocks.
enum FunBits : unsigned {
    kFunComplex = 1,        ///< some result has an imaginary part that is not 0 (a NaN part counts)
    kFunDomain = 2,         ///< a NaN was produced or a domain failed
    kFunKind = 4,           ///< the function is not defined for this kind of argument
    kFunErrorMask = 0x3fe,  ///< what makeError looks at
    kFunFatal = 0x400       ///< an error that no evaluation flag suppresses
};

/// Executable form of one function or operator of the expression language: values in place, derivative, text, errors.
///
/// Objects are immutable, shared and free of locks: any number of threads may call one. A call never raises and never
/// allocates: the result overwrites an operand and failures leave as bits (FunBits).
///
/// Call forms. D and C are pointers to one real or complex number, DA and CA to an array of which the first `size`
/// elements are used (leased arrays may be longer). Unary forms overwrite their operand. Binary forms overwrite the
/// first operand when `which` is 1 and the second when it is 2; with one scalar and one array the array is always
/// overwritten. A complex scalar or array beside a real target is really real: its real part is used (comparisons for
/// equality and the logical operators look at both parts). N-ary forms overwrite argument `which`, counted from 1.
/// Only the forms that fit nArgs() and isMulti() mean anything; the others return 0 and touch nothing.
///
/// Argument numbers of diffRule and isLinear count from 1.
class QX_API FunObj
{
public:
    using D = boost::shared_ptr<double>;
    using C = boost::shared_ptr<std::complex<double>>;
    using DA = boost::shared_ptr<Array<double, 1>>;
    using CA = boost::shared_ptr<Array<std::complex<double>, 1>>;
    using Size = unsigned int;
    /// Id of the definition that holds a name's value, in the compiler's flat list.
    using DefIds = QxHashMap<int, std::string, QxHashFun, QxHashComp>;

    virtual ~FunObj();

    virtual unsigned int operator()(const D& x) const = 0;
    virtual unsigned int operator()(const C& x) const = 0;
    virtual unsigned int operator()(const DA& x, Size size) const = 0;
    virtual unsigned int operator()(const CA& x, Size size) const = 0;

    virtual unsigned int operator()(const D& x, const D& y, int which) const = 0;
    virtual unsigned int operator()(const C& x, const D& y, int which) const = 0;
    virtual unsigned int operator()(const D& x, const C& y, int which) const = 0;
    virtual unsigned int operator()(const C& x, const C& y, int which) const = 0;

    virtual unsigned int operator()(const DA& x, const D& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const CA& x, const D& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const DA& x, const C& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const CA& x, const C& y, Size size, int which) const = 0;

    virtual unsigned int operator()(const D& x, const DA& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const C& x, const DA& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const D& x, const CA& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const C& x, const CA& y, Size size, int which) const = 0;

    virtual unsigned int operator()(const DA& x, const DA& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const CA& x, const DA& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const DA& x, const CA& y, Size size, int which) const = 0;
    virtual unsigned int operator()(const CA& x, const CA& y, Size size, int which) const = 0;

    virtual unsigned int operator()(const std::vector<D>& args, int which) const = 0;
    virtual unsigned int operator()(const std::vector<C>& args, int which) const = 0;
    virtual unsigned int operator()(const std::vector<DA>& args, Size size, int which) const = 0;
    virtual unsigned int operator()(const std::vector<CA>& args, Size size, int which) const = 0;

    /// The partial derivative with respect to argument argIndex (from 1), as a node over the same arguments.
    virtual EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const = 0;
    /// The operation on args, in a simplified form if there is one. self is this object's shared pointer.
    virtual EvalNodePtr simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const = 0;

    /// The record of a failed call: null when bits has none of kFunErrorMask; otherwise one line with "message" and
    /// "fun". Here "funeval".
    virtual boost::shared_ptr<ErrInfo> makeError(unsigned int bits) const;

    virtual std::string getName() const = 0;
    /// Writes the operation on args as expression text.
    virtual void ostreamOperator(const EvalNodes& args, std::ostream& stream) const = 0;
    virtual int nArgs() const = 0;
    /// Whatever the input, the result is real.
    virtual bool isAlwaysReal() const = 0;
    /// Real input gives real output. False: real input is promoted to complex storage unless real numbers are kept.
    virtual bool isRealIfReal() const = 0;
    /// The n-ary call forms are the ones to use, whatever the number of arguments.
    virtual bool isMulti() const = 0;
    /// Linear in argument argIndex (from 1), the others held fixed.
    virtual bool isLinear(int argIndex) const = 0;
    /// False for objects that a host brings.
    virtual bool isBuiltin() const { return true; }

    /// Enters the operation in the compiler's definition list, arguments first, and gives the id of its value.
    /// Here: raises "Cannot create definitions from " and the name.
    virtual int createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                           const VarEvaluatorPtr& evaluator) const;

    /// The array forms with a place of its own for the result, which saves copying an operand that must be kept. Complex
    /// numbers are (re, im) pairs; shape has the bits of qxkernels::Shape. False, and nothing touched, when the object has
    /// only the forms above.
    virtual bool unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const;
    virtual bool binaryInto(double* out, const double* x, const double* y, unsigned shape, std::size_t n,
                            unsigned& bits) const;

protected:
    /// The common form of createDefs: the definitions of all arguments, then one of the compiler's kind; its id.
    int createDefsRec(const EvalNodes& args, int kind, ExprComp& compiler, DefIds& names, int& nextId,
                      const VarEvaluatorPtr& evaluator) const;
};

/// Function of one argument: fill in the four unary forms and the name.
/// Defaults: real if real, never linear, derivative zero, text name "(" a ")".
class QX_API UnFunObj : public FunObj
{
public:
    using FunObj::operator();

    unsigned int operator()(const D&, const D&, int) const override;
    unsigned int operator()(const C&, const D&, int) const override;
    unsigned int operator()(const D&, const C&, int) const override;
    unsigned int operator()(const C&, const C&, int) const override;
    unsigned int operator()(const DA&, const D&, Size, int) const override;
    unsigned int operator()(const CA&, const D&, Size, int) const override;
    unsigned int operator()(const DA&, const C&, Size, int) const override;
    unsigned int operator()(const CA&, const C&, Size, int) const override;
    unsigned int operator()(const D&, const DA&, Size, int) const override;
    unsigned int operator()(const C&, const DA&, Size, int) const override;
    unsigned int operator()(const D&, const CA&, Size, int) const override;
    unsigned int operator()(const C&, const CA&, Size, int) const override;
    unsigned int operator()(const DA&, const DA&, Size, int) const override;
    unsigned int operator()(const CA&, const DA&, Size, int) const override;
    unsigned int operator()(const DA&, const CA&, Size, int) const override;
    unsigned int operator()(const CA&, const CA&, Size, int) const override;
    unsigned int operator()(const std::vector<D>&, int) const override;
    unsigned int operator()(const std::vector<C>&, int) const override;
    unsigned int operator()(const std::vector<DA>&, Size, int) const override;
    unsigned int operator()(const std::vector<CA>&, Size, int) const override;

    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    EvalNodePtr simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const override;
    void ostreamOperator(const EvalNodes& args, std::ostream& stream) const override;
    int nArgs() const override { return 1; }
    bool isAlwaysReal() const override { return false; }
    bool isRealIfReal() const override { return true; }
    bool isMulti() const override { return false; }
    bool isLinear(int) const override { return false; }
};

/// Function of two arguments: fill in the sixteen binary forms and the name.
/// Defaults: real if real, never linear, derivative zero, text name "(" a "," b ")".
class QX_API BinFunObj : public FunObj
{
public:
    using FunObj::operator();

    unsigned int operator()(const D&) const override;
    unsigned int operator()(const C&) const override;
    unsigned int operator()(const DA&, Size) const override;
    unsigned int operator()(const CA&, Size) const override;
    unsigned int operator()(const std::vector<D>&, int) const override;
    unsigned int operator()(const std::vector<C>&, int) const override;
    unsigned int operator()(const std::vector<DA>&, Size, int) const override;
    unsigned int operator()(const std::vector<CA>&, Size, int) const override;

    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    EvalNodePtr simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const override;
    void ostreamOperator(const EvalNodes& args, std::ostream& stream) const override;
    int nArgs() const override { return 2; }
    bool isAlwaysReal() const override { return false; }
    bool isRealIfReal() const override { return true; }
    bool isMulti() const override { return false; }
    bool isLinear(int) const override { return false; }
};

/// Function of any number of arguments: fill in the four n-ary forms.
/// Defaults: never linear, derivative zero, text name "(" a "," b ... ")".
class QX_API MultiFunObj : public FunObj
{
public:
    MultiFunObj(const std::string& name, int nArgs, bool alwaysReal, bool realIfReal);
    using FunObj::operator();

    unsigned int operator()(const D&) const override;
    unsigned int operator()(const C&) const override;
    unsigned int operator()(const DA&, Size) const override;
    unsigned int operator()(const CA&, Size) const override;
    unsigned int operator()(const D&, const D&, int) const override;
    unsigned int operator()(const C&, const D&, int) const override;
    unsigned int operator()(const D&, const C&, int) const override;
    unsigned int operator()(const C&, const C&, int) const override;
    unsigned int operator()(const DA&, const D&, Size, int) const override;
    unsigned int operator()(const CA&, const D&, Size, int) const override;
    unsigned int operator()(const DA&, const C&, Size, int) const override;
    unsigned int operator()(const CA&, const C&, Size, int) const override;
    unsigned int operator()(const D&, const DA&, Size, int) const override;
    unsigned int operator()(const C&, const DA&, Size, int) const override;
    unsigned int operator()(const D&, const CA&, Size, int) const override;
    unsigned int operator()(const C&, const CA&, Size, int) const override;
    unsigned int operator()(const DA&, const DA&, Size, int) const override;
    unsigned int operator()(const CA&, const DA&, Size, int) const override;
    unsigned int operator()(const DA&, const CA&, Size, int) const override;
    unsigned int operator()(const CA&, const CA&, Size, int) const override;

    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    EvalNodePtr simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const override;
    std::string getName() const override { return name_; }
    void ostreamOperator(const EvalNodes& args, std::ostream& stream) const override;
    int nArgs() const override { return nArgs_; }
    bool isAlwaysReal() const override { return alwaysReal_; }
    bool isRealIfReal() const override { return realIfReal_; }
    bool isMulti() const override { return true; }
    bool isLinear(int) const override { return false; }

private:
    std::string name_;
    int nArgs_;
    bool alwaysReal_;
    bool realIfReal_;
};
