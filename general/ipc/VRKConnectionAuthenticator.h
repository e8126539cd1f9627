#pragma once

#include "general/ipc/ConnectionDelegate.h"

namespace ipc {

/// The delegate of every vending connection: accepts peers that show this machine's system profile data and shows them
/// the client profile data in return. New connections of a peer get their parent's delegate, so each is vetted alike.
class VRKConnectionAuthenticator : public ConnectionDelegate {
 public:
  VRKConnectionAuthenticator();
  [[nodiscard]] std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> components) override;
  [[nodiscard]] bool authenticateComponents(std::span<const std::byte> components,
                                            std::span<const std::byte> data) override;
};

}  // namespace ipc
