// Comparator helpers for ordered-tree keys: -1, 0 or 1, the first pair that differs decides.
#pragma once

namespace keycmp {

template <typename T>
int compare(const T& a, const T& b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}

template <typename T, typename... Rest>
int compare(const T& a, const T& b, const Rest&... rest) {
  if (int c = compare(a, b)) return c;
  return compare(rest...);
}

}  // namespace keycmp
