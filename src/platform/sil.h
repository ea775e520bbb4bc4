// System interface layer: the platform's memory pools, semaphores, tasks, timers, heap, up-time
// and option store. On the device these come from a closed library; this is our own
// implementation with the same calls and results.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/avl.h"

// ---------------------------------------------------------------------------------------------
// Fixed-entry memory pools.
//
// A pool is sized once: every entry is reserved by silMemPoolInit and allocation never grows it.
// With the indexed flag every entry exists from the start and is reached by its number through
// silMemPoolId2Entry, whether or not it has been allocated.
struct SilMemPool;
using SIL_POOL_ID = SilMemPool*;

int silMemPoolInit(SIL_POOL_ID* pool, const char* name, uint32_t entries, uint32_t entrySize,
                   int indexed);
// A free entry, zeroed, or nullptr when the pool is exhausted. With idOut, the entry's number.
void* silMemPoolAlloc(SIL_POOL_ID pool, uint32_t* idOut);
// Gives an entry back. An address that is not an allocated entry of this pool is refused (-1).
int silMemPoolFree(SIL_POOL_ID pool, void* entry);
int silMemPoolDestroy(SIL_POOL_ID* pool);
void* silMemPoolId2Entry(SIL_POOL_ID pool, uint32_t id);

// Inspection, for the diagnostics and for tests.
struct SilMemPoolInfo {
  const char* name;
  uint32_t entries;
  uint32_t entrySize;
  uint32_t used;
  bool indexed;
};
bool silMemPoolInfoGet(SIL_POOL_ID pool, SilMemPoolInfo* info);
uint32_t silMemPoolLiveCount();  // pools created and not yet destroyed, process-wide

// ---------------------------------------------------------------------------------------------
// Mutual-exclusion semaphores. Like the device's, they may be taken again by the task that holds
// them (each take needs its own give). A handle is 0 when creation failed.
using SIL_SEM_ID = uintptr_t;
constexpr int SIL_WAIT_FOREVER = -1;
constexpr int SIL_NO_WAIT = 0;

SIL_SEM_ID silCreateMSem(uint32_t options);
int silTakeSem(SIL_SEM_ID sem, int timeoutMs);  // 0 taken, -1 timed out or bad handle
int silGiveSem(SIL_SEM_ID sem);                 // 0 given, -1 not held by this task
int silDeleteSem(SIL_SEM_ID sem);
uint32_t silSemLiveCount();

// ---------------------------------------------------------------------------------------------
// Named tasks. The entry runs in a thread of its own with the two arguments.
using SilTaskEntry = void (*)(uintptr_t arg1, uintptr_t arg2);
int silCreateTask(const char* name, int priority, uint32_t stackBytes, SilTaskEntry entry,
                  uintptr_t arg1, uintptr_t arg2, uint64_t* taskIdOut);
// True once the platform has been asked to stop every task (only the test teardown does); task
// loops test it between waits.
bool silTaskStopRequested();

// ---------------------------------------------------------------------------------------------
// Timer lists: one-shot timers run by whoever owns the list. Timers are embedded in their
// owner's records, which are plain memory cleared with memset; a list only links them. Not
// thread-safe: the owner serialises the calls.
using SilTimerCallback = void (*)(uintptr_t arg);

struct SilTimerList;

struct SilTimer {
  avl_node_t node;
  uint64_t expiry;  // up-time in ms
  uint64_t seq;     // start order, so timers due at the same time fire in that order
  SilTimerCallback callback;
  uintptr_t arg;
  SilTimerList* list;  // the list it is armed on, nullptr when idle
};

struct SilTimerList {
  avl_tree_t timers;  // by expiry, then start order
  uint64_t nextSeq;
  uint32_t ready;  // 1 after silTimerListInit
};

int silTimerListInit(SilTimerList* list);
// Arms (or re-arms) a one-shot timer; the callback runs once, from silTimerListCheck, after ms.
int silTimerStart(SilTimerList* list, SilTimer* timer, uint32_t flags, uint32_t ms,
                  SilTimerCallback callback, uintptr_t arg, uint32_t reserved1, uint32_t reserved2);
int silTimerStop(SilTimerList* list, SilTimer* timer);
int32_t silTimerListNextTimeout(SilTimerList* list);  // ms to the next expiry, -1 when none
int silTimerListCheck(SilTimerList* list);            // runs expired callbacks; returns how many
void silTimerListDestroy(SilTimerList* list);         // disarms every timer

// ---------------------------------------------------------------------------------------------
// Heap and time.
void* silCalloc(size_t count, size_t size);  // zeroed block or nullptr (also on overflow)
void silFree(void* block);
uint64_t silGetUpTime1ms();
// Tests move the platform clock forward instead of sleeping.
void silUpTimeAdvanceForTest(uint64_t ms);

// ---------------------------------------------------------------------------------------------
// Option store. The value of key is copied into buf (at most len bytes, then NUL-terminated); the
// result is the number of bytes written including the NUL when the option exists, else 0.
int silOptRead(uint32_t module, const char* key, uint32_t r1, uint32_t r2, uint32_t r3, char* buf,
               uint32_t len);
