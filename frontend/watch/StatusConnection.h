#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "InstallationDeployer/QVNInstallerState.h"
#include "general/foundation/propertylist/PropertyList.h"
#include "general/ipc/ClientConnection.h"
#include "general/ipc/ClientIdentity.h"

namespace frontend {

/// What a front end may ask of a running engine, whoever started it. Every user may watch.
///
/// Calls wait for the engine's answer, a few seconds at most. Each throws ipc::RemoteException when there was none; the
/// connection is of no more use then, and a new one may be. Use from one thread at a time.
class StatusConnection {
 public:
  /// Null when no engine with this process number can be watched (any more, or yet), or it is not root's.
  [[nodiscard]] static std::unique_ptr<StatusConnection> toEngine(int processIdentifier);

  /// Where the run stands. The engine may name states that this program does not know.
  [[nodiscard]] deployer::QVNInstallerState state();
  /// In percent of the run; what is beyond 0 and 100 is cut off.
  [[nodiscard]] int progress();
  /// Asks the engine to stop after the step that is running. Does not wait.
  void cancelInstallation();
  /// Says that the final state was seen, so that the engine may leave. Does not wait.
  void shutdownService();

  /// Why the engine refused an order, of what has arrived so far; nothing when it refused none.
  [[nodiscard]] std::optional<std::string> takeRefusal();

  /// From now on descriptor() becomes readable with every change of the state. What changed has to be asked for.
  void observeChanges();
  /// For run loops and poll(); also readable when the engine has gone.
  [[nodiscard]] int descriptor() const { return connection_->descriptor(); }
  /// Takes what made the descriptor readable.
  void takeChanges();

 private:
  explicit StatusConnection(std::unique_ptr<ipc::ClientConnection> connection);
  foundation::PropertyList ask(std::string_view selector);
  [[nodiscard]] std::int64_t askForNumber(std::string_view selector);

  ipc::ClientIdentity identity_;
  std::unique_ptr<ipc::ClientConnection> connection_;
};

}  // namespace frontend
