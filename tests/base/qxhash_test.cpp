// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxhash.hpp"

#include "support/alloc_fault.hpp"

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <map>
#include <random>
#include <set>

using Complex = std::complex<double>;

namespace {

template <class Table>
std::vector<unsigned> sizesWhileInserting(Table& table, int count)
{
    std::vector<unsigned> sizes;
    for (int i = 1; i <= count; ++i) {
        table.insertKey(i);
        sizes.push_back(table.getTableSize());
    }
    return sizes;
}

/// Three different keys of which the first two start at the same slot, and the third at another, in tables up to 8.
std::vector<int> twoCollidingKeysAndOne()
{
    const QxHashFun hash;
    for (int other = 2;; ++other)
        if ((hash(other) & 7) == (hash(1) & 7))
            for (int third = 2;; ++third)
                if ((hash(third) & 1) != (hash(1) & 1) &&
                    (hash(third) & 7) != ((hash(other) + ((hash(other) >> 5) | 1)) & 7))
                    return {1, other, third};
}

} // namespace

// The hash functions. Expected values: tests/reference/hash_values.py.

TEST(QxHashFun, IntegersAgreeWithExactArithmetic)
{
    const QxHashFun hash;

    EXPECT_EQ(hash(0), 0u);
    EXPECT_EQ(hash(1), 790789047u);
    EXPECT_EQ(hash(12345), 1487953440u);
    EXPECT_EQ(hash(-1), 75334879u);
    EXPECT_EQ(hash(2147483647), 2036403031u);
}

TEST(QxHashFun, WideIntegersAreCutToThirtyTwoBits)
{
    const QxHashFun hash;

    EXPECT_EQ(hash((1UL << 32) + 7), 1814290542u);
    EXPECT_EQ(hash(7u), 1814290542u);
    EXPECT_EQ(hash(7L), 1814290542u);
}

TEST(QxHashFun, TextAgreesWithFnvFoldedIncludingHighBytes)
{
    const QxHashFun hash;

    EXPECT_EQ(hash(std::string()), 2174550213u);
    EXPECT_EQ(hash(std::string("a")), 3840459245u);
    EXPECT_EQ(hash(std::string_view("temperature")), 3910906503u);
    EXPECT_EQ(hash("\xc3\xa9\x80"), 1944549674u);
    EXPECT_EQ(hash(std::vector<unsigned char>{0xc3, 0xa9, 0x80}), 1944549674u);
}

TEST(QxHashFun, DoublesAgreeWithExactArithmetic)
{
    const QxHashFun hash;

    EXPECT_EQ(hash(0.0), 0u);
    EXPECT_EQ(hash(1.0), 1589719521u);
    EXPECT_EQ(hash(0.1), 938904431u);
    EXPECT_EQ(hash(-2.5), 943648055u);
    EXPECT_EQ(hash(1e300), 126798180u);
}

TEST(QxHashFun, ZerosOfBothSignsHashAlike) { EXPECT_EQ(QxHashFun()(-0.0), QxHashFun()(0.0)); }

TEST(QxHashFun, PairsAndTriplesCombineTheHashesOfTheirParts)
{
    const QxHashFun hash;

    EXPECT_EQ(hash(std::pair(1, 2)), 900025846u);
    EXPECT_EQ(hash(std::pair(3, std::pair(1, 2))), 1990495189u);
    EXPECT_EQ(hash(std::pair(std::string("T"), 5)), 221164158u);
    EXPECT_EQ(hash(Complex(0.1, -2.5)), 91695306u);
}

TEST(QxHashFun, OrderOfAPairMatters) { EXPECT_NE(QxHashFun()(std::pair(1, 2)), QxHashFun()(std::pair(2, 1))); }

TEST(QxHashFun, AddressesOfNeighboursDiffer)
{
    struct alignas(16) Object
    {
        double x;
    } objects[2];

    EXPECT_NE(QxHashFun()(&objects[0]), QxHashFun()(&objects[1]));
}

// The table.

TEST(QxHashMap, LazyMapHasNoStorageAndFindsNothing)
{
    const long before = qxtest::allocationCount();
    QxHashMap<int, int> map(0, true);

    EXPECT_EQ(map.getTableSize(), 0u);
    EXPECT_EQ(map.getGrowLimit(), 0u);
    EXPECT_TRUE(map.lookup(1).notFound);
    EXPECT_TRUE(map.begin() == map.end());
    EXPECT_EQ(qxtest::allocationCount(), before);
}

TEST(QxHashMap, FirstInsertionMakesATableOfTwoAndTheSecondOneOfFour)
{
    QxHashMap<int, int> map(0, true);

    map.insert(5, 50);
    EXPECT_EQ(map.getTableSize(), 2u);
    EXPECT_EQ(map.getGrowLimit(), 1u);

    map.insert(6, 60);
    EXPECT_EQ(map.getTableSize(), 4u);
    EXPECT_EQ(map.getGrowLimit(), 2u);
}

TEST(QxHashMap, GrowsThroughTwoFourEightSixteen)
{
    // By hand: load limit 0.72, growth to the table size for twice the count.
    QxHashMap<int, int> map(0, true);

    EXPECT_EQ(sizesWhileInserting(map, 6), (std::vector<unsigned>{2, 4, 8, 8, 8, 16}));
}

TEST(QxHashMap, TableSizeIsThePowerOfTwoAboveOnePointFourTimesTheCount)
{
    using Map = QxHashMap<int, int>;

    EXPECT_EQ(Map::getHashSize(0), 2u);
    EXPECT_EQ(Map::getHashSize(1), 2u);
    EXPECT_EQ(Map::getHashSize(2), 4u);
    EXPECT_EQ(Map::getHashSize(100), 256u);
    EXPECT_EQ(Map::getHashSize(1500000000u), 1u << 31);
    EXPECT_THROW(Map::getHashSize(1500000001u), std::bad_alloc);
}

TEST(QxHashMap, EagerMapHasItsTableAtOnce)
{
    QxHashMap<int, int> hundred(100, false), none(0, false);

    EXPECT_EQ(hundred.getTableSize(), 256u);
    EXPECT_EQ(hundred.getGrowLimit(), 184u);
    EXPECT_EQ(none.getTableSize(), 2u);
    EXPECT_EQ(none.getGrowLimit(), 1u);
}

TEST(QxHashMap, InsertKeepsTheValueOfAKnownKey)
{
    QxHashMap<int, std::string> map;
    map.insert("x", 1);

    const QxHashInsert again = map.insert("x", 2);

    EXPECT_FALSE(again.inserted);
    EXPECT_EQ(map.at(again.slot), 1);
}

TEST(QxHashMap, AtAssignsToAKnownKey)
{
    QxHashMap<int, std::string> map;
    map.insert("x", 1);

    map.at(map.insertKey("x").slot) = 2;

    EXPECT_EQ(map.at(map.lookup("x").slot), 2);
}

TEST(QxHashMap, LookupResultFitsOneRegister)
{
    static_assert(sizeof(QxHashLookup) == 8 && sizeof(QxHashInsert) == 8);
}

TEST(QxHashMap, FindsAHundredThousandKeysAfterGrowthAndStaysBelowTheLoadLimit)
{
    QxHashMap<int, unsigned long> map;
    double load = 0;

    for (int i = 0; i < 100000; ++i) {
        map.insert(i * 7919UL, i);
        load = std::max(load, double(map.size()) / map.getTableSize());
    }

    EXPECT_LE(load, 0.72);
    EXPECT_EQ(map.size(), 100000u);
    for (int i = 0; i < 100000; ++i) {
        const QxHashLookup found = map.lookup(i * 7919UL);
        ASSERT_FALSE(found.notFound) << i;
        ASSERT_EQ(map.at(found.slot), i);
    }
    EXPECT_TRUE(map.lookup(3).notFound);
}

TEST(QxHashMap, IterationVisitsEachUsedSlotOnce)
{
    QxHashMap<int, int> map;
    for (int i = 0; i < 1000; ++i)
        map.insert(i, -i);

    std::map<int, int> seen;
    for (const auto& entry : map)
        EXPECT_TRUE(seen.emplace(entry.key, entry.value).second);

    EXPECT_EQ(seen.size(), 1000u);
    EXPECT_EQ(seen[999], -999);
    EXPECT_EQ(map.begin()->value, -map.begin()->key);
}

TEST(QxHashMap, NaNKeysAreOneKeyWhateverTheirBits)
{
    const double other = std::bit_cast<double>(0xfff8000000001234u);
    QxHashMap<int, double> map;
    map.insert(std::bit_cast<double>(0x7ff8000000000001u), 1);

    EXPECT_FALSE(map.lookup(other).notFound);
    EXPECT_FALSE(map.insert(other, 2).inserted);
}

TEST(QxHashMap, ComplexKeysWithNaNPartsAreFoundAgain)
{
    QxHashMap<int, Complex> map;
    map.insert({1, std::bit_cast<double>(0x7ff8000000000001u)}, 1);

    EXPECT_FALSE(map.lookup({1, -std::bit_cast<double>(0x7ff8000000000002u)}).notFound);
    EXPECT_TRUE(map.lookup({2, std::bit_cast<double>(0x7ff8000000000001u)}).notFound);
}

TEST(QxHashMap, NegativeZeroFindsZero)
{
    QxHashMap<int, double> map;
    map.insert(-0.0, 1);

    EXPECT_FALSE(map.lookup(0.0).notFound);
}

TEST(QxHashMap, PairsInBothOrdersAreTwoKeys)
{
    QxHashMap<int, std::pair<int, int>> map;

    EXPECT_TRUE(map.insert({1, 2}, 12).inserted);
    EXPECT_TRUE(map.insert({2, 1}, 21).inserted);

    EXPECT_EQ(map.at(map.lookup({1, 2}).slot), 12);
}

TEST(QxHashMap, TextWithHighBytesIsFoundAgain)
{
    QxHashMap<int, std::string> map;
    for (int byte = 0; byte < 256; ++byte)
        map.insert(std::string(2, static_cast<char>(byte)), byte);

    EXPECT_EQ(map.size(), 256u);
    EXPECT_EQ(map.at(map.lookup("\xff\xff").slot), 255);
}

TEST(QxHashMap, LookupWithFindsAPairWithoutBuildingIt)
{
    QxHashMap<int, std::pair<std::string, unsigned>> map;
    for (unsigned flags = 0; flags < 50; ++flags)
        map.insert({"a name too long for the small string buffer", flags}, static_cast<int>(flags));
    const QxHashFun hash;
    const std::string_view name = "a name too long for the small string buffer";
    const unsigned nameHash = hash(name);

    const long before = qxtest::allocationCount();
    const QxHashLookup found = map.lookupWith(QxHashFun::combine(nameHash, hash(17u)), [&](const auto& key) {
        return key.second == 17u && key.first == name;
    });

    EXPECT_EQ(qxtest::allocationCount(), before);
    ASSERT_FALSE(found.notFound);
    EXPECT_EQ(map.at(found.slot), 17);
}

TEST(QxHashMap, ResetDropsReferencesAndKeepsTheSize)
{
    const auto shared = boost::make_shared<int>(1);
    QxHashMap<boost::shared_ptr<int>, int> map;
    for (int i = 0; i < 20; ++i)
        map.insert(i, shared);
    const unsigned size = map.getTableSize();

    map.reset();

    EXPECT_EQ(shared.use_count(), 1);
    EXPECT_EQ(map.getTableSize(), size);
    EXPECT_EQ(map.size(), 0u);
    EXPECT_TRUE(map.lookup(3).notFound);
}

TEST(QxHashMap, ClearDropsAHundredThousandReferencesAndIteratesNothing)
{
    const auto shared = boost::make_shared<int>(1);
    QxHashMap<boost::shared_ptr<int>, int> map;
    for (int i = 0; i < 100000; ++i)
        map.insert(i, shared);

    map.clear();

    EXPECT_EQ(shared.use_count(), 1);
    EXPECT_EQ(map.getTableSize(), 2u);
    EXPECT_EQ(map.getGrowLimit(), 1u);
    EXPECT_TRUE(map.begin() == map.end());
    EXPECT_EQ(sizesWhileInserting(map, 6), (std::vector<unsigned>{2, 4, 8, 8, 8, 16}));
}

TEST(QxHashMap, ClearOfAnEmptyTableOfTwoDoesNothing)
{
    QxHashMap<int, int> map(0, false);
    const long before = qxtest::allocationCount();

    map.clear();

    EXPECT_EQ(map.getTableSize(), 2u);
    EXPECT_EQ(qxtest::allocationCount(), before);
}

TEST(QxHashMap, RequiredQuirkClearOfANeverUsedLazyMapAllocates)
{
    QxHashMap<int, int> map(0, true);

    map.clear();

    EXPECT_EQ(map.getTableSize(), 2u);
}

TEST(QxHashMap, RequiredQuirkAKnownKeyAtTheLoadLimitStillGrowsTheTable)
{
    QxHashMap<int, int> map;
    map.insert(1, 10);
    map.insert(2, 20);
    ASSERT_EQ(map.getTableSize(), 4u);
    ASSERT_EQ(map.size(), map.getGrowLimit());

    const QxHashInsert again = map.insertKey(1);

    EXPECT_FALSE(again.inserted);
    EXPECT_EQ(map.at(again.slot), 10);
    EXPECT_EQ(map.getTableSize(), 8u);
}

TEST(QxHashMap, RequiredQuirkCollisionsCountTheProbesOfRehashingToo)
{
    const std::vector<int> keys = twoCollidingKeysAndOne();
    QxHashMap<int, int> map;

    map.insert(keys[0], 0);
    map.insert(keys[1], 1);
    EXPECT_EQ(map.getCollisions(), 1u);

    map.insert(keys[2], 2); // grows to 8: the first two meet again
    EXPECT_EQ(map.getCollisions(), 2u);
}

TEST(QxHashMap, ResizeKeepsTheEntriesAndNeverDropsBelowThem)
{
    QxHashMap<int, int> map;
    for (int i = 0; i < 10; ++i)
        map.insert(i, i * i);

    map.resize(100);
    EXPECT_EQ(map.getTableSize(), 256u);
    EXPECT_EQ(map.at(map.lookup(7).slot), 49);

    map.resize(0);
    EXPECT_EQ(map.getTableSize(), 16u);
    EXPECT_EQ(map.size(), 10u);
    EXPECT_EQ(map.at(map.lookup(7).slot), 49);
}

TEST(QxHashMap, ResizeNoRehashDropsTheEntries)
{
    QxHashMap<int, int> map;
    map.insert(1, 1);

    map.resizeNoRehash(100);

    EXPECT_EQ(map.getTableSize(), 256u);
    EXPECT_EQ(map.size(), 0u);
    EXPECT_TRUE(map.lookup(1).notFound);
}

TEST(QxHashMap, AKeyThatLivesInTheTableMayBeInsertedAtTheLoadLimit)
{
    QxHashMap<int, std::string> map;
    map.insert("a key too long for the small string buffer", 1);

    const std::string& own = map.begin()->key;
    const QxHashInsert again = map.insertKey(own);

    EXPECT_FALSE(again.inserted);
    EXPECT_EQ(map.key(again.slot), "a key too long for the small string buffer");
}

TEST(QxHashMap, AFailingAllocationLeavesTheTableAsItWas)
{
    const std::string name(40, 'n');
    qxtest::failEveryAllocation(
        [&] {
            QxHashMap<int, std::string> map;
            for (int i = 0; i < 20; ++i) {
                const unsigned count = map.size();
                try {
                    map.insert(name + std::to_string(i), i);
                } catch (const std::bad_alloc&) {
                    int found = 0;
                    for (const auto& entry : map)
                        found += entry.key.size() > name.size() && entry.value >= 0;
                    if (map.size() != count || found != static_cast<int>(count))
                        QX_RAISE("test", "Table_was_changed");
                    throw;
                }
            }
        },
        [](const qxtest::FaultRun& run) {
            EXPECT_EQ(run.id, "");
            EXPECT_EQ(run.badAlloc, run.faulted);
            EXPECT_EQ(run.leaked, 0);
        });
}

TEST(QxHashSet, BehavesLikeAMapWithoutValues)
{
    QxHashMap<int, int> map(0, true);
    QxHashSet<int> set(0, true);
    std::mt19937 random(5);

    for (int i = 0; i < 2000; ++i) {
        const int key = static_cast<int>(random() % 700);
        EXPECT_EQ(map.insertKey(key).inserted, set.insert(key).inserted);
        ASSERT_EQ(map.getTableSize(), set.getTableSize());
    }

    EXPECT_EQ(map.size(), set.size());
    EXPECT_EQ(map.getCollisions(), set.getCollisions());
    for (int key = 0; key < 700; ++key)
        EXPECT_EQ(map.contains(key), set.contains(key));
}
