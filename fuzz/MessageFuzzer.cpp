#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "general/ipc/Frame.h"
#include "general/ipc/Message.h"

namespace {

constexpr std::size_t kMaximumSize = 4096;

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

/// Shows what came with another message.
class Echo : public ipc::ConnectionDelegate {
 public:
  explicit Echo(const ipc::Message& message) : data_(message.authentication) {}
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> /*components*/) override {
    return data_;
  }
  bool authenticateComponents(std::span<const std::byte> /*components*/, std::span<const std::byte> data) override {
    return std::vector<std::byte>(data.begin(), data.end()) == data_;
  }

 private:
  std::vector<std::byte> data_;
};

/// What is read must survive being sent on.
void readMessage(std::string_view content) {
  const auto message = ipc::decode(content);
  if (!message) return;
  Echo delegate(*message);
  const auto again = ipc::encode(*message, delegate);
  require(again.has_value(), "a message that was read cannot be sent");
  const auto second = ipc::decode(*again);
  require(second && second->kind == message->kind && second->selector == message->selector &&
              second->arguments == message->arguments && second->exceptionName == message->exceptionName &&
              second->exceptionReason == message->exceptionReason &&
              second->notification.name == message->notification.name &&
              second->notification.object == message->notification.object &&
              second->notification.userInfo == message->notification.userInfo,
          "a message is read back as another one");
  require(message->kind != ipc::Message::Kind::Reply || second->result == message->result, "a result has changed");
  require(ipc::isAuthentic(*second, delegate), "the authentication data have changed");
}

std::vector<std::string> cut(std::string_view stream, std::size_t piece, bool& broken) {
  ipc::FrameReader reader(kMaximumSize);
  std::vector<std::string> frames;
  for (std::size_t start = 0; start < stream.size(); start += piece) {
    reader.append(stream.substr(start, piece));
    while (auto frame = reader.next()) frames.push_back(std::move(*frame));
  }
  broken = reader.isBroken();
  return frames;
}

/// Frames are the same however they arrive.
void readStream(std::string_view stream) {
  bool brokenAtOnce = false;
  bool brokenInPieces = false;
  const auto atOnce = cut(stream, stream.size(), brokenAtOnce);
  require(atOnce == cut(stream, 3, brokenInPieces) && brokenAtOnce == brokenInPieces, "frames depend on how they come");
  for (const std::string& frame : atOnce) {
    require(!frame.empty() && frame.size() <= kMaximumSize, "a frame of an impossible length");
    readMessage(frame);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(bytes), size);
  readMessage(content);
  readStream(content);
  return 0;
}
