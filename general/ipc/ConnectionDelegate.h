#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace ipc {

/// Vouches for one end of a connection and vets the other. Used on the thread of the connection it belongs to.
///
/// The data say which machine and boot an end belongs to, not what it sends: no components are handed over so far.
class ConnectionDelegate {
 public:
  virtual ~ConnectionDelegate() = default;
  /// What goes with a message that is about to be sent.
  [[nodiscard]] virtual std::vector<std::byte> authenticationDataForComponents(
      std::span<const std::byte> components) = 0;
  /// Whether a message that arrived with this data may be believed.
  [[nodiscard]] virtual bool authenticateComponents(std::span<const std::byte> components,
                                                    std::span<const std::byte> data) = 0;
};

}  // namespace ipc
