// The buffers a table function receives: the address of a big-endian value word, or of a buffer
// descriptor (native {data address, u32 length}) whose data the function fills.
#pragma once

#include <cstdint>
#include <span>

#include "wire/be.h"
#include "wire/buf_desc.h"

inline uint32_t tblValue(uintptr_t buf) { return be::load32(reinterpret_cast<const void*>(buf)); }
inline void tblSetValue(uintptr_t buf, uint32_t v) { be::store32(reinterpret_cast<void*>(buf), v); }
inline wire::BufDesc* tblDesc(uintptr_t buf) { return reinterpret_cast<wire::BufDesc*>(buf); }

// Copies at most the descriptor's length of bytes into its data area and clamps the length word
// to what was copied.
void tblDescPut(wire::BufDesc* desc, std::span<const uint8_t> bytes);

// The capability record of the scalar tables: at least 12 bytes; the length is clamped to 12, the
// first word set to 1 and the third to 2, the second left as the client sent it. false when the
// descriptor is too short.
bool tblCapabilityPut(wire::BufDesc* desc);
