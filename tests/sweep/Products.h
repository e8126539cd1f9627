#pragma once

#include <array>
#include <string>

#include "tests/support/BundleMaker.h"
#include "tests/support/PrivateRoot.h"
#include "tests/support/PropertyLists.h"

namespace sweep {

/// Where an engine is started from, inside.
struct Bundle {
  std::string path;
  [[nodiscard]] std::string engine() const { return path + "/Contents/MacOS/InstallationDeployer"; }
};

inline const Bundle kFirst{"/Volumes/First/Installer.app"};
inline const Bundle kSecond{"/Volumes/Second/Installer.app"};
inline const Bundle kSuccessor{"/Volumes/Successor/Installer.app"};
inline const Bundle kSecondSuccessor{"/Volumes/Second Successor/Installer.app"};
inline const Bundle kOuter{"/Volumes/Outer/Installer.app"};
inline const Bundle kSecondOuter{"/Volumes/Second Outer/Installer.app"};
inline const Bundle kInner{"/Volumes/Inner/Installer.app"};

/// Where a product's receipt is.
[[nodiscard]] Bundle receiptOf(const std::string& product);

inline constexpr const char* kGuard = "Guard";
inline constexpr const char* kClassic = "Guard Classic";
inline constexpr const char* kSuite = "Suite";
inline constexpr const char* kExtras = "Extras";
inline constexpr const char* kConfiguration = "/Library/Guard/guard.conf";
inline constexpr const char* kEdited = "edited by the user";

/// The bundles that are swept with, made once. Small, and with every kind of item and of change:
///
///   Guard 1.0   Core 1.0    /Library/Guard with a modifiable file, a link, an external file, a folder and a file that
///                           change places in 1.1; a daemon and an agent
///               Tools 1.0   /opt/tools, with a program that runs on install
///               Legacy 1.0  /opt/legacy and a daemon; gone in 1.1
///   Guard 1.1   Core 1.1, Tools 1.0, Extra 1.0 with a daemon; its receipt carries the payload
///   Guard 2.0 and 2.1, which may follow Guard Classic, that left no receipt, as an update
///   Suite 1.0 and 1.1, which have Extras installed by the engine of another bundle in their second phase
class Products : private tests::PropertyLists {
 public:
  explicit Products(const std::string& engine);

  /// Puts all bundles into a root.
  void deliver(support::PrivateRoot& root) const;

 private:
  void makeFirst();
  void makeSecond();
  void makeSuccessor(tests::BundleMaker& made, const std::string& version);
  void makeOuter(tests::BundleMaker& made, const std::string& version);
  void makeInner();

  tests::BundleMaker first_;
  tests::BundleMaker second_;
  tests::BundleMaker successor_;
  tests::BundleMaker secondSuccessor_;
  tests::BundleMaker outer_;
  tests::BundleMaker secondOuter_;
  tests::BundleMaker inner_;
};

/// What is in a root before any product is: the folders of the system, a user at the console, an external file.
void furnish(support::PrivateRoot& root);
/// Guard Classic as it was left by whoever installed it, with settings of the user.
void furnishClassic(support::PrivateRoot& root);

}  // namespace sweep
