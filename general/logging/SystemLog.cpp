#include "general/logging/SystemLog.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "general/logging/LineOutput.h"
#include "general/logging/LogFile.h"
#include "general/logging/LogSocketPrimitives.h"

namespace logging {

pthread_key_t g_asl_client_key;
std::atomic<bool> g_asl_client_key_created = false;
pthread_mutex_t g_asl_client_key_lock = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr const char* kDefaultSender = "<no asl_client>";
constexpr const char* kDefaultFacility = "com.corvane.logger";
constexpr const char* kSecureFacility = "com.corvane.tidewell";
constexpr std::size_t kSecureBufferSize = 8192;
constexpr std::size_t kLongestHostName = 256;
constexpr std::string_view kStandardErrorName = "standard error";
// Together with those of an engine's helpers, that share its standard error, no more than a second.
constexpr std::chrono::milliseconds kPatienceWithReaders{400};
constexpr std::chrono::milliseconds kPatienceOfHelpers{200};

std::atomic<Level> leastUrgentLevel = Level::Debug;

/// What the key holds for a thread.
struct ClientRecord {
  Client* client;
  std::uint32_t openCount;
};

std::string shortHostName() {
  std::array<char, kLongestHostName + 1> name{};
  if (gethostname(name.data(), kLongestHostName) != 0 || name[0] == '\0') {
    return "localhost";
  }
  const std::string_view full(name.data());
  return std::string(full.substr(0, full.find('.')));
}

std::tm localTime() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  return parts;
}

/// One for all threads: the system keeps one write whole only for some kinds of files and lengths.
LineOutput& standardError() {
  // Never destroyed: threads may log until the very end.
  static auto& output = *new LineOutput(STDERR_FILENO, kPatienceWithReaders);
  return output;
}

/// Null when there is no memory for a client.
Client* openClient(const char* sender, const char* facility) {
  try {
    return new Client(sender, facility, LogService(systemLogSocketPaths()));
  } catch (const std::exception&) {
    return nullptr;
  }
}

bool createKeyOnce() {
  pthread_mutex_lock(&g_asl_client_key_lock);
  if (!g_asl_client_key_created) {
    g_asl_client_key_created = pthread_key_create(&g_asl_client_key, corvanelogger_client_destructor) == 0;
  }
  const bool created = g_asl_client_key_created;
  pthread_mutex_unlock(&g_asl_client_key_lock);
  return created;
}

ClientRecord* recordOfThisThread() {
  return g_asl_client_key_created ? static_cast<ClientRecord*>(pthread_getspecific(g_asl_client_key)) : nullptr;
}

ClientRecord* newRecord(const char* sender, const char* facility) {
  auto* const record = static_cast<ClientRecord*>(std::malloc(sizeof(ClientRecord)));
  if (record == nullptr) {
    return nullptr;
  }
  *record = {openClient(sender, facility), 1};
  if (pthread_setspecific(g_asl_client_key, record) != 0) {
    delete record->client;
    std::free(record);
    return nullptr;
  }
  return record;
}

}  // namespace

Client::Client(const char* sender, const char* facility, LogService service)
    : sender_(sender != nullptr ? sender : ""),
      facility_(facility != nullptr ? facility : ""),
      host_(shortHostName()),
      service_(std::move(service)) {}

void Client::send(LogMessage message) const noexcept {
  try {
    if (message.value(kSenderKey).empty()) {
      message.set(kSenderKey, sender_);
    }
    if (message.value(kFacilityKey).empty()) {
      message.set(kFacilityKey, facility_);
    }
    const LogOrigin origin{localTime(), host_, static_cast<int>(getpid())};
    standardError().write(standardErrorLine(message, origin), [&](std::size_t dropped) {
      return standardErrorLine(messageOfLoss(message, dropped, kStandardErrorName), origin);
    });
    service_.send(message, origin);
  } catch (const std::exception&) {
    return;  // no memory for the text: a message is lost, the run goes on
  }
}

void Client::tellDropped() const noexcept {
  try {
    LogMessage mine;
    mine.set(kSenderKey, sender_);
    const LogOrigin origin{localTime(), host_, static_cast<int>(getpid())};
    standardError().tellDropped([&](std::size_t dropped) {
      return standardErrorLine(messageOfLoss(mine, dropped, kStandardErrorName), origin);
    });
  } catch (const std::exception&) {
    return;
  }
}

void Client::send(Level level, std::string_view text) const noexcept {
  try {
    LogMessage message;
    message.setLevel(level);
    message.set(kMessageKey, text);
    send(std::move(message));
  } catch (const std::exception&) {
    return;
  }
}

void corvanelogger_open(const char* sender, const char* facility) {
  if (!createKeyOnce()) {
    return;
  }
  if (ClientRecord* const record = recordOfThisThread(); record != nullptr) {
    ++record->openCount;
  } else {
    newRecord(sender, facility);
  }
}

Client* corvanelogger_getclient() {
  if (const ClientRecord* const record = recordOfThisThread(); record != nullptr) {
    return record->client;
  }
  corvanelogger_open(kDefaultSender, kDefaultFacility);
  const ClientRecord* const record = recordOfThisThread();
  return record != nullptr ? record->client : nullptr;
}

void corvanelogger_close() {
  ClientRecord* const record = recordOfThisThread();
  if (record == nullptr) {
    return;
  }
  const std::uint32_t previousCount = record->openCount--;
  if (previousCount == 1 && record->client != nullptr) {
    record->client->tellDropped();
    delete record->client;
    std::free(record);
    pthread_setspecific(g_asl_client_key, nullptr);
  }
}

void corvanelogger_logging_error() {}

void corvanelogger_client_destructor(void*) {}

LogMessage secureMessage(std::string_view text) {
  LogMessage message;
  message.set(kGroupKey, "0");
  message.set(kGroupKey, "80");
  message.set(kUserKey, "0");
  message.setLevel(Level::Notice);
  message.set(kFacilityKey, kSecureFacility);
  message.set(kMessageKey, text);
  return message;
}

void corvane_secure_log(const char* sender, const char* format, ...) {
  if (format == nullptr) {
    return;
  }
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[kSecureBufferSize]());
  if (buffer == nullptr) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(buffer.get(), kSecureBufferSize, format, arguments);
  va_end(arguments);
  if (length < 0) {
    buffer[0] = '\0';
  }
  try {
    Client(sender, kSecureFacility, LogService(systemLogSocketPaths())).send(secureMessage(buffer.get()));
  } catch (const std::exception&) {
    return;
  }
}

void keepStandardErrorWithin(const std::string& path, std::size_t mostBytes) noexcept {
  try {
    LogFile file(path, mostBytes);
    if (file.isOpenAt(STDERR_FILENO)) {
      standardError().keepWithin(std::move(file));
    }
  } catch (const std::exception&) {
    return;  // no memory: the file grows as it did before
  }
}

void beHelper() noexcept { standardError().setPatience(kPatienceOfHelpers); }

void setLeastUrgentLevel(Level level) noexcept { leastUrgentLevel = level; }

void send(Level level, std::string_view message) noexcept {
  if (level > leastUrgentLevel) {
    return;
  }
  if (const Client* const client = corvanelogger_getclient(); client != nullptr) {
    client->send(level, message);
  }
}

}  // namespace logging
