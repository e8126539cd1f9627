#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "general/logging/LogMessage.h"

/// The texts and datagrams that a message becomes. Nothing here touches the system.
namespace logging {

/// Where and when a message was logged.
struct LogOrigin {
  std::tm time;  ///< local time
  std::string_view host;
  int processIdentifier;
};

/// The text with everything that could pass for more than text on a terminal or in a line of a log file written as
/// \xNN: control characters but the tab, and bytes that are no UTF-8.
[[nodiscard]] std::string printable(std::string_view text);

/// `Mmm dd hh:mm:ss host Sender[pid] <Level>: message` and a newline; the day is padded with a blank. Further lines of
/// the message are indented by a tab; a newline at its very end starts no further line.
[[nodiscard]] std::string standardErrorLine(const LogMessage& message, const LogOrigin& origin);

/// The datagram of the classic log socket: `<priority>Mmm dd hh:mm:ss Sender[pid]: message`, all on one line.
[[nodiscard]] std::string syslogDatagram(const LogMessage& message, const LogOrigin& origin);

/// The datagram of the journal's native socket. Every key is a field named in capitals; MESSAGE, PRIORITY,
/// SYSLOG_IDENTIFIER and SYSLOG_PID are what the journal's own tools show.
[[nodiscard]] std::string journalDatagram(const LogMessage& message, const LogOrigin& origin);

}  // namespace logging
