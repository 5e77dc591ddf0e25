// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "arrayalloc.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"
#include "recycling.hpp"

#include <complex>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

class DValRepReader;
class CValRepReader;
using DValRepReaderPtr = boost::shared_ptr<DValRepReader>;
using CValRepReaderPtr = boost::shared_ptr<CValRepReader>;

/// The value of an expression over `size` points and `nBlocks` blocks, held by boost::shared_ptr.
///
/// A block is one independent instance of the expression over the same points; functions work block by block. A value is
/// scalar (one number a block, the same at all points) or an array (one array a block), stored as real or as complex
/// numbers. Written out linearly the block runs fastest: point i of block j has index i * nBlocks + j.
///
/// Flags: storedComplex tells the storage; complex, which isComplex() reads, tells whether an imaginary part is, or may
/// be, other than 0: stored complex with complex false is really real. zero: identically 0, the storage may be empty.
/// nan: undefined, getErrors() may hold the reason; it travels upward through operations and throwError() raises when
/// numbers are read. evaluated: computed.
///
/// Ownership: numbers and arrays are shared one by one through pointers of their own. An operation overwrites an operand
/// only when its pointer and all its data have one reference; shared values are never changed. Arrays come from the
/// allocator and go back to it when the value ends; they may be longer than size, which is the truth. Without an
/// allocator arrays come from the heap.
///
/// Fails, all operations: std::bad_alloc passes through; operands that others hold are as they were.
///
/// Threads: a value is used by one thread at a time. isZero(tol) and getErrors() change the object: do not call them on
/// a value that other threads can reach.
class QX_API ValRep
{
public:
    /// Scalar without blocks, not evaluated, all other flags false, size 0.
    ValRep();
    explicit ValRep(const ArrayAllocatorPtr& allocator);
    /// One scalar block, evaluated; zero exactly when the number equals 0. nan stays false for a NaN.
    explicit ValRep(const double& value);
    /// The same; a number with imaginary part 0 is stored as a real one.
    explicit ValRep(const std::complex<double>& value);
    ~ValRep();
    ValRep(const ValRep&) = delete;
    ValRep& operator=(const ValRep&) = delete;

    /// New default value with zero and evaluated set.
    static ValRepPtr makeZero();
    /// New default value with nan and evaluated set.
    static ValRepPtr makeNaN();
    /// New empty value; cheaper than boost::make_shared, since storage of ended values is used again.
    static ValRepPtr make(const ArrayAllocatorPtr& allocator = ArrayAllocatorPtr());
    static ValRepPtr make(double value);
    static ValRepPtr make(const std::complex<double>& value);

    bool isScalar() const { return scalar_; }
    bool isComplex() const { return complex_; }
    bool isStoredAsComplex() const { return storedComplex_; }
    /// Every number of every block equals 0; false unless evaluated, false for NaN.
    bool isZero() const;
    /// No number is larger than tol in absolute value (a NaN is not larger). A positive answer sets the zero flag.
    bool isZero(double tol);
    bool isNaN() const { return nan_; }
    bool isEvaluated() const { return evaluated_; }
    void setEvaluated() { evaluated_ = true; }
    /// nan and evaluated true, zero false; the data stays.
    void setNaN();
    /// Looks again at a value that is flagged complex: true if some imaginary part is not 0 (NaN counts), otherwise the
    /// flag is cleared. False at once unless evaluated and complex, and neither zero nor NaN.
    bool checkComplex();
    /// Every number and array in it is held by one reference only.
    bool hasUniqueData() const;

    unsigned long getSize() const { return size_; }
    unsigned long getNBlocks() const { return nBlocks_; }
    const ArrayAllocatorPtr& getAllocator() const { return allocator_; }

    /// Releases the data and starts again with a shape: no blocks, no errors, not evaluated.
    void reset(bool scalar, bool complex, unsigned long size);
    /// Appends a block. A new scalar is 0, a new array is not initialised and has at least getSize() elements.
    void addDScalar(boost::shared_ptr<double>& out);
    void addCScalar(boost::shared_ptr<std::complex<double>>& out);
    void addDArray(DArrayPtr& out);
    void addCArray(CArrayPtr& out);
    /// Room for n blocks. Fails: std::length_error.
    void reserveDArray(unsigned long n);
    void reserveCArray(unsigned long n);
    /// Makes this value equal to other, sharing the numbers. With steal, and when other's pointer is the only reference,
    /// the data moves over and other is left with no blocks. Nothing happens when other is this value.
    void reset(const ValRepPtr& other, bool steal);

    /// First number of the first block; the real part of a complex one. 0 for a zero value.
    /// Fails, as all readings: throwError() on a NaN value; "QUORIX_assertion_failure" (evalrep) for a block, a point or a
    /// storage that is not there.
    double getDouble() const;
    std::complex<double> getComplex() const;
    double getScalarDouble(const int& block) const;
    std::complex<double> getScalarComplex(const int& block) const;
    /// Elements of a block of array storage of that type.
    double* getDoubleIterator(const int& block) const;
    std::complex<double>* getComplexIterator(const int& block) const;
    /// Accessor by (point, block) for the value's shape. It must not outlive the value or a change of its shape.
    DValRepReaderPtr getDoubleReader() const;
    CValRepReaderPtr getComplexReader() const;

    /// Writes all points and blocks in linear order; real targets take real parts. A scalar or zero value is repeated
    /// over all points of the target. Array targets shorter than size * nBlocks are resized first.
    void copyToArray(Array<double, 1>& target) const;
    void copyToArray(Array<std::complex<double>, 1>& target) const;
    void copyToArray(double* target, int nPoints, int nBlocks) const;
    void copyToArray(std::complex<double>* target, int nPoints, int nBlocks) const;
    /// Writes linear element k to target[idx[k]].
    void copyToArray(Array<double, 1>& target, const std::vector<int>& idx) const;
    void copyToArray(Array<std::complex<double>, 1>& target, const std::vector<int>& idx) const;
    void copyToArray(Array<double, 1>& target, const Array<int, 1>& idx) const;
    void copyToArray(Array<std::complex<double>, 1>& target, const Array<int, 1>& idx) const;
    /// target[k] += element k, target[k] *= element k, in linear order over the target.
    void addToArray(Array<double, 1>& target) const;
    void addToArray(Array<std::complex<double>, 1>& target) const;
    void multiplyArray(Array<double, 1>& target) const;
    void multiplyArray(Array<std::complex<double>, 1>& target) const;
    /// "NaN", or the numbers joined by ", " within a block and "; " between blocks; complex ones as (re+im*i).
    std::string toString() const;

    /// A copy that shares no number with this value.
    ValRepPtr clone() const;
    /// A fresh value of another shape with this value's numbers. nBlocks 0 keeps the block count; a different count
    /// repeats the first block. Flags: complex only when this value is complex and complex storage is asked for; zero
    /// and nan false, evaluated true.
    /// Fails: throwError() on a NaN value.
    ValRepPtr cloneCast(const ArrayAllocatorPtr& allocator, unsigned long size, bool scalar, bool complex,
                        unsigned long nBlocks) const;
    /// A copy in real storage. A zero or NaN value gives a value with only the flags copied.
    /// Fails: "Complex_number_in_real_expression" (evalrep) when an imaginary part is not 0.
    ValRepPtr cloneToReal() const;

    /// The reason of a NaN; made at the first call.
    const boost::shared_ptr<ErrInfo>& getErrors();
    /// The reason, null if there is none.
    const boost::shared_ptr<ErrInfo>& peekErrors() const { return errors_; }
    void setErrors(const boost::shared_ptr<ErrInfo>& errors) { errors_ = errors; }
    /// Raises when nan is set: the exception that the errors make, or "Unexpected_NaN" (evalrep) without any.
    void throwError() const;

    /// result = a op b through a temporary function object. mayConsume: operands without other references may be
    /// overwritten; result may then be one of them.
    static void plus(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, bool mayConsume);
    static void minus(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, bool mayConsume);
    static void times(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, bool mayConsume);
    static void times(ValRepPtr& a, double b, ValRepPtr& result, bool mayConsume);
    static void divide(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, bool mayConsume);
    static void uminus(ValRepPtr& a, ValRepPtr& result, bool mayConsume);
    static void sqrt(ValRepPtr& a, ValRepPtr& result, bool mayConsume);
    static void evalUnary(ValRepPtr& a, ValRepPtr& result, const FunObj& f, bool mayConsume);
    static void evalBinary(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, const FunObj& f, bool mayConsume);

    /// Applies a function object. flags: kKeepReal keeps real input in real storage even when the result could be
    /// complex; kKeepNaN keeps element errors as NaN numbers instead of making the value NaN.
    ///
    /// A NaN operand, then an operand without blocks, is the result (itself when its pointer is the only reference,
    /// else a clone). Otherwise an operand whose pointer is the only one and whose data is not shared may be overwritten
    /// and is then the result. So pass the very pointers that hold the operands, never copies.
    ///
    /// Fails: "QUORIX_assertion_failure" (evalrep) when sizes or block counts of operands do not fit together, before
    /// any element is touched; "Evaluation_internal_error" (evalrep) for an n-ary function without arguments. A bad
    /// element never raises: the result is a NaN value with errors.
    static ValRepPtr applyOp(const FunObj& f, ValRepPtr& a, unsigned flags);
    static ValRepPtr applyOp(const FunObj& f, ValRepPtr& a, ValRepPtr& b, unsigned flags);
    static ValRepPtr applyOp(const FunObj& f, std::vector<ValRepPtr>& args, unsigned flags);
    /// Turns the bits of the calls into the flags of the result. A scalar result of zeros becomes makeZero().
    static void applyOpPost(ValRepPtr& result, const FunObj& f, unsigned flags, unsigned bits);

    /// The evaluation flags that applyOp looks at.
    static constexpr unsigned kKeepReal = 8, kKeepNaN = 0x100;

private:
    template <class, class, bool, bool>
    friend class ValRepReaderShape;
    friend class DValRepReader;
    friend class CValRepReader;
    friend class ValRepOps;

    /// Which evaluation left a NaN in a value that a cache keeps, at which version and with which flags.
    struct Attempt
    {
        std::uint64_t stamp = 0; // EvaluationMark::stamp; 0: none
        unsigned version = 0;
        unsigned flags = 0;
    };

    template <class P>
    using Blocks = std::vector<P, qxeval::Recycling<P>>;
    using DScalars = Blocks<boost::shared_ptr<double>>;
    using CScalars = Blocks<boost::shared_ptr<std::complex<double>>>;
    using DArrays = Blocks<DArrayPtr>;
    using CArrays = Blocks<CArrayPtr>;

    // The four vectors by element type; the argument is only a tag.
    DScalars& scalarsOf(double) { return dScalars_; }
    CScalars& scalarsOf(std::complex<double>) { return cScalars_; }
    DArrays& arraysOf(double) { return dArrays_; }
    CArrays& arraysOf(std::complex<double>) { return cArrays_; }
    const DScalars& scalarsOf(double) const { return dScalars_; }
    const CScalars& scalarsOf(std::complex<double>) const { return cScalars_; }
    const DArrays& arraysOf(double) const { return dArrays_; }
    const CArrays& arraysOf(std::complex<double>) const { return cArrays_; }
    void clearData();

    bool scalar_ = true;
    bool storedComplex_ = false;
    bool complex_ = false;
    bool zero_ = false;
    bool nan_ = false;
    bool evaluated_ = false;
    unsigned int size_ = 0;
    unsigned int nBlocks_ = 0;
    Attempt attempt_;
    ArrayAllocatorPtr allocator_;
    boost::shared_ptr<ErrInfo> errors_;
    DScalars dScalars_;
    CScalars cScalars_;
    DArrays dArrays_;
    CArrays cArrays_;
};

/// Uniform access by (point, block): the root reads real arrays, its subclasses the other shapes. No tests at run time.
/// Ownership: borrows the value, which must outlive the reader.
class QX_API DValRepReader
{
public:
    explicit DValRepReader(const ValRep* rep) : rep_(rep) {}
    virtual ~DValRepReader();
    virtual double operator()(const int& point, const int& block) const;

protected:
    const ValRep* rep_;
};

class QX_API CValRepReader
{
public:
    explicit CValRepReader(const ValRep* rep) : rep_(rep) {}
    virtual ~CValRepReader();
    virtual std::complex<double> operator()(const int& point, const int& block) const;

protected:
    const ValRep* rep_;
};

/// Reader of one shape. Stored: the element type in storage. Scalar: the point is ignored. Single: the block is ignored.
template <class Root, class Stored, bool Scalar, bool Single>
class ValRepReaderShape final : public Root
{
public:
    using Root::Root;

    decltype(std::declval<const Root&>()(0, 0)) operator()(const int& point, const int& block) const override
    {
        const auto j = static_cast<std::size_t>(Single ? 0 : block);
        Stored value;
        if constexpr (Scalar)
            value = *this->rep_->scalarsOf(Stored())[j];
        else
            value = (*this->rep_->arraysOf(Stored())[j])[static_cast<unsigned long>(point)];
        if constexpr (std::is_same_v<Root, DValRepReader> && !std::is_same_v<Stored, double>)
            return value.real();
        else
            return value;
    }
};

// S: scalar, U: one block, C: the real part of complex storage, D: real storage read as complex.
using DValRepReaderS = ValRepReaderShape<DValRepReader, double, true, false>;
using DValRepReaderU = ValRepReaderShape<DValRepReader, double, false, true>;
using DValRepReaderSU = ValRepReaderShape<DValRepReader, double, true, true>;
using DValRepReaderC = ValRepReaderShape<DValRepReader, std::complex<double>, false, false>;
using DValRepReaderSC = ValRepReaderShape<DValRepReader, std::complex<double>, true, false>;
using DValRepReaderUC = ValRepReaderShape<DValRepReader, std::complex<double>, false, true>;
using DValRepReaderSUC = ValRepReaderShape<DValRepReader, std::complex<double>, true, true>;
using CValRepReaderS = ValRepReaderShape<CValRepReader, std::complex<double>, true, false>;
using CValRepReaderU = ValRepReaderShape<CValRepReader, std::complex<double>, false, true>;
using CValRepReaderSU = ValRepReaderShape<CValRepReader, std::complex<double>, true, true>;
using CValRepReaderD = ValRepReaderShape<CValRepReader, double, false, false>;
using CValRepReaderSD = ValRepReaderShape<CValRepReader, double, true, false>;
using CValRepReaderUD = ValRepReaderShape<CValRepReader, double, false, true>;
using CValRepReaderSUD = ValRepReaderShape<CValRepReader, double, true, true>;

/// 0 everywhere.
class QX_API DZeroReader final : public DValRepReader
{
public:
    using DValRepReader::DValRepReader;
    double operator()(const int&, const int&) const override { return 0.0; }
};

class QX_API CZeroReader final : public CValRepReader
{
public:
    using CValRepReader::CValRepReader;
    std::complex<double> operator()(const int&, const int&) const override { return 0.0; }
};
