#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "InstallationDeployer/QVNInstallerState.h"
#include "general/ipc/Caller.h"

namespace deployer {

/// What a watcher is told who gives an order that is not his to give.
inline constexpr std::string_view kNotPermittedException = "CorvaneNotPermittedException";

/// Who may cancel a run or let it end. Everybody may look; an order is another matter: it takes the protection away
/// that the run is about to install.
class RunOrders {
 public:
  /// ConsoleUser: root, and the user of the console session. Root: of a run that another engine started and follows.
  enum class Givers { ConsoleUser, Root };
  /// The user of the console session; nothing when there is no such session. Asked at every order.
  using ConsoleUser = std::function<std::optional<std::uint32_t>()>;

  RunOrders(Givers givers, ConsoleUser consoleUser) : givers_(givers), consoleUser_(std::move(consoleUser)) {}

  /// Returns when the order may be carried out, else throws ipc::RemoteException(kNotPermittedException) with the
  /// reason. Questions always may. The console's user may let a run end once its state is final, root at any time.
  /// @param caller nothing when the system does not say who asks.
  void require(std::string_view selector, const std::optional<ipc::Caller>& caller, QVNInstallerState state) const;

  [[nodiscard]] static bool isOrder(std::string_view selector);

 private:
  Givers givers_;
  ConsoleUser consoleUser_;
};

/// For log lines: "user 501, process 4711".
[[nodiscard]] std::string descriptionOf(const std::optional<ipc::Caller>& caller);
/// The same, with the program that the process runs: "user 501, process 4711 (Installer)". Reads the table of
/// processes.
[[nodiscard]] std::string descriptionWithProgram(const std::optional<ipc::Caller>& caller);

}  // namespace deployer
