// The counters behind the statistics reads, shared by the scalar and interface calls.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vdev {

constexpr size_t kCounterRequestLen = 88;

// Answers (or, with clear, resets) the counters of one 88-byte big-endian counter request; the
// interface index is 0 for rule statistics.
int counterRequest(uint32_t ifIndex, void* request, bool clear);

}  // namespace vdev
