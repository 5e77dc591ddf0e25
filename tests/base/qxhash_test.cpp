#include "qxhash.hpp"

#include <boost/shared_ptr.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

TEST(QxHashMap, GrowsThroughTwoFourEightSixteen)
{
    // By hand: load limit 0.72, growth to the table size for twice the count.
    QxHashMap<int, int> map(0, true);
    std::vector<unsigned> sizes;

    for (int i = 1; i <= 6; ++i) {
        map.insert(i, i);
        sizes.push_back(map.getTableSize());
    }

    EXPECT_EQ(sizes, (std::vector<unsigned>{2, 4, 8, 8, 8, 16}));
}
