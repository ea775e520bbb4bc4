// The device's table storage against the std::map it stands for: after every step of a random
// mix of writes, removals and reads, both hold the same keys and values in the same order.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include "platform/vdev/flat_table.h"

namespace {

using Value = std::vector<int>;
using Table = vdev::FlatTable<int, Value>;

bool same(const Table& t, const std::map<int, Value>& m) {
  return std::equal(t.begin(), t.end(), m.begin(), m.end(), [](const auto& a, const auto& b) {
    return a.first == b.first && a.second == b.second;
  });
}

TEST(FlatTableTest, ReadsAsTheMapThroughAnyMixOfOperations) {
  struct Case {
    const char* name;
    int keys;  // key range: small ranges bring keys back, large ones compact the index
    int steps;
    unsigned seed;
  };
  const Case cases[] = {
      {"few keys coming and going", 4, 300, 1},
      {"more gone keys than the spares", 300, 1200, 2},
      {"wide range", 3000, 1200, 3},
  };
  // Each run fills, then mostly empties (gone keys outnumber the live ones: the index is
  // compacted and their slots go to new keys), then mixes both.
  enum Op { Write, Take, Erase, Read };
  constexpr Op kPhases[3][5] = {{Write, Take, Write, Erase, Read},
                                {Erase, Erase, Erase, Take, Read},
                                {Write, Take, Erase, Erase, Read}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Table t;
    std::map<int, Value> m;
    std::mt19937 rng(c.seed);
    for (int step = 0; step < c.steps; ++step) {
      const int k = static_cast<int>(rng() % static_cast<unsigned>(c.keys));
      const int v = static_cast<int>(rng() % 1000);
      switch (kPhases[step * 3 / c.steps][rng() % 5]) {
        case Write:  // operator[]: a new key reads as a fresh value, whatever its slot held
          t[k].push_back(v);
          m[k].push_back(v);
          break;
        case Take: {  // the caller writes the whole value
          auto [val, was] = t.take(k);
          ASSERT_EQ(was, m.contains(k));
          val = {v, v};
          m[k] = {v, v};
          break;
        }
        case Erase:
          ASSERT_EQ(t.erase(k), m.erase(k));
          break;
        case Read:
          ASSERT_EQ(t.contains(k), m.contains(k));
          if (auto it = t.find(k); it != t.end()) {
            EXPECT_EQ(it->second, m.at(k));
          }
          break;
      }
      ASSERT_EQ(t.size(), m.size());
      // The whole contents every few steps: each walk costs as much as the table is long.
      if (step % 8 == 0) {
        ASSERT_TRUE(same(t, m)) << "after step " << step;
      }
    }
    ASSERT_TRUE(same(t, m));
    const Table copy = t;
    EXPECT_TRUE(same(copy, m));
    t.clear();
    EXPECT_TRUE(t.empty());
    EXPECT_EQ(t.begin(), t.end());
  }
}

TEST(FlatTableTest, AtOfAnAbsentOrGoneKeyThrows) {
  Table t;
  t[1] = {7};
  EXPECT_EQ(t.at(1), Value{7});
  t.erase(1);
  EXPECT_THROW(t.at(1), std::out_of_range);
  EXPECT_THROW(t.at(2), std::out_of_range);
}

}  // namespace
