#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "general/foundation/propertylist/TextFormat.h"
#include "general/logging/LogMessage.h"
#include "general/logging/LogService.h"

/// The engine's log: one client per thread of the system's log service, and a copy of every message on standard error.
///
/// Standard error carries `Mmm dd hh:mm:ss host Sender[pid] <Level>: message`; further lines of one message are
/// indented by a tab and control characters are escaped, so no text from outside can pass for a line of the log.
/// Messages of several threads do not mix, and each is one write. Logging never fails and never throws.
///
/// Who reads slowly is waited for. A standard error or a log service that nobody reads holds the process up for well
/// below a second in all; from then on it loses messages, and is told how many ("… messages could not be written to …")
/// once it takes some again.
namespace logging {

/// An open client of the log service: who speaks, and for which facility. Belongs to the thread that opened it.
class Client {
 public:
  /// A null sender or facility counts as empty.
  Client(const char* sender, const char* facility, LogService service);

  [[nodiscard]] const std::string& sender() const { return sender_; }
  [[nodiscard]] const std::string& facility() const { return facility_; }

  /// Sends the message to the service and to standard error, with the client's sender and facility where it has none.
  void send(LogMessage message) const noexcept;
  void send(Level level, std::string_view text) const noexcept;
  /// Says on standard error what had to be dropped there, if it can be said now.
  void tellDropped() const noexcept;

 private:
  std::string sender_;
  std::string facility_;
  std::string host_;
  LogService service_;
};

// The records of all threads are found through one key of thread-specific data, created by the first open.
extern pthread_key_t g_asl_client_key;
extern std::atomic<bool> g_asl_client_key_created;
extern pthread_mutex_t g_asl_client_key_lock;

/// Opens the calling thread's client, or counts one more open of the client that the thread has; sender and facility of
/// a later open are ignored.
void corvanelogger_open(const char* sender, const char* facility);
/// The calling thread's client; opens a default one where the thread has none. Null only when there was no memory for
/// it.
[[nodiscard]] Client* corvanelogger_getclient();
/// Undoes one open of the calling thread; the last one closes the client. Without a client it does nothing.
void corvanelogger_close();
/// Does nothing.
void corvanelogger_logging_error();
/// Registered with the key and deliberately empty: a thread closes what it opened.
void corvanelogger_client_destructor(void* record);

/// Formats and sends one message under a client of its own, readable by administrators. At most 8191 bytes. Without a
/// format it does nothing.
void corvane_secure_log(const char* sender, const char* format, ...) __attribute__((format(printf, 2, 3)));
/// The message that corvane_secure_log sends for a finished text.
[[nodiscard]] LogMessage secureMessage(std::string_view text);

/// For a process that works for another one and shares its standard error: waits for its reader for a shorter time, so
/// that all of them together hold a run up for a second at most.
void beHelper() noexcept;
/// Keeps the file that standard error is within a size, where it is the file at this path; see LogFile.
void keepStandardErrorWithin(const std::string& path, std::size_t mostBytes) noexcept;
/// Drops, in the whole process, what is less urgent than this level. The engine logs everything; this is for commands
/// that use its code and speak to a person.
void setLeastUrgentLevel(Level level) noexcept;

/// Sends one finished message through the calling thread's client.
void send(Level level, std::string_view message) noexcept;

/// Formats a message and logs it through the calling thread's client.
template <class... Arguments>
void log(Level level, std::string_view text, const Arguments&... arguments) {
  send(level, foundation::format(text, arguments...));
}
template <class... Arguments>
void error(std::string_view text, const Arguments&... arguments) {
  log(Level::Error, text, arguments...);
}
template <class... Arguments>
void warning(std::string_view text, const Arguments&... arguments) {
  log(Level::Warning, text, arguments...);
}
template <class... Arguments>
void notice(std::string_view text, const Arguments&... arguments) {
  log(Level::Notice, text, arguments...);
}
template <class... Arguments>
void info(std::string_view text, const Arguments&... arguments) {
  log(Level::Info, text, arguments...);
}
template <class... Arguments>
void debug(std::string_view text, const Arguments&... arguments) {
  log(Level::Debug, text, arguments...);
}

}  // namespace logging
