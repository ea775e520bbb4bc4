#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <random>
#include <set>
#include <vector>

#include "platform/avl.h"

namespace {

struct Rec {
  int pad;  // the node need not be first in a record
  avl_node_t node;
  int key;
};

int cmpRec(const void* a, const void* b) {
  const int x = static_cast<const Rec*>(a)->key, y = static_cast<const Rec*>(b)->key;
  return x < y ? -1 : (x > y ? 1 : 0);
}

class AvlTest : public ::testing::Test {
 protected:
  void SetUp() override { avl_create(&tree, cmpRec, sizeof(Rec), offsetof(Rec, node)); }
  void TearDown() override { avl_destroy(&tree); }

  std::vector<int> inOrder() {
    std::vector<int> keys;
    for (void* r = avl_first(&tree); r; r = avl_next(&tree, r)) keys.push_back(key(r));
    return keys;
  }
  static int key(void* r) { return static_cast<Rec*>(r)->key; }

  avl_tree_t tree;
  // Records outlive the tree, as pool entries do.
  std::vector<Rec> recs = std::vector<Rec>(512);
  Rec dup{};
};

// Random inserts (by add, or at the point a find left) and removes against std::set: order,
// count, first/last, the refusal of a second record with a key in the tree, and the nearest
// neighbours of a probe that is not in the tree, agree; the tree starts empty.
TEST_F(AvlTest, RandomOperationsMatchReferenceSet) {
  constexpr int kKeys = 512;
  std::vector<bool> in(kKeys, false);
  std::set<int> ref;
  std::mt19937 rng(12345);
  EXPECT_TRUE(avl_is_empty(&tree));
  EXPECT_EQ(avl_first(&tree), nullptr);
  EXPECT_EQ(avl_last(&tree), nullptr);
  for (int i = 0; i < kKeys; ++i) recs[i].key = i * 3;
  for (int step = 0; step < 20000; ++step) {
    const int i = static_cast<int>(rng() % kKeys);
    if (in[i]) {
      dup.key = recs[i].key;
      ASSERT_EQ(avl_add(&tree, &dup), -1);
      avl_remove(&tree, &recs[i]);
      ref.erase(recs[i].key);
    } else if (step % 2 == 0) {
      ASSERT_EQ(avl_add(&tree, &recs[i]), 0);
      ref.insert(recs[i].key);
    } else {
      avl_index_t where = 0;
      ASSERT_EQ(avl_find(&tree, &recs[i], &where), nullptr);
      avl_insert(&tree, &recs[i], where);
      ref.insert(recs[i].key);
    }
    in[i] = !in[i];
    ASSERT_EQ(avl_numnodes(&tree), ref.size());
    if (step % 97 == 0) {
      ASSERT_EQ(inOrder(), std::vector<int>(ref.begin(), ref.end()));
      // A probe between keys finds the next greater key, as walks resuming from a gone key do.
      Rec k{0, {}, static_cast<int>(rng() % (kKeys * 3))};
      avl_index_t where = 0;
      void* hit = avl_find(&tree, &k, &where);
      auto it = ref.lower_bound(k.key);
      if (it != ref.end() && *it == k.key) {
        ASSERT_NE(hit, nullptr);
      } else {
        void* after = avl_nearest(&tree, where, AVL_AFTER);
        void* before = avl_nearest(&tree, where, AVL_BEFORE);
        ASSERT_EQ(after ? key(after) : -1, it == ref.end() ? -1 : *it);
        ASSERT_EQ(before ? key(before) : -1, it == ref.begin() ? -1 : *std::prev(it));
        if (after) {
          ASSERT_EQ(avl_walk(&tree, after, AVL_BEFORE), before);
        }
      }
    }
  }
  if (!ref.empty()) {
    EXPECT_EQ(key(avl_first(&tree)), *ref.begin());
    EXPECT_EQ(key(avl_last(&tree)), *ref.rbegin());
  }
}

TEST_F(AvlTest, DestroyUnlinksEveryRecord) {
  for (int i = 0; i < 10; ++i) {
    recs[i].key = i;
    avl_add(&tree, &recs[i]);
  }
  avl_destroy(&tree);
  EXPECT_TRUE(avl_is_empty(&tree));
  for (const Rec& r : recs) EXPECT_EQ(r.node.parent, nullptr);
  // The tree is usable again after a new create.
  avl_create(&tree, cmpRec, sizeof(Rec), offsetof(Rec, node));
  EXPECT_EQ(avl_add(&tree, &recs[3]), 0);
  EXPECT_EQ(inOrder(), std::vector<int>{3});
}

}  // namespace
