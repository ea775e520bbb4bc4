// Ordered trees with the calls of the platform's AVL library. A record embeds an avl_node_t at a
// fixed offset; the tree only links records and never owns them. Built on Boost.Intrusive's AVL
// algorithms.
#pragma once

#include <cstddef>
#include <cstdint>

struct avl_node_t {
  avl_node_t* parent;
  avl_node_t* left;
  avl_node_t* right;
  int balance;
};

// Returns -1, 0 or 1 for two records of the tree.
using avl_compar_t = int (*)(const void*, const void*);

struct avl_tree_t {
  avl_node_t header;  // Boost's header node: parent = root, left = leftmost, right = rightmost
  avl_compar_t compar;
  size_t size;        // record size, as given at creation
  size_t offset;      // offset of the avl_node_t inside a record
  uint32_t numnodes;
};

// An insertion point from avl_find: the node under which the record goes, and on which side.
using avl_index_t = uintptr_t;

constexpr int AVL_BEFORE = 0;
constexpr int AVL_AFTER = 1;

void avl_create(avl_tree_t* tree, avl_compar_t compar, size_t size, size_t offset);
void* avl_find(avl_tree_t* tree, const void* key, avl_index_t* where);
void avl_insert(avl_tree_t* tree, void* record, avl_index_t where);
// Inserts by key; a record whose key is already present is refused with -1.
int avl_add(avl_tree_t* tree, void* record);
void avl_remove(avl_tree_t* tree, void* record);
void* avl_first(avl_tree_t* tree);
void* avl_last(avl_tree_t* tree);
void* avl_next(avl_tree_t* tree, void* record);
void* avl_prev(avl_tree_t* tree, void* record);
void* avl_walk(avl_tree_t* tree, void* record, int direction);
void* avl_nearest(avl_tree_t* tree, avl_index_t where, int direction);
uint32_t avl_numnodes(const avl_tree_t* tree);
int avl_is_empty(const avl_tree_t* tree);
// Unlinks every record and leaves the tree empty and unusable until the next avl_create.
void avl_destroy(avl_tree_t* tree);
