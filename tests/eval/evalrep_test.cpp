// SPDX-License-Identifier: LicenseRef-qxkernel
// Values: state, building, reading, casting, and which operand an operation overwrites.

#include "errinfo.hpp"
#include "evalfun_basic.hpp"
#include "evalfun_binary.hpp"
#include "evalfun_spec.hpp"
#include "evalfun_trig.hpp"
#include "evalrep.hpp"
#include "qxexception.hpp"
#include "tests/support/alloc_fault.hpp"
#include "tests/support/failure.hpp"

#include <boost/make_shared.hpp>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using Complex = std::complex<double>;
using qxtest::idOf;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr unsigned kBlock = 8;

ArrayAllocatorPtr allocator()
{
    static const ArrayAllocatorPtr a = boost::make_shared<SerialArrayAllocator>(kBlock, 1000000);
    return a;
}

template <class T>
ValRepPtr arrays(const std::vector<std::vector<T>>& blocks, const ArrayAllocatorPtr& from = allocator())
{
    constexpr bool complex = !std::is_same_v<T, double>;
    ValRepPtr v = ValRep::make(from);
    v->reset(false, complex, blocks[0].size());
    for (const auto& block : blocks) {
        boost::shared_ptr<Array<T, 1>> a;
        if constexpr (complex)
            v->addCArray(a);
        else
            v->addDArray(a);
        std::copy(block.begin(), block.end(), a->begin());
    }
    v->setEvaluated();
    return v;
}
ValRepPtr reals(const std::vector<double>& x) { return arrays<double>({x}); }
ValRepPtr complexes(const std::vector<Complex>& z) { return arrays<Complex>({z}); }

ValRepPtr scalars(const std::vector<Complex>& blocks, bool complex)
{
    ValRepPtr v = ValRep::make(allocator());
    v->reset(true, complex, 0);
    for (const Complex& z : blocks) {
        if (complex) {
            boost::shared_ptr<Complex> c;
            v->addCScalar(c);
            *c = z;
        } else {
            boost::shared_ptr<double> d;
            v->addDScalar(d);
            *d = z.real();
        }
    }
    v->setEvaluated();
    return v;
}

/// A value in one of the four storages, with two blocks of the numbers 1, 2, ... (complex ones with an imaginary part).
ValRepPtr sample(bool scalar, bool complex, unsigned nBlocks, unsigned size = 3)
{
    if (scalar) {
        std::vector<Complex> z;
        for (unsigned j = 0; j < nBlocks; ++j)
            z.emplace_back(1.0 + j, 0.5);
        return scalars(z, complex);
    }
    std::vector<std::vector<Complex>> z(nBlocks);
    std::vector<std::vector<double>> x(nBlocks);
    for (unsigned j = 0; j < nBlocks; ++j)
        for (unsigned i = 0; i < size; ++i) {
            z[j].emplace_back(1.0 + i + 10.0 * j, 0.5 + i);
            x[j].push_back(1.0 + i + 10.0 * j);
        }
    return complex ? arrays<Complex>(z) : arrays<double>(x);
}

Complex at(const ValRepPtr& v, int i, int j = 0) { return (*v->getComplexReader())(i, j); }

// ---- state

TEST(ValRep, ANumberMakesAnEvaluatedScalarOfOneBlock)
{
    const ValRepPtr x = ValRep::make(2.5), z = ValRep::make(Complex(1.0, 2.0)), r = ValRep::make(Complex(3.0, 0.0));

    EXPECT_TRUE(x->isScalar() && x->isEvaluated() && !x->isComplex() && !x->isZero());
    EXPECT_EQ(x->getNBlocks(), 1u);
    EXPECT_EQ(x->getDouble(), 2.5);
    EXPECT_TRUE(z->isComplex() && z->isStoredAsComplex());
    EXPECT_FALSE(r->isComplex() || r->isStoredAsComplex());
    EXPECT_TRUE(ValRep::make(-0.0)->isZero());
}

TEST(ValRep, RequiredQuirkANaNNumberIsNoNaNValue)
{
    const ValRepPtr v = ValRep::make(kNaN);

    EXPECT_FALSE(v->isNaN());
    EXPECT_TRUE(std::isnan(v->getDouble()));
}

TEST(ValRep, RequiredQuirkGetDoubleOfAComplexValueIsItsRealPart)
{
    EXPECT_EQ(ValRep::make(Complex(1.5, 2.0))->getDouble(), 1.5);
}

TEST(ValRep, ZeroAndNaNFactories)
{
    EXPECT_TRUE(ValRep::makeZero()->isZero());
    EXPECT_EQ(ValRep::makeZero()->getDouble(), 0.0);
    EXPECT_EQ(ValRep::makeZero()->getComplex(), 0.0);
    EXPECT_TRUE(ValRep::makeNaN()->isNaN());
    EXPECT_FALSE(ValRep::makeNaN()->isZero());
}

TEST(ValRep, ReadingANaNWithoutAReasonRaisesUnexpectedNaN)
{
    const ValRepPtr v = ValRep::makeNaN();
    EXPECT_EQ(idOf([&] { v->getDouble(); }), "Unexpected_NaN");
    EXPECT_EQ(idOf([&] { v->getComplexReader(); }), "Unexpected_NaN");
    EXPECT_EQ(idOf([&] { v->cloneCast(allocator(), 3, false, false, 0); }), "Unexpected_NaN");
    v->getErrors()->newLine("evalfun_basic", 1);
    (*v->getErrors())["message"] = "sqrt";
    EXPECT_EQ(idOf([&] { v->getScalarDouble(0); }), "sqrt");
}

TEST(ValRep, SetNaNKeepsTheDataAndTheComplexFlag)
{
    const ValRepPtr v = ValRep::make(Complex(1.0, 2.0));

    v->setNaN();

    EXPECT_TRUE(v->isNaN() && v->isEvaluated() && v->isComplex());
    EXPECT_EQ(v->getNBlocks(), 1u);
}

TEST(ValRep, CheckComplexClearsAFlagWithoutImaginaryParts)
{
    const ValRepPtr real = complexes({1.0, 2.0}), complex = complexes({1.0, Complex(2.0, 1e-300)}), bad = complexes({Complex(1.0, kNaN)});

    EXPECT_FALSE(real->checkComplex());
    EXPECT_FALSE(real->isComplex());
    EXPECT_TRUE(complex->checkComplex());
    EXPECT_TRUE(bad->checkComplex()); // a NaN part counts
    EXPECT_FALSE(ValRep::make(1.0)->checkComplex());
}

TEST(ValRep, IsZeroLooksAtEveryNumberUpToTheSize)
{
    EXPECT_TRUE(reals({0.0, -0.0})->isZero());
    EXPECT_FALSE(reals({0.0, kNaN})->isZero());
    EXPECT_FALSE(complexes({0.0, Complex(0.0, 1.0)})->isZero());
    EXPECT_TRUE(scalars({0.0, 0.0}, true)->isZero());
    const ValRepPtr unevaluated = ValRep::make();
    EXPECT_FALSE(unevaluated->isZero());
}

TEST(ValRep, IsZeroWithToleranceIgnoresNaNAndRemembers)
{
    const ValRepPtr v = reals({1e-9, kNaN, -1e-9});

    EXPECT_FALSE(v->isZero(1e-10));
    EXPECT_TRUE(v->isZero(1e-9)); // strictly greater is needed
    EXPECT_TRUE(v->isZero());
    EXPECT_TRUE(complexes({Complex(3e-9, 4e-9)})->isZero(5.1e-9));
    EXPECT_FALSE(complexes({Complex(3e-9, 4e-9)})->isZero(4.9e-9));
}

// ---- building

TEST(ValRep, AddedBlocksCountAndClearTheZeroFlag)
{
    const ValRepPtr v = ValRep::makeZero();
    boost::shared_ptr<double> d;

    v->addDScalar(d);

    EXPECT_EQ(*d, 0.0);
    EXPECT_EQ(v->getNBlocks(), 1u);
    *d = 3.0;
    EXPECT_EQ(v->getDouble(), 3.0);
}

TEST(ValRep, ArraysHaveTheBlockSizeUnlessTheValueIsLonger)
{
    const ValRepPtr small = ValRep::make(allocator()), large = ValRep::make(allocator()), heap = ValRep::make();
    DArrayPtr a;
    small->reset(false, false, 3);
    small->addDArray(a);
    EXPECT_EQ(a->capacity(), kBlock);
    large->reset(false, false, 20);
    large->addDArray(a);
    EXPECT_EQ(a->capacity(), 20u);
    heap->reset(false, false, 5); // without an allocator
    heap->addDArray(a);
    EXPECT_EQ(a->capacity(), 5u);
}

TEST(ValRep, ReserveBeyondTheLimitIsALengthError)
{
    EXPECT_THROW(ValRep::make()->reserveDArray(~0UL / 2), std::length_error);
    EXPECT_THROW(ValRep::make()->reserveCArray(~0UL / 2), std::length_error);
}

TEST(ValRep, ResetFromAnotherSharesOrSteals)
{
    ValRepPtr source = reals({1.0, 2.0});
    const double* data = source->getDoubleIterator(0);
    const ValRepPtr sharing = ValRep::make(), stealing = ValRep::make();

    sharing->reset(source, false);
    EXPECT_EQ(sharing->getDoubleIterator(0), data);
    EXPECT_FALSE(source->hasUniqueData());
    sharing->reset(true, false, 0);

    stealing->reset(source, true);
    EXPECT_EQ(stealing->getDoubleIterator(0), data);
    EXPECT_EQ(source->getNBlocks(), 0u);
    EXPECT_EQ(stealing->getNBlocks(), 1u);
}

TEST(ValRep, ResetFromItselfChangesNothing)
{
    const ValRepPtr v = reals({1.0, 2.0});

    v->reset(v, true);

    EXPECT_EQ(v->getNBlocks(), 1u);
    EXPECT_EQ(v->getDouble(), 1.0);
}

TEST(ValRep, ResetFromAZeroOrNaNTakesNoBlocks)
{
    const ValRepPtr v = reals({1.0});
    v->reset(ValRep::makeZero(), false);
    EXPECT_TRUE(v->isZero());
    EXPECT_EQ(v->getNBlocks(), 0u);
    v->reset(ValRep::makeNaN(), false);
    EXPECT_TRUE(v->isNaN());
}

TEST(ValRep, CopiesOfTheErrorsAreIndependent)
{
    const ValRepPtr v = ValRep::makeNaN();
    v->getErrors()->newLine("a", 1);
    const ValRepPtr clone = v->clone(), shared = ValRep::make();
    shared->reset(v, false);

    clone->getErrors()->newLine("b", 2);
    shared->getErrors()->newLine("c", 3);

    EXPECT_EQ(v->getErrors()->size(), 1u);
}

// ---- reading

TEST(Reader, EachShapeHasItsClassAndItsNumbers)
{
    const ValRepPtr dd = sample(false, false, 2), du = sample(false, false, 1), ds = sample(true, false, 2), dsu = sample(true, false, 1);
    const ValRepPtr cc = sample(false, true, 2), cu = sample(false, true, 1), cs = sample(true, true, 2), csu = sample(true, true, 1);
    const auto d = [](const ValRepPtr& v) { return v->getDoubleReader(); };
    const auto c = [](const ValRepPtr& v) { return v->getComplexReader(); };

    EXPECT_EQ((*d(dd))(1, 1), 12.0);
    EXPECT_TRUE(dynamic_cast<DValRepReaderU*>(d(du).get()) && (*d(du))(1, 7) == 2.0);
    EXPECT_TRUE(dynamic_cast<DValRepReaderS*>(d(ds).get()) && (*d(ds))(9, 1) == 2.0);
    EXPECT_TRUE(dynamic_cast<DValRepReaderSU*>(d(dsu).get()) && (*d(dsu))(9, 9) == 1.0);
    EXPECT_TRUE(dynamic_cast<DValRepReaderC*>(d(cc).get()) && (*d(cc))(1, 1) == 12.0);
    EXPECT_TRUE(dynamic_cast<DValRepReaderUC*>(d(cu).get()) && (*d(cu))(1, 7) == 2.0);
    EXPECT_TRUE(dynamic_cast<DValRepReaderSC*>(d(cs).get()) && (*d(cs))(9, 1) == 2.0);
    EXPECT_TRUE(dynamic_cast<DValRepReaderSUC*>(d(csu).get()) && (*d(csu))(9, 9) == 1.0);
    EXPECT_TRUE(dynamic_cast<DZeroReader*>(d(ValRep::makeZero()).get()));
    EXPECT_EQ((*c(cc))(1, 1), Complex(12.0, 1.5));
    EXPECT_TRUE(dynamic_cast<CValRepReaderU*>(c(cu).get()) && (*c(cu))(1, 7) == Complex(2.0, 1.5));
    EXPECT_TRUE(dynamic_cast<CValRepReaderS*>(c(cs).get()) && (*c(cs))(9, 1) == Complex(2.0, 0.5));
    EXPECT_TRUE(dynamic_cast<CValRepReaderSU*>(c(csu).get()) && (*c(csu))(9, 9) == Complex(1.0, 0.5));
    EXPECT_TRUE(dynamic_cast<CValRepReaderD*>(c(dd).get()) && (*c(dd))(1, 1) == Complex(12.0, 0.0));
    EXPECT_TRUE(dynamic_cast<CValRepReaderUD*>(c(du).get()) && (*c(du))(1, 7) == Complex(2.0, 0.0));
    EXPECT_TRUE(dynamic_cast<CValRepReaderSD*>(c(ds).get()) && (*c(ds))(9, 1) == Complex(2.0, 0.0));
    EXPECT_TRUE(dynamic_cast<CValRepReaderSUD*>(c(dsu).get()) && (*c(dsu))(9, 9) == Complex(1.0, 0.0));
    EXPECT_TRUE(dynamic_cast<CZeroReader*>(c(ValRep::makeZero()).get()));
}

TEST(ValRep, ReadingABlockThatIsNotThereRaises)
{
    EXPECT_EQ(idOf([] { ValRep::make(1.0)->getScalarDouble(1); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([] { ValRep::make(1.0)->getDoubleIterator(0); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([] { ValRep::make()->getDouble(); }), "QUORIX_assertion_failure");
}

TEST(ValRep, LinearOrderRunsOverTheBlocksFirst)
{
    Array<double, 1> out;

    sample(false, false, 2)->copyToArray(out);

    EXPECT_EQ(std::vector<double>(out.begin(), out.end()), (std::vector<double>{1, 11, 2, 12, 3, 13}));
}

TEST(ValRep, CopiesRepeatScalarsAndTakeRealParts)
{
    double x[6];
    ValRep::make(2.0)->copyToArray(x, 3, 2);
    EXPECT_EQ(std::vector<double>(x, x + 6), std::vector<double>(6, 2.0));
    Array<double, 1> out;
    complexes({Complex(1.0, 5.0), Complex(2.0, 6.0)})->copyToArray(out);
    EXPECT_EQ(out[1], 2.0);
    Array<Complex, 1> room(4);
    ValRep::makeZero()->copyToArray(room);
    EXPECT_EQ(room[3], 0.0);
    reals({1.0, 2.0})->copyToArray(room);
    EXPECT_EQ(room[1], Complex(2.0));
}

TEST(ValRep, AnArrayOfZerosIsCopiedPointByPointAsAnyOther)
{
    const auto copied = [](const ValRepPtr& v) {
        Array<Complex, 1> room(4);
        room = Complex(7.0);
        v->copyToArray(room);
        return std::vector<Complex>(room.begin(), room.end());
    };
    const std::vector<Complex> wanted = {0.0, 0.0, 7.0, 7.0};
    EXPECT_EQ(copied(arrays<double>({{0.0, 0.0}}, ArrayAllocatorPtr())), wanted);
    EXPECT_EQ(copied(arrays<Complex>({{0.0, 0.0}}, ArrayAllocatorPtr())), wanted);

    const ValRepPtr zeros = arrays<double>({{0.0, 0.0}}, ArrayAllocatorPtr());
    Array<double, 1> out(4);
    double plain[6];
    EXPECT_EQ(idOf([&] { zeros->addToArray(out); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([&] { zeros->copyToArray(plain, 3, 1); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([&] { zeros->copyToArray(plain, 2, 2); }), ""); // one block is repeated
    EXPECT_EQ(idOf([&] { zeros->copyToArray(out, std::vector<int>{0, 1, 2}); }), "QUORIX_assertion_failure");
}

TEST(ValRep, AnArrayOfNoPointsIsCopiedToNothing)
{
    Array<double, 1> reals;
    Array<Complex, 1> complexes;
    for (const bool complex : {false, true}) {
        const ValRepPtr v = complex ? arrays<Complex>({{}}, ArrayAllocatorPtr()) : arrays<double>({{}}, ArrayAllocatorPtr());
        v->copyToArray(reals);
        v->copyToArray(complexes);
        EXPECT_EQ(reals.size(), 0u);
        EXPECT_EQ(complexes.size(), 0u);
        EXPECT_EQ(v->toString(), "");
    }
}

TEST(ValRep, IndexedCopyScattersAndRefusesBadIndices)
{
    Array<double, 1> out(4);
    out = 0.0;
    reals({5.0, 6.0})->copyToArray(out, std::vector<int>{3, 1});
    EXPECT_EQ(out[3], 5.0);
    EXPECT_EQ(out[1], 6.0);
    EXPECT_EQ(idOf([&] { reals({5.0})->copyToArray(out, std::vector<int>{4}); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([&] { reals({5.0})->copyToArray(out, std::vector<int>{0, 1}); }), "QUORIX_assertion_failure");
}

TEST(ValRep, AddsToAndMultipliesArrays)
{
    Array<double, 1> x(3);
    x = 2.0;
    reals({1.0, 2.0, 3.0})->addToArray(x);
    ValRep::make(10.0)->multiplyArray(x);
    EXPECT_EQ(std::vector<double>(x.begin(), x.end()), (std::vector<double>{30, 40, 50}));
    Array<Complex, 1> z(1);
    z = Complex(0.0, 1.0);
    complexes({Complex(0.0, 1.0)})->multiplyArray(z);
    EXPECT_EQ(z[0], Complex(-1.0));
}

TEST(ValRep, Text)
{
    EXPECT_EQ(ValRep::makeNaN()->toString(), "NaN");
    EXPECT_EQ(ValRep::makeZero()->toString(), "0");
    EXPECT_EQ(arrays<double>({{1.0, 2.5}, {3.0, 4.0}})->toString(), "1, 2.5; 3, 4");
    EXPECT_EQ(complexes({Complex(1.0, 2.0), Complex(1.0, -2.0)})->toString(), "(1+2*i), (1-2*i)");
}

// ---- clones

TEST(ValRep, CloneSharesNoNumber)
{
    for (const bool scalar : {false, true})
        for (const bool complex : {false, true}) {
            SCOPED_TRACE(testing::Message() << "scalar = " << scalar << ", complex = " << complex);
            const ValRepPtr v = sample(scalar, complex, 2), copy = v->clone();
            EXPECT_TRUE(v->hasUniqueData() && copy->hasUniqueData());
            EXPECT_EQ(copy->toString(), v->toString());
        }
}

TEST(CloneCast, AllSixteenPairsOfStorageWithAndWithoutReplication)
{
    for (const bool fromScalar : {false, true})
        for (const bool fromComplex : {false, true})
            for (const bool toScalar : {false, true})
                for (const bool toComplex : {false, true})
                    for (const unsigned nBlocks : {0u, 1u, 3u}) {
                        const ValRepPtr v = sample(fromScalar, fromComplex, 1);
                        const ValRepPtr cast = v->cloneCast(allocator(), 3, toScalar, toComplex, nBlocks);
                        EXPECT_EQ(cast->isScalar(), toScalar);
                        EXPECT_EQ(cast->isStoredAsComplex(), toComplex);
                        EXPECT_EQ(cast->isComplex(), fromComplex && toComplex);
                        EXPECT_TRUE(cast->isEvaluated() && !cast->isNaN());
                        ASSERT_EQ(cast->getNBlocks(), nBlocks == 0 ? 1u : nBlocks);
                        for (unsigned j = 0; j < cast->getNBlocks(); ++j)
                            for (int i = 0; i < (toScalar ? 1 : 3); ++i) {
                                Complex wanted = at(v, fromScalar || toScalar ? 0 : i);
                                if (!toComplex)
                                    wanted = wanted.real();
                                EXPECT_EQ(at(cast, i, static_cast<int>(j)), wanted);
                            }
                    }
}

TEST(CloneCast, KeepsAllBlocksWhenTheCountIsItsOwn)
{
    const ValRepPtr cast = sample(false, false, 2)->cloneCast(allocator(), 3, false, true, 2);

    EXPECT_EQ(at(cast, 2, 1), Complex(13.0));
}

TEST(CloneCast, AZeroBecomesZerosInEveryShape)
{
    for (const bool scalar : {false, true})
        for (const bool complex : {false, true}) {
            SCOPED_TRACE(testing::Message() << "scalar = " << scalar << ", complex = " << complex);
            const ValRepPtr cast = ValRep::makeZero()->cloneCast(allocator(), 3, scalar, complex, 2);
            ASSERT_EQ(cast->getNBlocks(), 2u);
            EXPECT_EQ(cast->isScalar(), scalar);
            EXPECT_EQ(at(cast, scalar ? 0 : 2, 1), 0.0);
        }
}

TEST(CloneToReal, RefusesAnImaginaryPartAndDropsAZeroOne)
{
    const ValRepPtr complex = complexes({Complex(1.0, 2.0)}), real = complexes({Complex(1.0, 0.0)});

    EXPECT_EQ(idOf([&] { complex->cloneToReal(); }), "Complex_number_in_real_expression");
    EXPECT_FALSE(real->cloneToReal()->isStoredAsComplex());
    EXPECT_EQ(real->cloneToReal()->getDouble(), 1.0);
    EXPECT_TRUE(ValRep::makeZero()->cloneToReal()->isZero());
    EXPECT_TRUE(ValRep::makeNaN()->cloneToReal()->isNaN());
}

// ---- allocators

TEST(ArrayAlloc, BlockSizeArraysCycleThroughAStack)
{
    ArrayAllocImpl a(16, 1000);
    DArrayPtr x, y;
    a.dCheckout(x);
    const double* data = x->data();
    a.release(x);
    EXPECT_FALSE(x);

    a.dCheckout(16, y);

    EXPECT_EQ(y->data(), data);
}

TEST(ArrayAlloc, TheFiftyFirstOddArrayPushesTheOldestOut)
{
    ArrayAllocImpl a(16, 1 << 20);
    std::vector<DArrayPtr> odd;
    for (int n = 100; n <= 150; ++n) {
        odd.emplace_back();
        a.dCheckout(n, odd.back());
    }
    for (DArrayPtr& x : odd)
        a.release(x);

    std::size_t all = 0;
    for (std::size_t n = 101; n <= 150; ++n)
        all += 8 * n;
    EXPECT_EQ(a.getExtraBytes(), all); // 100 is gone
}

TEST(ArrayAlloc, TheByteLimitDropsFromEveryList)
{
    ArrayAllocImpl a(16, 8 * 100);
    DArrayPtr x;
    DArray2Ptr m;
    a.dCheckout(60, x);
    a.dvCheckout(5, 10, m);
    a.release(x);
    EXPECT_EQ(a.getExtraBytes(), 480u);
    a.release(m); // 880 bytes: one entry of each list goes
    EXPECT_EQ(a.getExtraBytes(), 0u);
}

TEST(ArrayAlloc, AMatrixIsFoundByItsCountAndReshaped)
{
    ArrayAllocImpl a(16, 1 << 20);
    DArray2Ptr m;
    a.dvCheckout(4, 6, m);
    const double* data = m->data();
    a.release(m);

    a.dvCheckout(3, 8, m);

    EXPECT_EQ(m->data(), data);
    EXPECT_EQ(m->extent(0), 3u);
    EXPECT_EQ(m->extent(1), 8u);
    DArray3Ptr t;
    a.dtCheckout(2, 3, 4, t);
    a.release(t);
    a.dtCheckout(4, 3, 2, t);
    EXPECT_EQ(t->extent(0), 4u);
}

TEST(ArrayAlloc, ComplexArraysOfOtherSizesAreNeverKept)
{
    ArrayAllocImpl a(16, 1 << 20);
    CArrayPtr c;
    a.cCheckout(20, c);
    a.release(c);
    EXPECT_EQ(a.getExtraBytes(), 0u);
    CArray2Ptr m;
    a.cvCheckout(2, 3, m);
    a.release(m);
    EXPECT_EQ(a.getExtraBytes(), 0u);
}

TEST(ArrayAlloc, AnArrayWithAnotherOwnerIsOnlyLetGo)
{
    ArrayAllocImpl a(16, 1 << 20);
    DArrayPtr x, y;
    a.dCheckout(20, x);
    y = x;

    a.release(x);

    EXPECT_FALSE(x);
    EXPECT_EQ(a.getExtraBytes(), 0u);
}

TEST(ArrayAlloc, AnArrayReleasedOnAForeignThreadIsFreed)
{
    ArrayAllocImpl a(16, 1 << 20);
    DArrayPtr x;
    a.dCheckout(20, x);
    struct Job
    {
        ArrayAllocImpl& a;
        DArrayPtr& x;
    } job{a, x};
    pthread_t thread; // outside OpenMP both threads have OpenMP number 0

    pthread_create(&thread, nullptr, [](void* p) -> void* { Job& j = *static_cast<Job*>(p); j.a.release(j.x); return nullptr; }, &job);
    pthread_join(thread, nullptr);

    EXPECT_FALSE(x);
    EXPECT_EQ(a.getExtraBytes(), 0u);
}

TEST(ArrayAlloc, ReplicatesAndClonesConvert)
{
    SerialArrayAllocator a(4, 1000);
    DArrayPtr d;
    CArrayPtr c;
    a.dReplicate(Complex(2.0, 5.0), d);
    EXPECT_EQ((*d)[3], 2.0);
    a.cReplicate(3.0, 6, c);
    EXPECT_EQ(c->size(), 6u);
    EXPECT_EQ((*c)[5], Complex(3.0));
    DArrayPtr d2;
    CArrayPtr c2;
    a.dClone(c, d2);
    EXPECT_EQ(d2->capacity(), 6u);
    EXPECT_EQ((*d2)[5], 3.0);
    a.cClone(d, c2);
    EXPECT_EQ((*c2)[0], Complex(2.0));
    EXPECT_EQ(a.getBlockSize(), 4u);
    EXPECT_EQ(a.getMaxExtraSize(), 1000u);
    EXPECT_THROW(a.dCheckout(-1, d), std::bad_alloc);
}

// ---- applying functions of one argument

TEST(ApplyUnary, SqrtOfNonNegativesIsStoredComplexButReal)
{
    ValRepPtr x = reals({4.0, 9.0});

    const ValRepPtr r = ValRep::applyOp(SqrtFun(), x, 0);

    EXPECT_TRUE(r->isStoredAsComplex());
    EXPECT_FALSE(r->isComplex());
    EXPECT_TRUE(dynamic_cast<DValRepReaderUC*>(r->getDoubleReader().get()));
    EXPECT_EQ((*r->getDoubleReader())(1, 0), 3.0);
}

TEST(ApplyUnary, SqrtOfANegativeIsComplexOrAnErrorWhenRealIsKept)
{
    ValRepPtr x = reals({4.0, -4.0}), y = reals({4.0, -4.0}), z = reals({4.0, -4.0});

    const ValRepPtr promoted = ValRep::applyOp(SqrtFun(), x, 0);
    EXPECT_TRUE(promoted->isComplex());
    EXPECT_EQ(at(promoted, 1), Complex(0.0, 2.0));

    const ValRepPtr kept = ValRep::applyOp(SqrtFun(), y, ValRep::kKeepReal);
    EXPECT_TRUE(kept->isNaN());
    EXPECT_EQ(idOf([&] { kept->getDouble(); }), "sqrt");

    const ValRepPtr numbers = ValRep::applyOp(SqrtFun(), z, ValRep::kKeepReal | ValRep::kKeepNaN);
    EXPECT_FALSE(numbers->isNaN());
    EXPECT_TRUE(std::isnan((*numbers->getDoubleReader())(1, 0)));
}

TEST(ApplyUnary, AZeroWithoutStorageGivesTheFunctionOfZero)
{
    ValRepPtr zero = ValRep::makeZero(), other = ValRep::makeZero();

    EXPECT_EQ(ValRep::applyOp(CosFun(), zero, 0)->getDouble(), 1.0);
    EXPECT_TRUE(ValRep::applyOp(SinFun(), other, 0)->isZero()); // a zero scalar has no storage
    EXPECT_EQ(ValRep::applyOp(SinFun(), other, 0)->getNBlocks(), 0u);
}

TEST(ApplyUnary, NaNAndEmptyValuesPassThrough)
{
    ValRepPtr bad = ValRep::makeNaN(), empty = ValRep::make(), shared = bad;

    EXPECT_NE(ValRep::applyOp(SinFun(), bad, 0), bad); // shared: a clone
    shared.reset();
    EXPECT_EQ(ValRep::applyOp(SinFun(), bad, 0), bad);
    EXPECT_EQ(ValRep::applyOp(SinFun(), empty, 0), empty);
}

TEST(ApplyUnary, AChainOfFiveTouchesOneArray)
{
    ValRepPtr v = reals({0.1, 0.2});
    const double* data = v->getDoubleIterator(0);

    for (const FunObjPtr& f : {FunObjPtr(new SinFun), FunObjPtr(new CosFun), FunObjPtr(new UMinusFun), FunObjPtr(new ExpFun), FunObjPtr(new AbsFun)}) {
        ValRepPtr next = ValRep::applyOp(*f, v, 0);
        v = next;
    }

    EXPECT_EQ(v->getDoubleIterator(0), data);
    EXPECT_DOUBLE_EQ(v->getDouble(), std::exp(-std::cos(std::sin(0.1))));
}

TEST(ApplyUnary, ASharedValueOrSharedDataIsNeverChanged)
{
    ValRepPtr v = reals({0.5}), other = ValRep::make();
    const ValRepPtr second = v;
    EXPECT_NE(ValRep::applyOp(SinFun(), v, 0), v);
    EXPECT_EQ(v->getDouble(), 0.5);

    ValRepPtr w = reals({0.5});
    other->reset(w, false); // shares the array
    EXPECT_NE(ValRep::applyOp(SinFun(), w, 0), w);
    EXPECT_EQ(other->getDouble(), 0.5);
}

TEST(ApplyUnary, AnAlwaysRealFunctionOfAComplexArray)
{
    ValRepPtr z = complexes({Complex(3.0, 4.0)});
    const ValRepPtr keep = z;

    const ValRepPtr r = ValRep::applyOp(AbsFun(), z, 0);

    EXPECT_FALSE(r->isComplex());
    EXPECT_EQ(at(r, 0), Complex(5.0));
    EXPECT_EQ(at(keep, 0), Complex(3.0, 4.0));
}

TEST(ApplyUnary, SeveralBlocksAreDoneOneByOne)
{
    ValRepPtr v = arrays<double>({{1.0, 2.0}, {3.0, 4.0}}), s = scalars({1.0, 2.0}, false);

    EXPECT_EQ(at(ValRep::applyOp(UMinusFun(), v, 0), 1, 1), Complex(-4.0));
    EXPECT_EQ(ValRep::applyOp(UMinusFun(), s, 0)->getScalarDouble(1), -2.0);
}

// ---- two arguments

TEST(ApplyBinary, OfTwoUniqueArraysTheLeftOneIsOverwritten)
{
    ValRepPtr a = reals({1.0, 2.0}), b = reals({10.0, 20.0});
    const ValRep* left = a.get();

    const ValRepPtr r = ValRep::applyOp(PlusFun(), a, b, 0);

    EXPECT_EQ(r.get(), left);
    EXPECT_EQ((*r->getDoubleReader())(1, 0), 22.0);
    EXPECT_EQ((*b->getDoubleReader())(1, 0), 20.0);
}

TEST(ApplyBinary, AUniqueComplexArrayTakesTheSumWithARealOne)
{
    ValRepPtr a = reals({1.0, 2.0}), b = complexes({Complex(1.0, 1.0), Complex(2.0, 2.0)});
    const ValRep* right = b.get();

    const ValRepPtr r = ValRep::applyOp(MinusFun(), a, b, 0);

    EXPECT_EQ(r.get(), right);
    EXPECT_EQ(at(r, 1), Complex(0.0, -2.0));
}

TEST(ApplyBinary, RequiredQuirkAScalarResultOfZeroLosesItsBlocks)
{
    ValRepPtr a = ValRep::make(2.0), b = ValRep::make(2.0);

    const ValRepPtr r = ValRep::applyOp(MinusFun(), a, b, 0);

    EXPECT_TRUE(r->isZero());
    EXPECT_EQ(r->getNBlocks(), 0u);
    EXPECT_EQ(r->getDouble(), 0.0);
}

/// Shape and sharing of one operand of the brute-force table.
struct Operand
{
    bool scalar, complex, unique, many;
    ValRepPtr make() const
    {
        return sample(scalar, complex, many ? 2 : 1);
    }
};

TEST(ApplyBinary, OperandsAreKeptOrTakenAndResultsAreRightForEveryCombination)
{
    const PlusFun plus;
    const MultFun mult;
    const PowFun power;
    const EQFun equal;
    const FunObj* functions[] = {&plus, &mult, &power, &equal};
    const auto reference = [&](const FunObj* f, Complex x, Complex y) {
        return f == &plus ? x + y : f == &mult ? x * y : f == &power ? std::pow(x, y) : Complex(x == y ? 1.0 : 0.0);
    };

    for (int bitsA = 0; bitsA < 16; ++bitsA)
        for (int bitsB = 0; bitsB < 16; ++bitsB)
            for (const FunObj* f : functions)
                for (const unsigned flags : {0u, ValRep::kKeepReal}) {
                    const Operand oa{(bitsA & 1) != 0, (bitsA & 2) != 0, (bitsA & 4) != 0, (bitsA & 8) != 0};
                    const Operand ob{(bitsB & 1) != 0, (bitsB & 2) != 0, (bitsB & 4) != 0, (bitsB & 8) != 0};
                    ValRepPtr a = oa.make(), b = ob.make();
                    const ValRepPtr holdA = oa.unique ? ValRepPtr() : a, holdB = ob.unique ? ValRepPtr() : b;
                    const ValRep *left = a.get(), *right = b.get();
                    const std::string textA = a->toString(), textB = b->toString();
                    std::vector<Complex> wanted;
                    const int points = oa.scalar && ob.scalar ? 1 : 3, blocks = oa.many || ob.many ? 2 : 1;
                    for (int i = 0; i < points; ++i)
                        for (int j = 0; j < blocks; ++j)
                            wanted.push_back(reference(f, at(a, oa.scalar ? 0 : i, oa.many ? j : 0), at(b, ob.scalar ? 0 : i, ob.many ? j : 0)));

                    const ValRepPtr r = ValRep::applyOp(*f, a, b, flags);

                    // The operand that may be overwritten and has room for the result takes it, the left one first.
                    const bool promoted = f == &power && flags == 0, real = f == &equal && !(oa.complex && ob.complex);
                    const bool complexResult = promoted || ((oa.complex || ob.complex) && !real);
                    const auto takes = [&](const Operand& o, const Operand& other) {
                        return o.unique && (!o.scalar || other.scalar) && (o.many || !other.many) && (o.complex || !complexResult);
                    };
                    const std::string what = "a " + std::to_string(bitsA) + " b " + std::to_string(bitsB) + " " + f->getName();
                    if (!r->isZero()) { // a scalar zero is replaced by a value without storage
                        EXPECT_EQ(r.get() == left, takes(oa, ob)) << what;
                        EXPECT_EQ(r.get() == right, !takes(oa, ob) && takes(ob, oa)) << what;
                    }
                    if (!oa.unique) {
                        EXPECT_EQ(holdA->toString(), textA) << what;
                    }
                    if (!ob.unique) {
                        EXPECT_EQ(holdB->toString(), textB) << what;
                    }
                    ASSERT_FALSE(r->isNaN()) << what;
                    const auto read = r->getComplexReader();
                    for (int i = 0, k = 0; i < points; ++i)
                        for (int j = 0; j < blocks; ++j, ++k)
                            EXPECT_LE(std::abs((*read)(i, j) - wanted[k]), 1e-13 * std::abs(wanted[k])) << what << ' ' << i << ' ' << j;
                }
}

TEST(ApplyBinary, ASharedComplexValueComparesWithBothParts)
{
    ValRepPtr z = ValRep::make(Complex(1.0, 2.0)), one = ValRep::make(1.0), array = reals({1.0, 1.0});
    const ValRepPtr shared = z, sharedArray = array;

    EXPECT_TRUE(ValRep::applyOp(EQFun(), z, one, 0)->isZero());
    EXPECT_TRUE(ValRep::applyOp(EQFun(), one, z, 0)->isZero());
    EXPECT_EQ(ValRep::applyOp(NEFun(), z, one, 0)->getDouble(), 1.0);
    EXPECT_EQ(at(ValRep::applyOp(EQFun(), z, array, 0), 1), 0.0);
    EXPECT_EQ(at(ValRep::applyOp(EQFun(), array, z, 0), 1), 0.0);
    EXPECT_EQ(at(ValRep::applyOp(AndFun(), array, z, 0), 1), 1.0);
}

TEST(ApplyBinary, StoredComplexButRealOperandsComeBackToRealStorage)
{
    ValRepPtr x = reals({4.0, 9.0}), y = reals({1.0, 1.0});
    ValRepPtr root = ValRep::applyOp(SqrtFun(), x, 0);

    const ValRepPtr r = ValRep::applyOp(PlusFun(), y, root, 0);

    EXPECT_FALSE(r->isStoredAsComplex());
    EXPECT_EQ((*r->getDoubleReader())(1, 0), 4.0);
}

TEST(ApplyBinary, OneArrayTwiceIsNotOverwritten)
{
    ValRepPtr a = reals({1.0, 2.0});

    const ValRepPtr r = ValRep::applyOp(PlusFun(), a, a, 0);

    EXPECT_EQ((*r->getDoubleReader())(1, 0), 4.0);
    EXPECT_EQ((*a->getDoubleReader())(1, 0), 2.0);
}

TEST(ApplyBinary, ShapesThatDoNotFitRaiseBeforeAnythingIsTouched)
{
    ValRepPtr a = reals({1.0, 2.0}), b = reals({1.0, 2.0, 3.0}), c = sample(false, false, 2), d = sample(false, false, 3);

    EXPECT_EQ(idOf([&] { ValRep::applyOp(PlusFun(), a, b, 0); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([&] { ValRep::applyOp(PlusFun(), c, d, 0); }), "QUORIX_assertion_failure");
    EXPECT_EQ(a->toString(), "1, 2");
}

TEST(ApplyBinary, RequiredQuirkTheLeftNaNWins)
{
    ValRepPtr a = ValRep::makeNaN(), b = ValRep::makeNaN(), x = ValRep::make(1.0), empty = ValRep::make();

    EXPECT_EQ(ValRep::applyOp(PlusFun(), a, b, 0), a);
    EXPECT_EQ(ValRep::applyOp(PlusFun(), x, b, 0), b);
    EXPECT_EQ(ValRep::applyOp(PlusFun(), empty, b, 0), b); // NaN precedes empty
    EXPECT_EQ(ValRep::applyOp(PlusFun(), x, empty, 0), empty);
}

TEST(ApplyBinary, DivisionByZeroIsNoError)
{
    ValRepPtr one = ValRep::make(1.0), zero = ValRep::makeZero(), x = reals({1.0, 2.0}), nought = ValRep::makeZero();

    EXPECT_EQ(ValRep::applyOp(DivFun(), one, zero, 0)->getDouble(), std::numeric_limits<double>::infinity());
    const ValRepPtr r = ValRep::applyOp(DivFun(), x, nought, 0);
    EXPECT_FALSE(r->isNaN());
    EXPECT_TRUE(std::isnan(r->getDouble()));
}

TEST(ApplyBinary, HelpersConsumeOnlyWhenTheyMay)
{
    ValRepPtr a = reals({4.0}), b = reals({2.0}), r;

    ValRep::plus(a, b, r, false);
    EXPECT_EQ(r->getDouble(), 6.0);
    ValRep::minus(a, b, r, false);
    EXPECT_EQ(r->getDouble(), 2.0);
    ValRep::times(a, b, r, false);
    EXPECT_EQ(r->getDouble(), 8.0);
    ValRep::times(a, 0.5, r, false);
    EXPECT_EQ(r->getDouble(), 2.0);
    ValRep::divide(a, b, r, false);
    EXPECT_EQ(r->getDouble(), 2.0);
    ValRep::uminus(a, r, false);
    EXPECT_EQ(r->getDouble(), -4.0);
    ValRep::sqrt(a, r, false);
    EXPECT_EQ(r->getDouble(), 2.0);
    EXPECT_EQ(a->getDouble(), 4.0);
    const ValRep* left = a.get();
    ValRep::plus(a, b, r, true);
    EXPECT_EQ(r.get(), left);
}

// ---- many arguments

TEST(ApplyMulti, TheLastUniqueCandidateIsTheTarget)
{
    const GenAddFun sum("sum", 3);
    std::vector<ValRepPtr> args = {reals({1.0}), reals({2.0}), ValRep::make(3.0)};
    const ValRep* second = args[1].get();

    const ValRepPtr r = ValRep::applyOp(sum, args, 0);

    EXPECT_EQ(r->getDouble(), 6.0);
    EXPECT_NE(r.get(), second); // the copy made of the scalar came last
    std::vector<ValRepPtr> all = {reals({1.0}), reals({2.0})};
    second = all[1].get();
    EXPECT_EQ(ValRep::applyOp(sum, all, 0).get(), second);
}

TEST(ApplyMulti, SharedArgumentsStayAsTheyAre)
{
    const GenAddFun sum("sum", 2);
    const ValRepPtr a = reals({1.0, 2.0}), b = reals({10.0, 20.0});
    std::vector<ValRepPtr> args = {a, b};

    const ValRepPtr r = ValRep::applyOp(sum, args, 0);

    EXPECT_EQ((*r->getDoubleReader())(1, 0), 22.0);
    EXPECT_EQ(a->toString() + "; " + b->toString(), "1, 2; 10, 20");
}

TEST(ApplyMulti, BlocksZerosAndComplexNumbersMeetInOneShape)
{
    const GenAddFun sum("sum", 4);
    std::vector<ValRepPtr> args = {sample(false, false, 2), ValRep::makeZero(), ValRep::make(Complex(0.0, 1.0)), reals({1.0, 1.0, 1.0})};

    const ValRepPtr r = ValRep::applyOp(sum, args, 0);

    ASSERT_EQ(r->getNBlocks(), 2u);
    EXPECT_EQ(at(r, 2, 1), Complex(14.0, 1.0));
}

TEST(ApplyMulti, NaNPrecedesEmptyAndNoArgumentsRaise)
{
    const GenAddFun sum("sum", 2);
    std::vector<ValRepPtr> args = {ValRep::make(), ValRep::makeNaN()}, none;

    EXPECT_TRUE(ValRep::applyOp(sum, args, 0)->isNaN());
    EXPECT_EQ(idOf([&] { ValRep::applyOp(sum, none, 0); }), "Evaluation_internal_error");
}

TEST(ApplyMulti, OneArgumentKeepsItsUniqueness)
{
    const GenAddFun sum("sum", 1);
    ValRepPtr x = reals({1.0});
    const ValRep* own = x.get();

    EXPECT_EQ(ValRep::applyOp(sum, x, 0).get(), own);
}

// ---- bits

TEST(ApplyOpPost, AFatalBitErrsEvenWhereErrorsAreIgnored)
{
    ValRepPtr v = reals({1.0}), w = reals({1.0}), u = reals({1.0});

    ValRep::applyOpPost(v, SqrtFun(), ValRep::kKeepNaN, 0x400 | kFunDomain);
    EXPECT_TRUE(v->isNaN());
    ValRep::applyOpPost(w, SqrtFun(), ValRep::kKeepNaN, kFunDomain);
    EXPECT_FALSE(w->isNaN());
    ValRep::applyOpPost(u, SqrtFun(), 0, 0x400); // makeError has nothing to say
    EXPECT_EQ(idOf([&] { u->getDouble(); }), "Unexpected_NaN");
}

TEST(ApplyOpPost, AComplexScalarHasItsFlagComputedAgain)
{
    ValRepPtr z = ValRep::make(Complex(0.0, 1.0)), w = ValRep::make(Complex(0.0, 1.0));

    const ValRepPtr r = ValRep::applyOp(MultFun(), z, w, 0);

    EXPECT_EQ(r->getDouble(), -1.0);
    EXPECT_FALSE(r->isComplex());
}

// ---- storage

TEST(ValRep, RepeatedOperationsCallNoAllocator)
{
    const ArrayAllocatorPtr own = boost::make_shared<SerialArrayAllocator>(1000, 1000);
    const auto pass = [&](ValRepPtr x, ValRepPtr y) {
        ValRepPtr x2 = x, y2 = y;
        ValRepPtr p = ValRep::applyOp(MultFun(), x, y, 0);
        ValRepPtr s = ValRep::applyOp(SinFun(), x2, 0);
        ValRepPtr q = ValRep::applyOp(PlusFun(), p, s, 0);
        ValRepPtr r = ValRep::applyOp(SqrtFun(), q, 0);
        ValRepPtr c = ValRep::make(2.0);
        ValRepPtr t = ValRep::applyOp(PlusFun(), r, c, 0);
        return ValRep::applyOp(LTFun(), t, y2, 0)->getDouble();
    };
    ValRepPtr x = arrays<double>({std::vector<double>(1000, 0.5)}, own), y = arrays<double>({std::vector<double>(1000, 0.7)}, own);
    for (int warmUp = 0; warmUp < 3; ++warmUp)
        pass(x, y);
    const long before = qxtest::allocationCount();

    for (int i = 0; i < 10; ++i)
        pass(x, y);

    EXPECT_EQ(qxtest::allocationCount(), before);
}

TEST(ValRep, ResetFromAnotherTakesItsAllocator)
{
    const ArrayAllocatorPtr own = boost::make_shared<SerialArrayAllocator>(4, 0), its = boost::make_shared<SerialArrayAllocator>(4, 0);
    const ValRepPtr other = arrays<double>({{1.0, 2.0}}, its);
    for (const bool steal : {false, true}) {
        ValRep value(own);
        value.reset(other, steal);
        EXPECT_EQ(value.getAllocator(), its);
    }
}

TEST(ValRep, AFailedAllocationLeavesTheOperandsAndNoLeak)
{
    bool sawBadAlloc = false;
    long most = 0;
    qxtest::failEveryAllocation(
        [] {
            const ArrayAllocatorPtr own = boost::make_shared<SerialArrayAllocator>(100, 1000);
            ValRepPtr x = arrays<double>({{1.0, 2.0}}, own), z = arrays<Complex>({{Complex(1.0, 1.0), 2.0}}, own);
            const ValRepPtr keepX = x, keepZ = z;
            try {
                ValRepPtr r = ValRep::applyOp(PlusFun(), x, z, 0);
                ValRepPtr s = ValRep::applyOp(SqrtFun(), r, 0);
                s->clone();
            } catch (const std::bad_alloc&) {
                EXPECT_EQ((*keepX->getDoubleIterator(0)), 1.0);
                EXPECT_EQ((*keepZ->getComplexIterator(0)), Complex(1.0, 1.0));
                throw;
            }
        },
        [&](const qxtest::FaultRun& run) {
            // Only std::bad_alloc comes out, and not even that where an array could merely not be kept for later.
            EXPECT_EQ(run.id, "") << run.n;
            sawBadAlloc = sawBadAlloc || run.badAlloc;
            most = std::max(most, run.leaked);
        });
    EXPECT_TRUE(sawBadAlloc);
    EXPECT_LE(most, 0) << "blocks that nobody owns";
}

} // namespace
