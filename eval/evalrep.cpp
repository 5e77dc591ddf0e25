// SPDX-License-Identifier: LicenseRef-qxkernel
#include "eval/evalrep_detail.hpp"

#include <algorithm>
#include <cmath>
#include <locale>
#include <sstream>

using Complex = std::complex<double>;
using Ops = ValRepOps;

namespace {

bool isZeroNumber(double x) { return x == 0.0; }
bool isZeroNumber(const Complex& z) { return z.real() == 0.0 && z.imag() == 0.0; }

} // namespace

// ---- construction

ValRep::ValRep() = default;

ValRep::ValRep(const ArrayAllocatorPtr& allocator) : allocator_(allocator) {}

ValRep::ValRep(const double& value) : zero_(value == 0.0), evaluated_(true), nBlocks_(1)
{
    dScalars_.push_back(Ops::newScalar(value));
}

ValRep::ValRep(const Complex& value) : zero_(isZeroNumber(value)), evaluated_(true), nBlocks_(1)
{
    if (value.imag() == 0.0) {
        dScalars_.push_back(Ops::newScalar(value.real()));
    } else {
        storedComplex_ = complex_ = true;
        cScalars_.push_back(Ops::newScalar(value));
    }
}

ValRep::~ValRep() { clearData(); }

namespace {

struct RecycleValue
{
    void operator()(ValRep* v) const noexcept
    {
        v->~ValRep();
        qxeval::RecycledBlocks::give(v, sizeof(ValRep));
    }
};

} // namespace

// Not by boost::allocate_shared, which counts up and down again on the way out.
template <class... Args>
static ValRepPtr makeValue(const Args&... args)
{
    void* const place = qxeval::RecycledBlocks::take(sizeof(ValRep));
    ValRep* value;
    try {
        value = new (place) ValRep(args...);
    } catch (...) {
        qxeval::RecycledBlocks::give(place, sizeof(ValRep));
        throw;
    }
    return ValRepPtr(value, RecycleValue(), qxeval::Recycling<ValRep>()); // ends the value if it cannot be counted
}

ValRepPtr ValRep::make(const ArrayAllocatorPtr& allocator) { return makeValue(allocator); }
ValRepPtr ValRep::make(double value) { return makeValue(value); }
ValRepPtr ValRep::make(const Complex& value) { return makeValue(value); }

ValRepPtr ValRep::makeZero()
{
    ValRepPtr v = makeValue();
    v->zero_ = v->evaluated_ = true;
    return v;
}

ValRepPtr ValRep::makeNaN()
{
    ValRepPtr v = makeValue();
    v->nan_ = v->evaluated_ = true;
    return v;
}

// ---- state

template <class Test>
static bool everyNumber(const auto& blocks, unsigned size, Test test)
{
    for (const auto& block : blocks) {
        if constexpr (requires { block->data(); }) {
            const auto* x = block->data();
            for (unsigned i = 0; i < size; ++i)
                if (!test(x[i]))
                    return false;
        } else if (!test(*block)) {
            return false;
        }
    }
    return true;
}

bool ValRep::isZero() const
{
    if (!evaluated_)
        return false;
    if (zero_)
        return true;
    if (nan_ || nBlocks_ == 0)
        return false;
    return Ops::withBlocks(*this, [this](const auto& blocks) {
        return everyNumber(blocks, size_, [](const auto& x) { return isZeroNumber(x); });
    });
}

bool ValRep::isZero(double tol)
{
    if (zero_)
        return true;
    if (nan_ || nBlocks_ == 0)
        return false;
    const bool zero = Ops::withBlocks(*this, [this, tol](const auto& blocks) {
        return everyNumber(blocks, size_, [tol](const auto& x) { return !(std::abs(x) > tol); });
    });
    if (zero)
        zero_ = true;
    return zero;
}

void ValRep::setNaN()
{
    zero_ = false;
    nan_ = evaluated_ = true;
}

bool ValRep::checkComplex()
{
    if (!evaluated_ || !complex_ || zero_ || nan_)
        return false;
    complex_ = storedComplex_ && !Ops::withBlocks(*this, [this](const auto& blocks) {
        return everyNumber(blocks, size_, [](const auto& x) { return std::imag(x) == 0.0; });
    });
    return complex_;
}

bool ValRep::hasUniqueData() const
{
    return Ops::withBlocks(*this, [](const auto& blocks) {
        return std::all_of(blocks.begin(), blocks.end(), [](const auto& block) { return block.use_count() == 1; });
    });
}

// ---- building

void ValRep::clearData()
{
    if (allocator_) {
        for (DArrayPtr& array : dArrays_)
            allocator_->release(array);
        for (CArrayPtr& array : cArrays_)
            allocator_->release(array);
    }
    dScalars_.clear();
    cScalars_.clear();
    dArrays_.clear();
    cArrays_.clear();
}

void ValRep::reset(bool scalar, bool complex, unsigned long size)
{
    clearData();
    scalar_ = scalar;
    storedComplex_ = complex_ = complex;
    zero_ = nan_ = evaluated_ = false;
    nBlocks_ = 0;
    size_ = static_cast<unsigned>(size);
    attempt_ = Attempt();
    errors_.reset();
}

void ValRep::addDScalar(boost::shared_ptr<double>& out)
{
    dScalars_.push_back(Ops::newScalar(0.0));
    out = dScalars_.back();
    ++nBlocks_;
    zero_ = false;
}

void ValRep::addCScalar(boost::shared_ptr<Complex>& out)
{
    cScalars_.push_back(Ops::newScalar(Complex()));
    out = cScalars_.back();
    ++nBlocks_;
    zero_ = false;
}

void ValRep::addDArray(DArrayPtr& out)
{
    Ops::lease(*this, out);
    dArrays_.push_back(out);
    ++nBlocks_;
    zero_ = false;
}

void ValRep::addCArray(CArrayPtr& out)
{
    Ops::lease(*this, out);
    cArrays_.push_back(out);
    ++nBlocks_;
    zero_ = false;
}

void ValRep::reserveDArray(unsigned long n) { dArrays_.reserve(n); }
void ValRep::reserveCArray(unsigned long n) { cArrays_.reserve(n); }

void ValRep::reset(const ValRepPtr& other, bool steal)
{
    if (other.get() == this)
        return;
    const bool hasData = !other->zero_ && !other->nan_;
    const bool move = steal && Ops::isOnlyReference(other);
    boost::shared_ptr<ErrInfo> errors = move ? other->errors_ : Ops::copyOf(other->errors_);

    clearData();
    Ops::copyFlags(*this, *other);
    size_ = other->size_;
    if (allocator_ != other->allocator_)
        allocator_ = other->allocator_;
    errors_.swap(errors);
    attempt_ = Attempt();
    nBlocks_ = hasData ? other->nBlocks_ : 0;
    if (!hasData)
        return;
    if (move) {
        dScalars_.swap(other->dScalars_);
        cScalars_.swap(other->cScalars_);
        dArrays_.swap(other->dArrays_);
        cArrays_.swap(other->cArrays_);
        other->nBlocks_ = 0;
    } else if (scalar_) {
        storedComplex_ ? void(cScalars_ = other->cScalars_) : void(dScalars_ = other->dScalars_);
    } else {
        storedComplex_ ? void(cArrays_ = other->cArrays_) : void(dArrays_ = other->dArrays_);
    }
}

// ---- reading

template <class T>
static T readFirst(const ValRep& v, const auto& blocks, std::size_t block, unsigned size)
{
    Ops::check(block < blocks.size());
    if constexpr (requires { blocks[0]->data(); }) {
        Ops::check(size > 0);
        return Ops::convert<T>((*blocks[block])[0]);
    } else {
        return Ops::convert<T>(*blocks[block]);
    }
    (void)v;
}

double ValRep::getDouble() const
{
    throwError();
    if (zero_)
        return 0.0;
    return Ops::withBlocks(*this, [this](const auto& blocks) { return readFirst<double>(*this, blocks, 0, size_); });
}

Complex ValRep::getComplex() const
{
    throwError();
    if (zero_)
        return 0.0;
    return Ops::withBlocks(*this, [this](const auto& blocks) { return readFirst<Complex>(*this, blocks, 0, size_); });
}

double ValRep::getScalarDouble(const int& block) const { return getScalarComplex(block).real(); }

Complex ValRep::getScalarComplex(const int& block) const
{
    throwError();
    if (zero_)
        return 0.0;
    Ops::check(scalar_ && block >= 0);
    const auto j = static_cast<std::size_t>(block);
    return storedComplex_ ? readFirst<Complex>(*this, cScalars_, j, size_) : readFirst<Complex>(*this, dScalars_, j, size_);
}

double* ValRep::getDoubleIterator(const int& block) const
{
    throwError();
    Ops::check(block >= 0 && static_cast<std::size_t>(block) < dArrays_.size());
    return dArrays_[static_cast<std::size_t>(block)]->data();
}

Complex* ValRep::getComplexIterator(const int& block) const
{
    throwError();
    Ops::check(block >= 0 && static_cast<std::size_t>(block) < cArrays_.size());
    return cArrays_[static_cast<std::size_t>(block)]->data();
}

DValRepReader::~DValRepReader() = default;
CValRepReader::~CValRepReader() = default;

double DValRepReader::operator()(const int& point, const int& block) const
{
    return (*rep_->dArrays_[static_cast<std::size_t>(block)])[static_cast<unsigned long>(point)];
}

Complex CValRepReader::operator()(const int& point, const int& block) const
{
    return (*rep_->cArrays_[static_cast<std::size_t>(block)])[static_cast<unsigned long>(point)];
}

template <class Root, class Stored>
static boost::shared_ptr<Root> readerOfShape(const ValRep* v, bool scalar, bool single)
{
    if (scalar && single)
        return boost::make_shared<ValRepReaderShape<Root, Stored, true, true>>(v);
    if (scalar)
        return boost::make_shared<ValRepReaderShape<Root, Stored, true, false>>(v);
    if (single)
        return boost::make_shared<ValRepReaderShape<Root, Stored, false, true>>(v);
    return boost::make_shared<ValRepReaderShape<Root, Stored, false, false>>(v);
}

DValRepReaderPtr ValRep::getDoubleReader() const
{
    throwError();
    if (zero_)
        return boost::make_shared<DZeroReader>(this);
    if (storedComplex_)
        return readerOfShape<DValRepReader, Complex>(this, scalar_, nBlocks_ == 1);
    if (!scalar_ && nBlocks_ != 1)
        return boost::make_shared<DValRepReader>(this);
    return readerOfShape<DValRepReader, double>(this, scalar_, nBlocks_ == 1);
}

CValRepReaderPtr ValRep::getComplexReader() const
{
    throwError();
    if (zero_)
        return boost::make_shared<CZeroReader>(this);
    if (!storedComplex_)
        return readerOfShape<CValRepReader, double>(this, scalar_, nBlocks_ == 1);
    if (!scalar_ && nBlocks_ != 1)
        return boost::make_shared<CValRepReader>(this);
    return readerOfShape<CValRepReader, Complex>(this, scalar_, nBlocks_ == 1);
}

// ---- output

namespace {

/// Number k of a value in linear order, without a test on the shape in the loop: f(k, number) for k = 0 .. count-1.
template <class T, class F>
void forEachLinear(const ValRep& v, std::size_t count, F f)
{
    const std::size_t blocks = std::max<std::size_t>(v.getNBlocks(), 1);
    const auto walk = [&](const auto& reader) {
        std::size_t k = 0;
        for (int i = 0; k < count; ++i)
            for (int j = 0; j < static_cast<int>(blocks) && k < count; ++j, ++k)
                f(k, reader(i, j));
    };
    if constexpr (std::is_same_v<T, double>)
        walk(*v.getDoubleReader());
    else
        walk(*v.getComplexReader());
}

/// How many numbers a target of `room` elements takes: all of an array, a whole target for values that repeat.
std::size_t linearCount(const ValRep& v, std::size_t room)
{
    const std::size_t all = std::size_t(v.getSize()) * std::max<std::size_t>(v.getNBlocks(), 1);
    if (!Ops::repeats(v))
        return all;
    return std::max({all, room, std::max<std::size_t>(v.getNBlocks(), 1)});
}

template <class T>
void copyOut(const ValRep& v, Array<T, 1>& target)
{
    v.throwError();
    const std::size_t count = linearCount(v, target.size());
    if (target.size() < count)
        target.resize(count);
    T* to = target.data();
    forEachLinear<T>(v, count, [to](std::size_t k, const T& x) { to[k] = x; });
}

template <class T>
void copyOut(const ValRep& v, T* target, int nPoints, int nBlocks)
{
    v.throwError();
    Ops::check(Ops::repeats(v) || static_cast<unsigned long>(nPoints) <= v.getSize());
    Ops::check(Ops::isFlaggedZero(v) || v.getNBlocks() == 1 || static_cast<unsigned long>(nBlocks) <= v.getNBlocks());
    const int stride = v.getNBlocks() == 1 ? 0 : 1;
    const auto walk = [&](const auto& reader) {
        for (int i = 0; i < nPoints; ++i)
            for (int j = 0; j < nBlocks; ++j)
                *target++ = reader(i, stride * j);
    };
    if constexpr (std::is_same_v<T, double>)
        walk(*v.getDoubleReader());
    else
        walk(*v.getComplexReader());
}

template <class T, class Index>
void scatter(const ValRep& v, Array<T, 1>& target, const Index& idx)
{
    v.throwError();
    const bool repeats = Ops::repeats(v);
    const std::size_t count = idx.size(), all = std::size_t(v.getSize()) * v.getNBlocks(), room = target.size();
    Ops::check(repeats || count <= all);
    for (std::size_t k = 0; k < count; ++k)
        Ops::check(idx[k] >= 0 && static_cast<std::size_t>(idx[k]) < room);
    T* to = target.data();
    forEachLinear<T>(v, count, [&](std::size_t k, const T& x) { to[idx[k]] = x; });
}

template <class T, class F>
void combine(const ValRep& v, Array<T, 1>& target, F f)
{
    v.throwError();
    Ops::check(Ops::repeats(v) || target.size() <= std::size_t(v.getSize()) * v.getNBlocks());
    T* to = target.data();
    forEachLinear<T>(v, target.size(), [&](std::size_t k, const T& x) { f(to[k], x); });
}

void print(std::ostream& out, double x) { out << x; }
void print(std::ostream& out, const Complex& z) { out << '(' << z.real() << std::showpos << z.imag() << std::noshowpos << "*i)"; }

} // namespace

void ValRep::copyToArray(Array<double, 1>& target) const
{
    if (!nan_ && !zero_ && !scalar_ && !storedComplex_ && nBlocks_ == 1) {
        if (target.size() < size_)
            target.resize(size_);
        std::copy_n(dArrays_[0]->data(), size_, target.data());
        return;
    }
    copyOut(*this, target);
}
void ValRep::copyToArray(Array<Complex, 1>& target) const { copyOut(*this, target); }
void ValRep::copyToArray(double* target, int nPoints, int nBlocks) const { copyOut(*this, target, nPoints, nBlocks); }
void ValRep::copyToArray(Complex* target, int nPoints, int nBlocks) const { copyOut(*this, target, nPoints, nBlocks); }
void ValRep::copyToArray(Array<double, 1>& target, const std::vector<int>& idx) const { scatter(*this, target, idx); }
void ValRep::copyToArray(Array<Complex, 1>& target, const std::vector<int>& idx) const { scatter(*this, target, idx); }
void ValRep::copyToArray(Array<double, 1>& target, const Array<int, 1>& idx) const { scatter(*this, target, idx); }
void ValRep::copyToArray(Array<Complex, 1>& target, const Array<int, 1>& idx) const { scatter(*this, target, idx); }

void ValRep::addToArray(Array<double, 1>& target) const
{
    combine(*this, target, [](double& to, double x) { to += x; });
}
void ValRep::addToArray(Array<Complex, 1>& target) const
{
    combine(*this, target, [](Complex& to, const Complex& x) { to += x; });
}
void ValRep::multiplyArray(Array<double, 1>& target) const
{
    combine(*this, target, [](double& to, double x) { to *= x; });
}
void ValRep::multiplyArray(Array<Complex, 1>& target) const
{
    combine(*this, target, [](Complex& to, const Complex& x) {
        to = {to.real() * x.real() - to.imag() * x.imag(), to.real() * x.imag() + to.imag() * x.real()};
    });
}

std::string ValRep::toString() const
{
    if (nan_)
        return "NaN";
    if (zero_)
        return "0";
    std::ostringstream out;
    out.exceptions(std::ios_base::badbit); // a failed allocation is raised, not a text that ends early
    out.imbue(std::locale::classic());
    Ops::withBlocks(*this, [&](const auto& blocks) {
        const char* blockSeparator = "";
        for (const auto& block : blocks) {
            out << blockSeparator;
            blockSeparator = "; ";
            if constexpr (requires { block->data(); }) {
                for (unsigned i = 0; i < size_; ++i) {
                    out << (i == 0 ? "" : ", ");
                    print(out, (*block)[i]);
                }
            } else {
                print(out, *block);
            }
        }
    });
    return out.str();
}

// ---- errors

const boost::shared_ptr<ErrInfo>& ValRep::getErrors()
{
    if (!errors_)
        errors_ = boost::make_shared<ErrInfo>();
    return errors_;
}

void ValRep::throwError() const
{
    if (!nan_)
        return;
    if (errors_ && !errors_->isEmpty())
        throw errors_->makeException();
    QX_RAISE("evalrep", "Unexpected_NaN");
}
