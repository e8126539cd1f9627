#pragma once

#include "general/ipc/ConnectionDelegate.h"

namespace ipc {

/// The delegate of every connection to a vended object: shows this machine's system profile data and believes who shows
/// the client profile data, as VRKConnectionAuthenticator does at the other end. Use from any thread.
class ClientIdentity : public ConnectionDelegate {
 public:
  [[nodiscard]] std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> components) override;
  [[nodiscard]] bool authenticateComponents(std::span<const std::byte> components,
                                            std::span<const std::byte> data) override;
};

}  // namespace ipc
