// Heap blocks and the platform clock.
#include <time.h>

#include <atomic>
#include <cstdlib>

#include "platform/fault.h"
#include "platform/sil.h"

namespace {
std::atomic<uint64_t> gClockOffsetMs{0};
}

void* silCalloc(size_t count, size_t size) {
  if (plat::faultHit({.call = "silCalloc"})) return nullptr;
  // calloc itself refuses a count x size that overflows.
  return std::calloc(count, size);
}

void silFree(void* block) { std::free(block); }

uint64_t silGetUpTime1ms() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000 + static_cast<uint64_t>(ts.tv_nsec) / 1000000 +
         gClockOffsetMs.load(std::memory_order_relaxed);
}

void silUpTimeAdvanceForTest(uint64_t ms) { gClockOffsetMs += ms; }

namespace plat {
void clockResetForTest() { gClockOffsetMs = 0; }
}  // namespace plat
