// Request bodies from arbitrary bytes, served by the real command table: every request the schema
// lets through is called through the server's invoke on a started ACL group (with the meter and
// counter modules) over the built-in virtual device. The sanitizers catch any table function that
// reads or writes outside the memory invoke set aside for the call, whatever shape the request
// gave its buffer. State carries over from one input to the next, as it does in the daemon.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>

#include "api/acl_func_map.h"
#include "counter/counter.h"
#include "main/acl_group.h"
#include "meter/meter.h"
#include "platform/logging.h"
#include "platform/proc.h"
#include "wire/invoke.h"
#include "wire/protocol.h"
#include "wire/schema.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  // The platform's sockets go into a run directory of this process's own.
  char dir[] = "/tmp/acl-fuzz-XXXXXX";
  if (mkdtemp(dir) == nullptr) std::abort();
  plat::setRunDir(dir);
  // Debug bits set by a request would write a line per call.
  plat::logSetSink(plat::LogSink::File, "/dev/null");
  if (counterOptInit() != 0 || meterOptInit() != 0 || aclOptInit() != 0) std::abort();
  // Registered after start-up, so it runs before the platform's statics are destroyed: the tasks
  // stop while everything they use still exists.
  static const std::string runDir = dir;
  std::atexit([] {
    aclResetForTest();
    std::error_code ec;
    std::filesystem::remove_all(runDir, ec);
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Whole request frames, as the server reads them (and as the wire_request seeds are).
  const std::span<const uint8_t> in(data, size);
  wire::FrameHeader hdr;
  if (wire::decodeHeader(in, wire::kKindRequest, &hdr) != wire::Status::Ok) return 0;
  if (size < wire::kHeaderLen + hdr.bodyLen) return 0;
  wire::Request req;
  if (wire::decodeRequest(in.subspan(wire::kHeaderLen, hdr.bodyLen), &req) != wire::Status::Ok) {
    return 0;
  }
  if (wire::checkRequest(req) != wire::Status::Ok) return 0;
  const wire::Response resp = wire::invoke(req, gAclFuncMap[req.funcId].func);
  // Whatever the function claimed in its length word, the answer still encodes and decodes.
  const auto out = wire::encodeResponse(0, resp);
  wire::Response back;
  if (wire::decodeResponse(std::span(out).subspan(wire::kHeaderLen), &back) != wire::Status::Ok) {
    std::abort();
  }
  return 0;
}
