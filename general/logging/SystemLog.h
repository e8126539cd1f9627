#pragma once

#include <pthread.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "general/foundation/TextFormat.h"

/// The engine's log: one client per thread of the system's log service, and a copy of every message on standard error.
///
/// Standard error carries `Mmm dd hh:mm:ss host Sender[pid] <Level>: message`; further lines of one message are
/// indented by a tab, so no text from outside can pass for a line of the log. Logging never fails and never throws.
namespace logging {

enum class Level : int { Emergency = 0, Alert, Critical, Error, Warning, Notice, Info, Debug };

/// "Emergency" … "Debug".
[[nodiscard]] std::string_view levelName(Level level);

/// An open client of the log service: who speaks, and for which facility. Belongs to the thread that opened it.
struct Client {
  std::string sender;
  std::string facility;
  int descriptor = -1;  ///< the connection to the service, or -1 while there is none
};

// The clients of all threads are found through one key of thread-specific data, created by the first open.
extern pthread_key_t g_asl_client_key;
extern bool g_asl_client_key_created;
extern pthread_mutex_t g_asl_client_key_lock;

/// Opens the calling thread's client, or counts one more open of the client that the thread has; sender and facility of
/// a later open are ignored.
void corvanelogger_open(const char* sender, const char* facility);
/// The calling thread's client; opens a default one where the thread has none.
[[nodiscard]] Client* corvanelogger_getclient();
/// Undoes one open of the calling thread; the last one closes the client. Without a client it does nothing.
void corvanelogger_close();
void corvanelogger_logging_error();
/// Registered with the key and deliberately empty: a thread closes what it opened.
void corvanelogger_client_destructor(void* record);
/// Formats and sends one message under a client of its own, readable by administrators. At most 8191 bytes.
void corvane_secure_log(const char* sender, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Sends one finished message through a client.
void send(Client& client, Level level, std::string_view message);

/// Formats a message and logs it through the calling thread's client.
template <class... Arguments>
void log(Level level, std::string_view text, const Arguments&... arguments) {
  send(*corvanelogger_getclient(), level, foundation::format(text, arguments...));
}
template <class... Arguments>
void error(std::string_view text, const Arguments&... arguments) {
  log(Level::Error, text, arguments...);
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
