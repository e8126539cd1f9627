#include "tests/unit/general/ipc/VendingProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/Frame.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServiceSocket.h"
#include "general/system/SystemProfile.h"

namespace ipctests {

using foundation::Descriptor;
using foundation::PropertyList;
using foundation::RunLoop;
using ipc::ValueType;

// Only that a test ends at all when something hangs.
constexpr std::chrono::minutes kPatience{2};
constexpr int kDeepNesting = 1000;

const ipc::Protocol kTestProtocol(
    "VendingTestProtocol",
    {
        {"count", {}, ValueType::Integer32, false},
        {"echo:", {ValueType::Object}, ValueType::Object, false},
        {"add:and:", {ValueType::Integer32, ValueType::Integer64}, ValueType::Integer64, false},
        {"names:", {ValueType::Strings}, ValueType::Boolean, false},
        {"poke", {}, ValueType::Nothing, true},
        {"raise:", {ValueType::Object}, ValueType::Nothing, false},  // an exception of this name
        {"raiseStandard", {}, ValueType::Nothing, false},            // one of the language's
        {"wrongResult", {}, ValueType::Integer32, false},            // answers with a text
        {"deepResult", {}, ValueType::Object, false},                // answers with what cannot be sent
        {"nilResult", {}, ValueType::Strings, false},
        {"data:", {ValueType::Integer32}, ValueType::Object, false},  // so many bytes
        {"notify:size:", {ValueType::Integer32, ValueType::Integer32}, ValueType::Nothing, false},
        {"turnUntilReleased", {}, ValueType::Integer32, false},  // turns the run loop meanwhile
        {"endConnection", {}, ValueType::Nothing, false},        // from within
    });

namespace {

/// The vended object and its connection.
class Vendor {
 public:
  Vendor(Shared& shared, const VendingProcess::Options& options)
      : shared_(shared), connection_(std::make_unique<ipc::ServerConnection>(options.connection)) {
    connection_->setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
    connection_->setRootObject(std::make_shared<const ipc::ProtocolChecker>(
        [this](std::string_view selector, std::span<const PropertyList> arguments) {
          return carryOut(selector, arguments);
        },
        kTestProtocol));
  }

  bool registerName(const std::string& name) { return connection_->registerName(name); }

 private:
  PropertyList carryOut(std::string_view selector, std::span<const PropertyList> arguments) {
    if (selector == "count") {
      return ++shared_.calls;
    }
    if (selector == "echo:") {
      ++shared_.calls;
      return arguments[0];
    }
    if (selector == "add:and:") {
      return *arguments[0].integer() + *arguments[1].integer();
    }
    if (selector == "names:") {
      return arguments[0].count() > 0;
    }
    if (selector == "poke") {
      ++shared_.calls;
      return {};
    }
    if (selector == "raise:") {
      throw ipc::RemoteException(arguments[0].text(), "wanted so");
    }
    if (selector == "raiseStandard") {
      throw std::out_of_range("no such thing");
    }
    if (selector == "wrongResult") {
      return "a text";
    }
    if (selector == "deepResult") {
      return deepArray();
    }
    if (selector == "data:") {
      return PropertyList::data(std::vector<std::byte>(static_cast<std::size_t>(*arguments[0].integer())));
    }
    if (selector == "notify:size:") {
      notify(*arguments[0].integer(), static_cast<std::size_t>(*arguments[1].integer()));
    }
    if (selector == "turnUntilReleased") {
      return turnUntilReleased();
    }
    if (selector == "endConnection") {
      connection_.reset();
    }
    return {};
  }

  static PropertyList deepArray() {
    PropertyList nested("inmost");
    for (int depth = 0; depth < kDeepNesting; ++depth) {
      nested = PropertyList(PropertyList::Array{nested});
    }
    return nested;
  }

  void notify(std::int64_t count, std::size_t size) {
    const PropertyList userInfo = PropertyList::dictionary({{"padding", std::string(size, 'x')}});
    for (std::int64_t number = 1; number <= count; ++number) {
      connection_->sendNotification({"test.notification", "object", userInfo.with("n", number)});
    }
  }

  PropertyList turnUntilReleased() {
    while (!shared_.release) {
      ++shared_.inside;
      RunLoop::current()->runUntil(RunLoop::Clock::now() + std::chrono::milliseconds(1));
    }
    return shared_.calls.load();
  }

  Shared& shared_;
  std::unique_ptr<ipc::ServerConnection> connection_;
};

/// Leaves this process so many descriptors more than it has open.
void limitDescriptors(std::size_t further) {
  // The limit is one of numbers, so those below it that are free count as well.
  std::vector<Descriptor> places;
  while (places.size() < further) {
    places.emplace_back(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
  }
  const auto most = static_cast<rlim_t>(places.back().number()) + 1;
  const rlimit limit{most, most};
  setrlimit(RLIMIT_NOFILE, &limit);
}

int vend(Shared& shared, const VendingProcess::Options& options, int ready) {
  Vendor vendor(shared, options);
  const bool vending = vendor.registerName(options.name);
  if (options.mostDescriptors > 0) {
    limitDescriptors(options.mostDescriptors);
  }
  if (write(ready, vending ? "y" : "n", 1) != 1) {
    return 1;
  }
  const auto timer = RunLoop::current()->addTimer(std::chrono::hours(1), true, {});
  while (RunLoop::current()->runUntil(RunLoop::Clock::time_point::max())) {
    ++shared.turns;
  }
  return 0;
}

}  // namespace

SharedMemory::SharedMemory() {
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  shared_ = new (memory) Shared;
}

SharedMemory::~SharedMemory() { munmap(shared_, sizeof(Shared)); }

ForkedProcess::ForkedProcess(const std::function<int()>& body) : process_(fork()) {
  if (process_ == 0) {
    int code = 100;
    try {
      code = body();
    } catch (const std::exception& exception) {
      dprintf(STDERR_FILENO, "%s\n", exception.what());
    }
    _exit(code);
  }
  if (process_ < 0) {
    throw std::runtime_error("no process can be made");
  }
}

int ForkedProcess::wait() {
  int status = -1;
  while (process_ > 0 && waitpid(process_, &status, 0) < 0 && errno == EINTR) {
  }
  process_ = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ForkedProcess::kill() {
  if (process_ > 0) {
    ::kill(process_, SIGKILL);
    wait();
  }
}

void ForkedProcess::suspend() const {
  ::kill(process_, SIGSTOP);
  waitpid(process_, nullptr, WUNTRACED);
}

int runAs(uid_t user, const std::function<int()>& body) {
  return ForkedProcess([&] { return setgid(user) == 0 && setuid(user) == 0 ? body() : 99; }).wait();
}

VendingProcess::VendingProcess(Shared& shared, const Options& options) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe can be made");
  }
  const Descriptor readEnd(ends[0]);
  Descriptor writeEnd(ends[1]);
  process_ = std::make_unique<ForkedProcess>([&] { return vend(shared, options, writeEnd.number()); });
  writeEnd.reset();
  char answer = 0;
  vending_ = read(readEnd.number(), &answer, 1) == 1 && answer == 'y';
}

std::vector<std::byte> WatcherAuthenticator::authenticationDataForComponents(
    std::span<const std::byte> /*components*/) {
  const auto shown = platform::systemProfileData();
  return {shown.begin(), shown.end()};
}

bool WatcherAuthenticator::authenticateComponents(std::span<const std::byte> /*components*/,
                                                  std::span<const std::byte> data) {
  return std::ranges::equal(data, platform::clientProfileData());
}

std::vector<std::byte> WrongAuthenticator::authenticationDataForComponents(std::span<const std::byte> /*components*/) {
  return std::vector<std::byte>(sizeof(platform::ProfileData), std::byte{7});
}

bool WrongAuthenticator::authenticateComponents(std::span<const std::byte> /*components*/,
                                                std::span<const std::byte> /*data*/) {
  return true;
}

Client::Client(std::string_view name) : connection_(ipc::ClientConnection::connectionWithRegisteredName(name)) {
  if (connection_) {
    connection_->setDelegate(&authenticator_);
  }
}

PropertyList Client::call(std::string_view selector, std::vector<PropertyList> arguments) {
  return connection_->invoke(*kTestProtocol.operation(selector), arguments);
}

std::string Client::exceptionOf(std::string_view selector, std::vector<PropertyList> arguments) {
  try {
    call(selector, std::move(arguments));
    return "none";
  } catch (const ipc::RemoteException& exception) {
    return exception.name();
  }
}

RawPeer::RawPeer(std::string_view name) : socket_(ipc::connectTo(*ipc::socketPathOfService(name), true)) {}

RawPeer::RawPeer(Descriptor socket) : socket_(std::move(socket)) {}

bool RawPeer::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
      continue;
    }
    pollfd watched{socket_.number(), POLLOUT, 0};
    if (errno != EAGAIN || poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) <= 0) {
      return false;
    }
  }
  return true;
}

std::size_t RawPeer::sendUntilRefused(std::string_view bytes) {
  std::size_t taken = 0;
  while (true) {
    const ssize_t sent = ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
      return taken;
    }
    taken += static_cast<std::size_t>(sent);
  }
}

bool RawPeer::canSend() const {
  pollfd watched{socket_.number(), POLLOUT, 0};
  return poll(&watched, 1, 0) > 0;
}

bool RawPeer::readMore() {
  pollfd watched{socket_.number(), POLLIN, 0};
  if (poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) <= 0) {
    throw std::runtime_error("nothing came, not even the end");
  }
  std::array<char, 65536> bytes{};
  const ssize_t count = recv(socket_.number(), bytes.data(), bytes.size(), 0);
  if (count > 0) {
    arrived_.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return count > 0;
}

std::optional<std::string> RawPeer::receiveFrame() {
  while (true) {
    ipc::FrameReader reader(std::size_t{1} << 30U);
    reader.append(arrived_);
    if (auto content = reader.next()) {
      arrived_.erase(0, ipc::kFrameHeaderSize + content->size());
      return content;
    }
    if (!readMore()) {
      return std::nullopt;
    }
  }
}

std::optional<ipc::Message> RawPeer::receive() {
  const auto content = receiveFrame();
  return content ? ipc::decode(*content) : std::nullopt;
}

bool RawPeer::awaitHangUp() const {
  pollfd watched{socket_.number(), 0, 0};
  return poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) > 0;
}

bool RawPeer::awaitEnd() {
  try {
    while (readMore()) {
      arrived_.clear();
    }
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

bool RawPeer::hasAnswer() const {
  pollfd watched{socket_.number(), POLLIN, 0};
  return poll(&watched, 1, 0) > 0;
}

ipc::Message messageOf(ipc::Message::Kind kind) {
  ipc::Message message;
  message.kind = kind;
  return message;
}

ipc::Message callOf(std::string_view selector, std::vector<PropertyList> arguments, std::int64_t number) {
  ipc::Message message = messageOf(ipc::Message::Kind::Call);
  message.number = number;
  message.selector = selector;
  message.arguments = std::move(arguments);
  return message;
}

std::string frameOf(const ipc::Message& message, ipc::ConnectionDelegate& delegate) {
  return ipc::framed(ipc::encode(message, delegate).value());
}

std::string callFrame(std::string_view selector, std::vector<PropertyList> arguments, std::int64_t number) {
  WatcherAuthenticator authenticator;
  return frameOf(callOf(selector, std::move(arguments), number), authenticator);
}

bool await(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

}  // namespace ipctests
