// Ordered trees on Boost.Intrusive's AVL algorithms. The tree's header node is Boost's header:
// its parent is the root and its left and right links the smallest and largest records.
#include "platform/avl.h"

#include <boost/intrusive/avltree_algorithms.hpp>

namespace {

struct NodeTraits {
  using node = avl_node_t;
  using node_ptr = avl_node_t*;
  using const_node_ptr = const avl_node_t*;
  using balance = int;

  static node_ptr get_parent(const_node_ptr n) { return n->parent; }
  static void set_parent(node_ptr n, node_ptr p) { n->parent = p; }
  static node_ptr get_left(const_node_ptr n) { return n->left; }
  static void set_left(node_ptr n, node_ptr l) { n->left = l; }
  static node_ptr get_right(const_node_ptr n) { return n->right; }
  static void set_right(node_ptr n, node_ptr r) { n->right = r; }
  static balance get_balance(const_node_ptr n) { return n->balance; }
  static void set_balance(node_ptr n, balance b) { n->balance = b; }
  static balance negative() { return -1; }
  static balance zero() { return 0; }
  static balance positive() { return 1; }
};

using Algo = boost::intrusive::avltree_algorithms<NodeTraits>;

avl_node_t* nodeOf(const avl_tree_t* t, const void* rec) {
  return reinterpret_cast<avl_node_t*>(static_cast<char*>(const_cast<void*>(rec)) + t->offset);
}

void* recordOf(const avl_tree_t* t, const avl_node_t* n) {
  return const_cast<char*>(reinterpret_cast<const char*>(n)) - t->offset;
}

// Orders a key record against records in the tree, in both argument orders as Boost asks.
struct KeyCompare {
  const avl_tree_t* tree;
  bool operator()(const void* key, const avl_node_t* n) const {
    return tree->compar(key, recordOf(tree, n)) < 0;
  }
  bool operator()(const avl_node_t* n, const void* key) const {
    return tree->compar(recordOf(tree, n), key) < 0;
  }
};

// An insertion point packs the parent node and the side: bit 0 set for the right child.
avl_index_t encodeWhere(const Algo::insert_commit_data& d) {
  return reinterpret_cast<uintptr_t>(d.node) | (d.link_left ? 0 : 1);
}

Algo::insert_commit_data decodeWhere(avl_index_t where) {
  Algo::insert_commit_data d;
  d.node = reinterpret_cast<avl_node_t*>(where & ~uintptr_t{1});
  d.link_left = (where & 1) == 0;
  return d;
}

void* orNull(avl_tree_t* t, avl_node_t* n) {
  return (n == nullptr || n == &t->header) ? nullptr : recordOf(t, n);
}

}  // namespace

void avl_create(avl_tree_t* tree, avl_compar_t compar, size_t size, size_t offset) {
  Algo::init_header(&tree->header);
  tree->compar = compar;
  tree->size = size;
  tree->offset = offset;
  tree->numnodes = 0;
}

void* avl_find(avl_tree_t* tree, const void* key, avl_index_t* where) {
  Algo::insert_commit_data d;
  auto [node, free] = Algo::insert_unique_check(&tree->header, key, KeyCompare{tree}, d);
  if (!free) return recordOf(tree, node);
  if (where) *where = encodeWhere(d);
  return nullptr;
}

void avl_insert(avl_tree_t* tree, void* record, avl_index_t where) {
  Algo::insert_unique_commit(&tree->header, nodeOf(tree, record), decodeWhere(where));
  ++tree->numnodes;
}

int avl_add(avl_tree_t* tree, void* record) {
  avl_index_t where = 0;
  if (avl_find(tree, record, &where) != nullptr) return -1;
  avl_insert(tree, record, where);
  return 0;
}

void avl_remove(avl_tree_t* tree, void* record) {
  avl_node_t* n = nodeOf(tree, record);
  Algo::erase(&tree->header, n);
  *n = avl_node_t{};
  --tree->numnodes;
}

void* avl_first(avl_tree_t* tree) { return orNull(tree, Algo::begin_node(&tree->header)); }

void* avl_last(avl_tree_t* tree) {
  return tree->numnodes == 0 ? nullptr : recordOf(tree, tree->header.right);
}

void* avl_next(avl_tree_t* tree, void* record) {
  return record ? orNull(tree, Algo::next_node(nodeOf(tree, record))) : nullptr;
}

void* avl_prev(avl_tree_t* tree, void* record) {
  if (record == nullptr) return nullptr;
  avl_node_t* n = nodeOf(tree, record);
  if (n == Algo::begin_node(&tree->header)) return nullptr;
  return orNull(tree, Algo::prev_node(n));
}

void* avl_walk(avl_tree_t* tree, void* record, int direction) {
  return direction == AVL_AFTER ? avl_next(tree, record) : avl_prev(tree, record);
}

void* avl_nearest(avl_tree_t* tree, avl_index_t where, int direction) {
  const Algo::insert_commit_data d = decodeWhere(where);
  if (d.node == nullptr || d.node == &tree->header) return nullptr;  // the tree was empty
  void* parent = recordOf(tree, d.node);
  // A record that would go left of its parent sorts just before it; one that would go right,
  // just after it.
  const int side = d.link_left ? AVL_BEFORE : AVL_AFTER;
  return side == direction ? avl_walk(tree, parent, direction) : parent;
}

uint32_t avl_numnodes(const avl_tree_t* tree) { return tree->numnodes; }

int avl_is_empty(const avl_tree_t* tree) { return tree->numnodes == 0; }

void avl_destroy(avl_tree_t* tree) {
  Algo::clear_and_dispose(&tree->header, [](avl_node_t* n) { *n = avl_node_t{}; });
  Algo::init_header(&tree->header);
  tree->numnodes = 0;
  tree->compar = nullptr;
}
