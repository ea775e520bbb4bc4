// Circular doubly linked lists: a head is a node whose two links point to itself when the list is
// empty. Records embed a node and are linked without allocation. Built on Boost.Intrusive's
// circular list algorithms.
#pragma once

#include <cstddef>

#include <boost/intrusive/circular_list_algorithms.hpp>

struct SilDlNode {
  SilDlNode* next;
  SilDlNode* prev;
};

namespace dlist {

struct NodeTraits {
  using node = SilDlNode;
  using node_ptr = SilDlNode*;
  using const_node_ptr = const SilDlNode*;
  static node_ptr get_next(const_node_ptr n) { return n->next; }
  static void set_next(node_ptr n, node_ptr next) { n->next = next; }
  static node_ptr get_previous(const_node_ptr n) { return n->prev; }
  static void set_previous(node_ptr n, node_ptr prev) { n->prev = prev; }
};
using Algo = boost::intrusive::circular_list_algorithms<NodeTraits>;

inline void init(SilDlNode* head) { Algo::init_header(head); }
inline bool empty(const SilDlNode* head) { return head->next == head; }
// A node that is not on any list has null links.
inline bool linked(const SilDlNode* n) { return n->next != nullptr; }
inline void insertAfter(SilDlNode* pos, SilDlNode* n) { Algo::link_after(pos, n); }
inline void insertBefore(SilDlNode* pos, SilDlNode* n) { Algo::link_before(pos, n); }
inline void pushBack(SilDlNode* head, SilDlNode* n) { Algo::link_before(head, n); }
inline void unlink(SilDlNode* n) {
  Algo::unlink(n);
  n->next = n->prev = nullptr;
}
inline size_t count(const SilDlNode* head) {
  size_t c = 0;
  for (const SilDlNode* n = head->next; n != head; n = n->next) ++c;
  return c;
}

// The record that holds node n at byte offset off (offsetof of a plain record).
template <typename Rec>
Rec* owner(SilDlNode* n, size_t off) {
  return reinterpret_cast<Rec*>(reinterpret_cast<char*>(n) - off);
}

}  // namespace dlist
