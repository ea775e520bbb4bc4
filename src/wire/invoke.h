// Turns a checked request into the three words of a table function call and the function's
// results into a response. Every area the function receives (key, value word, descriptor and its
// data area, record) is allocated here for this one call and sized from the request and the
// schema, never from anything the function could be told to trust beyond it.
#pragma once

#include <cstdint>

#include "wire/protocol.h"

namespace wire {

// Same shape as the command table's function type.
using TableFunc = int32_t (*)(uintptr_t, uintptr_t, uintptr_t);

// req must have passed checkRequest. A null fn (an empty slot or a function not built) answers
// -1 without a call, like an unknown command id.
Response invoke(const Request& req, TableFunc fn);

}  // namespace wire
