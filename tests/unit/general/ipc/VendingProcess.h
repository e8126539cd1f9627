#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/ipc/ClientConnection.h"
#include "general/ipc/ConnectionDelegate.h"
#include "general/ipc/Message.h"
#include "general/ipc/Protocol.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/VRKConnectionAuthenticator.h"

namespace ipctests {

inline constexpr const char* kServiceName = "com.corvane.installer.test";
/// A user without any rights, and another one.
inline constexpr uid_t kSomebody = 65534;
inline constexpr uid_t kSomebodyElse = 65533;

/// What the vended object can do; see the source.
extern const ipc::Protocol kTestProtocol;

/// Numbers that processes share.
struct Shared {
  std::atomic<int> calls{0};         ///< of count, echo: and poke
  std::atomic<int> turns{0};         ///< of the server's outermost run loop
  std::atomic<int> inside{0};        ///< turns of the run loop within a target
  std::atomic<bool> release{false};  ///< ends these
};

/// Owns the memory of Shared.
class SharedMemory {
 public:
  SharedMemory();
  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;
  Shared* operator->() const { return shared_; }
  Shared& operator*() const { return *shared_; }

 private:
  Shared* shared_;
};

/// A child process that runs a function; it is killed at the end of this object, if it still lives.
class ForkedProcess {
 public:
  explicit ForkedProcess(const std::function<int()>& body);
  ~ForkedProcess() { kill(); }
  ForkedProcess(const ForkedProcess&) = delete;
  ForkedProcess& operator=(const ForkedProcess&) = delete;

  /// The exit code, or -1 when a signal ended it.
  int wait();
  void kill();
  void suspend() const;

 private:
  pid_t process_;
};

/// Runs the function in a process of this user; its exit code, or -1.
int runAs(uid_t user, const std::function<int()>& body);

/// The object of kTestProtocol, vended by a process of its own.
class VendingProcess {
 public:
  struct Options {
    std::string name = kServiceName;
    ipc::ServerConnection::Options connection = {};
    std::size_t mostDescriptors =
        0;  ///< beyond those that are open when it starts to serve; 0: as many as the system gives
  };
  explicit VendingProcess(Shared& shared) : VendingProcess(shared, Options{}) {}
  VendingProcess(Shared& shared, const Options& options);

  /// Whether it could register its name.
  [[nodiscard]] bool isVending() const { return vending_; }
  ForkedProcess& process() { return *process_; }

 private:
  bool vending_ = false;
  std::unique_ptr<ForkedProcess> process_;
};

/// Shows and expects what a front end does.
class WatcherAuthenticator : public ipc::ConnectionDelegate {
 public:
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> components) override;
  bool authenticateComponents(std::span<const std::byte> components, std::span<const std::byte> data) override;
};

/// Shows what nobody expects, and believes everything.
class WrongAuthenticator : public ipc::ConnectionDelegate {
 public:
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> components) override;
  bool authenticateComponents(std::span<const std::byte> components, std::span<const std::byte> data) override;
};

/// A connection with its delegate.
class Client {
 public:
  explicit Client(std::string_view name = kServiceName);
  [[nodiscard]] bool isConnected() const { return connection_ != nullptr; }
  ipc::ClientConnection* operator->() { return connection_.get(); }
  foundation::PropertyList call(std::string_view selector, std::vector<foundation::PropertyList> arguments = {});
  /// The name of the exception that the call raises; "none" when it raises none.
  std::string exceptionOf(std::string_view selector, std::vector<foundation::PropertyList> arguments = {});

 private:
  WatcherAuthenticator authenticator_;
  std::unique_ptr<ipc::ClientConnection> connection_;
};

/// A peer that knows no manners: bytes to and from a socket.
class RawPeer {
 public:
  explicit RawPeer(std::string_view name = kServiceName);
  explicit RawPeer(foundation::Descriptor socket);
  [[nodiscard]] bool isConnected() const { return socket_.isOpen(); }
  /// Sends all of it, as far as the other end takes it; false when that has gone.
  bool send(std::string_view bytes);
  /// Sends the bytes again and again until the other end takes no more; how many it took.
  std::size_t sendUntilRefused(std::string_view bytes);
  [[nodiscard]] bool canSend() const;
  /// Waits for the next frame; its content, or nothing at the end of the connection.
  std::optional<std::string> receiveFrame();
  std::optional<ipc::Message> receive();
  /// Reads to the end of the connection; false when it does not come.
  bool awaitEnd();
  /// Waits until the other end has closed the connection, without reading; false when it does not.
  [[nodiscard]] bool awaitHangUp() const;
  /// Whether something can be read now, without waiting.
  [[nodiscard]] bool hasAnswer() const;
  void hangUp() { socket_.reset(); }

 private:
  bool readMore();
  foundation::Descriptor socket_;
  std::string arrived_;
};

/// The frame of a call of the protocol above.
std::string callFrame(std::string_view selector, std::vector<foundation::PropertyList> arguments = {},
                      std::int64_t number = 1);
std::string frameOf(const ipc::Message& message, ipc::ConnectionDelegate& delegate);
/// A message that has nothing but its kind.
ipc::Message messageOf(ipc::Message::Kind kind);
ipc::Message callOf(std::string_view selector, std::vector<foundation::PropertyList> arguments = {},
                    std::int64_t number = 1);

/// Waits until the condition holds; false when it does not come to that.
bool await(const std::function<bool()>& condition);

}  // namespace ipctests
