// Sends to a socket what no front end would send:
//   raw-peer SOCKET COMMAND...
// carries out the commands in order, each on connections of its own, and prints what came of each on a line:
//   garbage            frames that are no messages, each on its own connection   "ended 5"
//   oversized          announces a frame beyond every limit                      "ended 1"
//   stranger           a question without the authentication of this boot        "ended 1"
//   forge              notifications about the run, as a server would send them  "ended 2"
//   half               a frame whose second half never comes; stays connected    "half sent"
//   connect COUNT      as many connections, which stay                           "connected COUNT"
//   ask COUNT          so many questions in one piece, then reads the answers    "answered COUNT"
//   deaf               asks until the connection is gone, and reads nothing      "dropped"
//   hold               keeps what stays, until it is killed                      "holding"
// Exit code 2: the socket cannot be reached, which prints "refused".
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "general/ipc/ConnectionDelegate.h"
#include "general/ipc/Frame.h"
#include "general/ipc/Message.h"
#include "general/system/SystemProfile.h"

namespace {

constexpr int kUsageError = 1;
constexpr int kRefused = 2;

void print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

/// Shows what a front end shows, a server, or somebody who knows nothing of this boot.
class Disguise : public ipc::ConnectionDelegate {
 public:
  explicit Disguise(std::span<const std::byte> shown) : shown_(shown.begin(), shown.end()) {}
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> /*components*/) override {
    return shown_;
  }
  bool authenticateComponents(std::span<const std::byte> /*components*/, std::span<const std::byte> /*data*/) override {
    return true;
  }

 private:
  std::vector<std::byte> shown_;
};

std::string asFrame(const ipc::Message& message, std::span<const std::byte> shown) {
  Disguise disguise(shown);
  return ipc::framed(ipc::encode(message, disguise).value());
}
std::string question(std::span<const std::byte> shown) {
  ipc::Message message;
  message.number = 1;
  message.selector = deployer::status_selectors::kGetCurrentState;
  return asFrame(message, shown);
}
std::string question() { return question(platform::systemProfileData()); }
std::string notification(std::span<const std::byte> shown) {
  ipc::Message message;
  message.kind = ipc::Message::Kind::Notification;
  message.notification.name = deployer::kQVNInstallationStatusUpdatedNotification;
  message.notification.object = "/Volumes/Disk Image/Installer.app";
  return asFrame(message, shown);
}

class Peer {
 public:
  explicit Peer(std::string path) : path_(std::move(path)) {}

  void garbage() {
    std::string noise;
    for (int i = 0; i < 4096; ++i) {
      noise += static_cast<char>(i * 31 % 251);
    }
    std::string nothing(4, '\0');
    std::string cut = question();
    cut[3] = static_cast<char>(cut[3] - 1);
    const std::vector<std::string> all{ipc::framed(noise), nothing, ipc::framed("bplist00"), ipc::framed("<plist/>"),
                                       cut};
    endsOf(all);
  }
  void oversized() { endsOf({std::string("\xff\xff\xff\xff") + std::string(100, 'x')}); }
  void stranger() {
    const std::array<std::byte, 16> unknown{};
    endsOf({question(unknown)});
  }
  void forge() { endsOf({notification(platform::clientProfileData()), notification(platform::systemProfileData())}); }
  void half() {
    const std::string whole = question();
    static_cast<void>(send(connected(), std::string_view(whole).substr(0, whole.size() / 2)));
    print("half sent");
  }
  void connect(int count) {
    for (int i = 0; i < count; ++i) {
      static_cast<void>(connected());
    }
    print("connected " + std::to_string(count));
  }
  void ask(int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
      all += question();
    }
    const int peer = connected();
    ipc::FrameReader reader(1U << 20U);
    int answered = 0;
    std::string_view unsent = all;
    while (answered < count) {
      pollfd ready{peer, static_cast<short>(unsent.empty() ? POLLIN : POLLIN | POLLOUT), 0};
      poll(&ready, 1, -1);
      if ((ready.revents & POLLOUT) != 0) {
        const ssize_t sent = ::send(peer, unsent.data(), unsent.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        unsent.remove_prefix(sent > 0 ? static_cast<std::size_t>(sent) : 0);
      }
      if ((ready.revents & (POLLIN | POLLHUP)) != 0 && !read(peer, reader)) {
        break;
      }
      while (reader.next()) {
        ++answered;
      }
    }
    print("answered " + std::to_string(answered));
  }
  void deaf() {
    const int peer = connected();
    const std::string asked = question();
    while (send(peer, asked)) {
    }
    print("dropped");
  }

 private:
  int connected() const {
    const int peer = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (peer < 0 || ::connect(peer, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw std::runtime_error(path_);
    }
    return peer;
  }
  static bool send(int peer, std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent < 0) {
        return false;
      }
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }
  static bool read(int peer, ipc::FrameReader& reader) {
    std::array<char, 4096> bytes{};
    const ssize_t count = ::read(peer, bytes.data(), bytes.size());
    if (count <= 0) {
      return false;
    }
    reader.append({bytes.data(), static_cast<std::size_t>(count)});
    return true;
  }
  /// How many of the connections the other end closes, each of which is sent one of these.
  void endsOf(const std::vector<std::string>& all) const {
    int ends = 0;
    for (const std::string& bytes : all) {
      const int peer = connected();
      static_cast<void>(send(peer, bytes));
      ipc::FrameReader reader(1U << 20U);
      while (read(peer, reader)) {
      }
      close(peer);
      ++ends;
    }
    print("ended " + std::to_string(ends));
  }

  std::string path_;
};

int act(Peer& peer, std::span<const std::string> commands) {
  const std::map<std::string, std::function<void()>> plain = {{"garbage", [&] { peer.garbage(); }},
                                                              {"oversized", [&] { peer.oversized(); }},
                                                              {"stranger", [&] { peer.stranger(); }},
                                                              {"forge", [&] { peer.forge(); }},
                                                              {"half", [&] { peer.half(); }},
                                                              {"deaf", [&] { peer.deaf(); }},
                                                              {"hold", [] {
                                                                 print("holding");
                                                                 pause();
                                                               }}};
  while (!commands.empty()) {
    const std::string& command = commands.front();
    if (const auto known = plain.find(command); known != plain.end()) {
      known->second();
    } else if (commands.size() > 1 && command == "connect") {
      peer.connect(std::stoi(commands[1]));
      commands = commands.subspan(1);
    } else if (commands.size() > 1 && command == "ask") {
      peer.ask(std::stoi(commands[1]));
      commands = commands.subspan(1);
    } else {
      return kUsageError;
    }
    commands = commands.subspan(1);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() < 2) {
    return kUsageError;
  }
  try {
    Peer peer(arguments[0]);
    return act(peer, std::span(arguments).subspan(1));
  } catch (const std::runtime_error&) {
    print("refused");
    return kRefused;
  }
}
