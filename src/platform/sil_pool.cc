// Fixed-entry memory pools.
//
// All entries of a pool live in one block reserved at creation. The block is taken from the
// kernel lazily (calloc of a large block maps zero pages), so a pool sized for the worst case costs
// memory only for the entries that are used. Free entries are found through an index stack and a
// high-water mark, and an allocation bitmap lets a free of a foreign or already-free address be
// refused instead of corrupting the pool.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "platform/fault.h"
#include "platform/sil.h"

struct SilMemPool {
  std::string name;
  uint32_t entries = 0;
  uint32_t entrySize = 0;
  bool indexed = false;
  uint8_t* block = nullptr;
  uint32_t* freeStack = nullptr;  // numbers of entries given back, most recent on top
  uint32_t freeTop = 0;
  uint32_t highWater = 0;  // entries [highWater, entries) have never been handed out
  uint8_t* usedBits = nullptr;
  uint32_t used = 0;
  std::mutex mutex;
};

namespace {

std::mutex gLiveMutex;
uint32_t gLivePools = 0;

// The pools of a process are sized once from start-up options; refuse a size no 32-bit target
// could hold rather than ask the kernel for it.
constexpr uint64_t kMaxPoolBytes = uint64_t{1} << 32;

bool testBit(const uint8_t* bits, uint32_t n) { return (bits[n / 8] & (0x80u >> (n % 8))) != 0; }
void setBit(uint8_t* bits, uint32_t n) { bits[n / 8] |= static_cast<uint8_t>(0x80u >> (n % 8)); }
void clearBit(uint8_t* bits, uint32_t n) {
  bits[n / 8] &= static_cast<uint8_t>(~(0x80u >> (n % 8)));
}

void releaseStorage(SilMemPool* p) {
  std::free(p->block);
  std::free(p->freeStack);
  std::free(p->usedBits);
}

// The number of an entry of p at address e, or -1 when e is not the start of one of its entries.
int64_t entryNumber(const SilMemPool* p, const void* e) {
  const auto* b = static_cast<const uint8_t*>(e);
  if (b < p->block) return -1;
  const uint64_t off = static_cast<uint64_t>(b - p->block);
  if (off % p->entrySize != 0) return -1;
  const uint64_t n = off / p->entrySize;
  return n < p->entries ? static_cast<int64_t>(n) : -1;
}

}  // namespace

int silMemPoolInit(SIL_POOL_ID* pool, const char* name, uint32_t entries, uint32_t entrySize,
                   int indexed) {
  if (pool == nullptr) return -1;
  *pool = nullptr;
  if (auto f = plat::faultHit({.call = "silMemPoolInit", .name = name ? name : ""})) return *f;
  if (entries == 0 || entrySize == 0) return -1;
  if (uint64_t{entries} * entrySize > kMaxPoolBytes) return -1;

  auto p = std::make_unique<SilMemPool>();
  p->name = name ? name : "";
  p->entries = entries;
  p->entrySize = entrySize;
  p->indexed = indexed != 0;
  p->block = static_cast<uint8_t*>(std::calloc(entries, entrySize));
  p->freeStack = static_cast<uint32_t*>(std::calloc(entries, sizeof(uint32_t)));
  p->usedBits = static_cast<uint8_t*>(std::calloc((entries + 7) / 8, 1));
  if (p->block == nullptr || p->freeStack == nullptr || p->usedBits == nullptr) {
    releaseStorage(p.get());
    return -1;
  }
  {
    std::lock_guard lock(gLiveMutex);
    ++gLivePools;
  }
  *pool = p.release();
  return 0;
}

void* silMemPoolAlloc(SIL_POOL_ID p, uint32_t* idOut) {
  if (p == nullptr) return nullptr;
  if (plat::faultHit({.call = "silMemPoolAlloc", .name = p->name})) return nullptr;
  std::lock_guard lock(p->mutex);
  uint32_t n;
  if (p->freeTop > 0) {
    n = p->freeStack[--p->freeTop];
  } else if (p->highWater < p->entries) {
    n = p->highWater++;
  } else {
    return nullptr;
  }
  setBit(p->usedBits, n);
  ++p->used;
  void* e = p->block + uint64_t{n} * p->entrySize;
  std::memset(e, 0, p->entrySize);
  if (idOut) *idOut = n;
  return e;
}

int silMemPoolFree(SIL_POOL_ID p, void* entry) {
  if (p == nullptr || entry == nullptr) return -1;
  std::lock_guard lock(p->mutex);
  const int64_t n = entryNumber(p, entry);
  if (n < 0 || !testBit(p->usedBits, static_cast<uint32_t>(n))) return -1;
  clearBit(p->usedBits, static_cast<uint32_t>(n));
  p->freeStack[p->freeTop++] = static_cast<uint32_t>(n);
  --p->used;
  return 0;
}

int silMemPoolDestroy(SIL_POOL_ID* pool) {
  if (pool == nullptr || *pool == nullptr) return -1;
  std::unique_ptr<SilMemPool> p(*pool);
  *pool = nullptr;
  releaseStorage(p.get());
  std::lock_guard lock(gLiveMutex);
  --gLivePools;
  return 0;
}

void* silMemPoolId2Entry(SIL_POOL_ID p, uint32_t id) {
  if (p == nullptr || id >= p->entries) return nullptr;
  return p->block + uint64_t{id} * p->entrySize;
}

bool silMemPoolInfoGet(SIL_POOL_ID p, SilMemPoolInfo* info) {
  if (p == nullptr || info == nullptr) return false;
  std::lock_guard lock(p->mutex);
  *info = {p->name.c_str(), p->entries, p->entrySize, p->used, p->indexed};
  return true;
}

uint32_t silMemPoolLiveCount() {
  std::lock_guard lock(gLiveMutex);
  return gLivePools;
}
