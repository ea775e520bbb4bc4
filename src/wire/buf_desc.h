// The in-memory buffer descriptor a table function receives: the address of a data area and its
// length in bytes. A Get clamps the length to what it wrote.
#pragma once

#include <cstdint>

namespace wire {

struct BufDesc {
  void* data;
  uint32_t len;
};

}  // namespace wire
