// One request, one reply over the process-shell socket, each wait bounded by the deadline.
#include "client/shell_client.h"

#include <charconv>

#include "client/line_socket.h"

namespace aclclient {

namespace {

// A reply longer than this is not one our daemon sends.
constexpr size_t kMaxReply = size_t{256} << 20;

// "<status> <result> <length>" into reply and *len.
bool parseHeader(const std::string& line, ShellReply* reply, size_t* len) {
  const size_t a = line.find(' ');
  const size_t b = a == std::string::npos ? a : line.find(' ', a + 1);
  if (b == std::string::npos) return false;
  reply->status = line.substr(0, a);
  const char* p = line.data();
  const auto r1 = std::from_chars(p + a + 1, p + b, reply->result);
  const auto r2 = std::from_chars(p + b + 1, p + line.size(), *len);
  return r1.ec == std::errc() && r1.ptr == p + b && r2.ec == std::errc() &&
         r2.ptr == p + line.size() && *len <= kMaxReply;
}

}  // namespace

std::string shellSocketPath(const std::string& runDir) {
  return (runDir.empty() ? std::string("/tmp") : runDir) + "/" + kShellSocketName;
}

bool shellRequest(const std::string& path, const std::vector<std::string>& words, ShellReply* reply,
                  std::string* err, int timeoutMs) {
  std::string line;
  for (const auto& w : words) line += (line.empty() ? "" : " ") + w;
  line += '\n';
  // A header line "<status> <result> <length>", then exactly length bytes of text.
  size_t len = 0;
  const auto whole = [&](const std::string& got) {
    const size_t headerEnd = got.find('\n');
    if (headerEnd == std::string::npos) {
      return got.size() > 128 ? ReplyState::Bad : ReplyState::More;
    }
    if (!parseHeader(got.substr(0, headerEnd), reply, &len)) return ReplyState::Bad;
    return got.size() - headerEnd - 1 >= len ? ReplyState::Done : ReplyState::More;
  };
  std::string in;
  if (!lineExchange(path, line, timeoutMs, whole, "shell", &in, err)) return false;
  reply->text = in.substr(in.find('\n') + 1, len);
  return true;
}

}  // namespace aclclient
