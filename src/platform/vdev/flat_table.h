// A table by key that reads like a std::map (iteration in key order, find, contains, at,
// operator[], erase, size) and that a rule command can write without allocating or rebalancing.
//
// Values live in slots, as a device's table holds entries by index; a sorted index of keys names
// each key's slot. A key that leaves stays in the index, marked gone, with its slot and the
// buffers in it: when the same key comes back (a rule removed and installed again, a table that
// emptied and fills again) it takes them up with one search and no allocation. Gone keys are
// invisible to every reader. When they outnumber the live ones the index is compacted and their
// slots wait for new keys; past kSpareSlots such slots give their value's memory back.
//
// Like the maps it stands for, it is used under the device mutex only.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

namespace vdev {

// The order of keys: their operator<, or a cheaper function of the same order found for the key
// type (the three-way comparison a defaulted or tuple operator< goes through costs more than the
// rest of a search in a small table).
template <typename K>
bool keyLess(const K& a, const K& b) {
  return a < b;
}
// (list, rule, direction) as one 96-bit number: the tuple's order.
inline bool keyLess(const std::tuple<uint32_t, uint32_t, uint32_t>& a,
                    const std::tuple<uint32_t, uint32_t, uint32_t>& b) {
  const auto wide = [](const std::tuple<uint32_t, uint32_t, uint32_t>& k) {
    return static_cast<unsigned __int128>(std::get<0>(k)) << 64 |
           static_cast<uint64_t>(std::get<1>(k)) << 32 | std::get<2>(k);
  };
  return wide(a) < wide(b);
}

template <typename K, typename V>
class FlatTable {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;
  using size_type = size_t;

  template <bool Const>
  class Iter {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::pair<K, V>;
    using difference_type = std::ptrdiff_t;
    using pointer = std::conditional_t<Const, const value_type*, value_type*>;
    using reference = std::conditional_t<Const, const value_type&, value_type&>;
    using Table = std::conditional_t<Const, const FlatTable, FlatTable>;

    Iter() = default;
    Iter(Table* t, size_t pos) : t_(t), pos_(pos) { skipGone(); }
    // A mutable iterator reads as a constant one.
    operator Iter<true>() const requires(!Const) { return Iter<true>(t_, pos_); }

    reference operator*() const { return t_->slots_[t_->index_[pos_].slot]; }
    pointer operator->() const { return &**this; }
    Iter& operator++() {
      ++pos_;
      skipGone();
      return *this;
    }
    Iter operator++(int) {
      Iter old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(const Iter& a, const Iter& b) { return a.pos_ == b.pos_; }

   private:
    void skipGone() {
      while (t_ != nullptr && pos_ < t_->index_.size() && !t_->index_[pos_].live) ++pos_;
    }
    Table* t_ = nullptr;
    size_t pos_ = 0;
  };
  using iterator = Iter<false>;
  using const_iterator = Iter<true>;

  // Slots that left the index keep their value's buffers up to this many.
  static constexpr size_t kSpareSlots = 64;

  iterator begin() { return iterator(this, 0); }
  iterator end() { return iterator(this, index_.size()); }
  const_iterator begin() const { return const_iterator(this, 0); }
  const_iterator end() const { return const_iterator(this, index_.size()); }

  size_t size() const { return live_; }
  bool empty() const { return live_ == 0; }

  iterator find(const K& k) {
    const size_t p = position(k);
    return iterator(this, isLive(p, k) ? p : index_.size());
  }
  const_iterator find(const K& k) const {
    const size_t p = position(k);
    return const_iterator(this, isLive(p, k) ? p : index_.size());
  }
  bool contains(const K& k) const { return isLive(position(k), k); }
  size_t count(const K& k) const { return contains(k) ? 1 : 0; }

  V& at(const K& k) {
    const size_t p = position(k);
    if (!isLive(p, k)) throw std::out_of_range("FlatTable::at");
    return slots_[index_[p].slot].second;
  }
  const V& at(const K& k) const {
    const size_t p = position(k);
    if (!isLive(p, k)) throw std::out_of_range("FlatTable::at");
    return slots_[index_[p].slot].second;
  }

  // The value of k, made (value-initialised) when k is not in the table.
  V& operator[](const K& k) {
    auto [v, was] = take(k);
    if (!was) v = V{};
    return v;
  }

  // The value of k and whether k was already in the table. When it was not, k is now, and the
  // value is whatever its slot last held (a gone key's own value, or another's): the caller
  // writes every part of it. This is how a rule command reuses the buffers of what left.
  std::pair<V&, bool> take(const K& k) {
    size_t p = position(k);
    if (p < index_.size() && index_[p].key == k) {
      Entry& e = index_[p];
      const bool was = e.live;
      if (!was) {
        e.live = true;
        ++live_;
      }
      return {slots_[e.slot].second, was};
    }
    uint32_t slot;
    if (!free_.empty()) {
      slot = free_.back();
      free_.pop_back();
      slots_[slot].first = k;
    } else {
      slot = static_cast<uint32_t>(slots_.size());
      slots_.emplace_back(k, V{});
    }
    index_.insert(index_.begin() + static_cast<std::ptrdiff_t>(p), Entry{k, slot, true});
    ++live_;
    return {slots_[slot].second, false};
  }

  // Takes k out; its value stays in its slot, unseen, for k's return. 1 when k was there.
  size_t erase(const K& k) {
    const size_t p = position(k);
    if (!isLive(p, k)) return 0;
    index_[p].live = false;
    --live_;
    if (index_.size() - live_ > kSpareSlots && index_.size() - live_ > live_) compact();
    return 1;
  }

  void clear() {
    index_.clear();
    slots_.clear();
    free_.clear();
    live_ = 0;
  }

 private:
  struct Entry {
    K key;
    uint32_t slot;
    bool live;
  };

  size_t position(const K& k) const {
    return static_cast<size_t>(
        std::lower_bound(index_.begin(), index_.end(), k,
                         [](const Entry& e, const K& key) { return keyLess(e.key, key); }) -
        index_.begin());
  }
  bool isLive(size_t p, const K& k) const {
    return p < index_.size() && index_[p].live && index_[p].key == k;
  }

  // Drops the gone keys from the index; their slots wait for new keys.
  void compact() {
    auto kept = index_.begin();
    for (auto it = index_.begin(); it != index_.end(); ++it) {
      if (it->live) {
        *kept++ = *it;
        continue;
      }
      if (free_.size() >= kSpareSlots) slots_[it->slot].second = V{};
      free_.push_back(it->slot);
    }
    index_.erase(kept, index_.end());
  }

  std::vector<Entry> index_;      // every key that has a slot, in key order
  std::deque<value_type> slots_;  // by slot number; a deque keeps references stable
  std::vector<uint32_t> free_;    // slots no key names
  size_t live_ = 0;
};

}  // namespace vdev
