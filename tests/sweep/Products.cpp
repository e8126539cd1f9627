#include "tests/sweep/Products.h"

namespace sweep {
namespace {

constexpr const char* kLicence = "/etc/licence";
constexpr const char* kDaemons = "/Library/LaunchDaemons/";
constexpr const char* kAgents = "/Library/LaunchAgents/";
constexpr uid_t kConsoleUser = 501;

std::string program(const std::string& name) { return "#!/bin/sh\necho " + name + " >>/run/programs\n"; }

}  // namespace

Bundle receiptOf(const std::string& product) {
  return {"/Library/Application Support/Corvane/" + product + "/Installer.app"};
}

Products::Products(const std::string& engine)
    : first_(engine),
      second_(engine),
      successor_(engine),
      secondSuccessor_(engine),
      outer_(engine),
      secondOuter_(engine),
      inner_(engine) {
  makeFirst();
  makeSecond();
  makeSuccessor(successor_, "2.0");
  makeSuccessor(secondSuccessor_, "2.1");
  makeOuter(outer_, "1.0");
  makeOuter(secondOuter_, "1.1");
  makeInner();
}

namespace {

using tests::BundleMaker;

struct Lists : tests::PropertyLists {
  static PropertyList coreAuthoring() {
    return dictionary({{"ListOfModifiableFiles", array({PropertyList(kConfiguration)})},
                       {"ListOfFiles", array({dictionary({{"Path", "/Library/Guard/licence"},
                                                          {"ExternalSourcePath", kLicence},
                                                          {"CheckForExternalFileChanges", true},
                                                          {"NSFileOwnerAccountID", 0},
                                                          {"NSFileGroupOwnerAccountID", 80},
                                                          {"NSFilePosixPermissions", 0640}})})}});
  }
  static PropertyList runs(const std::string& path) {
    return dictionary({{"ListOfExecutables", array({dictionary({{"Path", path}, {"ExecuteOnInstall", true}})})}});
  }
};

void makeCore(BundleMaker& made, const std::string& version, const std::string& content) {
  made.stageDirectory("Core", "/Library/Guard", 0751, 501, 20);
  made.stageFile("Core", "/Library/Guard/core", content, 0755);
  made.stageFile("Core", "/Library/Guard/same", "same in both");
  made.stageFile("Core", kConfiguration, "default of " + version, 0640);
  made.stageFile("Core", kDaemons + std::string("com.corvane.guard.plist"), "<plist/>");
  made.stageFile("Core", kAgents + std::string("com.corvane.agent.plist"), "<plist/>");
}

void addTools(BundleMaker& made) {
  made.stageFile("Tools", "/opt/tools/one", "one", 0755);
  made.stageFile("Tools", "/opt/tools/setup", program("tools"), 0755);
  made.addComponent("Tools", "1.0", kGuard, Lists::runs("/opt/tools/setup"));
}

}  // namespace

void Products::makeFirst() {
  makeCore(first_, "1.0", "core 1");
  first_.stageFile("Core", "/Library/Guard/folder/inside", "a folder that becomes a file");
  first_.stageFile("Core", "/Library/Guard/file", "a file that becomes a folder");
  first_.stageLink("Core", "/Library/Guard/link", "no such target");
  first_.stageFile("Core", "/Library/Guard/moved", "a file that becomes a link");
  first_.stageFile("Core", "/Library/Guard/attributes", "its mode changes", 0644);
  first_.addComponent("Core", "1.0", kGuard, Lists::coreAuthoring());
  addTools(first_);
  first_.stageFile("Legacy", "/opt/legacy/old", "old");
  first_.stageFile("Legacy", kDaemons + std::string("com.corvane.legacy.plist"), "<plist/>");
  first_.addComponent("Legacy", "1.0", kGuard);
  first_.setOptions(dictionary({{"ReceiptHasPayloadContents", false}}));
}

void Products::makeSecond() {
  makeCore(second_, "1.1", "core, second edition");
  second_.stageFile("Core", "/Library/Guard/folder", "a file that was a folder");
  second_.stageFile("Core", "/Library/Guard/file/inside", "in a folder that was a file");
  second_.stageFile("Core", "/Library/Guard/link", "a file that was a link");
  second_.stageLink("Core", "/Library/Guard/moved", "core");
  second_.stageFile("Core", "/Library/Guard/attributes", "its mode changes", 0600);
  second_.stageFile("Core", "/Library/Guard/more", "more");
  second_.addComponent("Core", "1.1", kGuard, Lists::coreAuthoring());
  addTools(second_);
  second_.stageFile("Extra", "/opt/extra/new", "new");
  second_.stageFile("Extra", "/opt/extra/setup", program("extra"), 0755);
  second_.stageFile("Extra", kDaemons + std::string("com.corvane.extra.plist"), "<plist/>");
  second_.addComponent("Extra", "1.0", kGuard, Lists::runs("/opt/extra/setup"));
  second_.setOptions(dictionary({{"ReceiptHasPayloadContents", true}}));
}

void Products::makeSuccessor(BundleMaker& made, const std::string& version) {
  const auto modifiable = dictionary({{"ListOfModifiableFiles", array({kConfiguration})}});
  made.stageFile("Guard", "/Library/Guard/guard", "guard " + version, 0755);
  made.stageFile("Guard", kConfiguration, "default");
  made.stageFile("Guard", kDaemons + std::string("com.corvane.guard.plist"), "<plist/>");
  made.addComponent("Guard", version, kGuard, modifiable);
  made.stageFile("Classic", "/Library/Guard/classic", "classic", 0755);
  made.stageFile("Classic", kConfiguration, "default of old");
  made.stageFile("Classic", kDaemons + std::string("com.corvane.classic.plist"), "<plist/>");
  made.addComponent("Classic", "1", kClassic, modifiable);
  const auto removal = dictionary({{"ProductName", kClassic},
                                   {"ProductDetectionPaths", array({"/Library/Guard/classic"})},
                                   {"ListOfComponents", array({"Classic"})}});
  const auto crossGrade = dictionary({{"ProductName", kClassic}, {"AllowCrossGrades", true}, {"TreatAsUpdate", true}});
  made.setOptions(
      {}, dictionary({{"ProductRemovals", array({removal})},
                      {"Products", dictionary({{kGuard, dictionary({{"CrossGrades", array({crossGrade})}})}})}}));
}

void Products::makeOuter(BundleMaker& made, const std::string& version) {
  made.stageFile("Suite", "/opt/suite/suite", "suite " + version);
  made.addComponent("Suite", version, kSuite);
  const PropertyList index = made.readManifest("Index");
  const PropertyList phases = index["Products"][kSuite]["ListOfInstallPhases"].appending(dictionary(
      {{"InstallPhaseType", "ExternalInstallationDeployer"}, {"BundlePath", kInner.path}, {"ProductName", kExtras}}));
  const PropertyList product = index["Products"][kSuite].with("ListOfInstallPhases", phases);
  made.writeManifest("Index", index.with("Products", index["Products"].with(kSuite, product)));
}

void Products::makeInner() {
  inner_.stageFile("Extra", "/opt/extras/extra", "extra");
  inner_.stageFile("Extra", kDaemons + std::string("com.corvane.extras.plist"), "<plist/>");
  inner_.addComponent("Extra", "1.0", kExtras);
}

void Products::deliver(support::PrivateRoot& root) const {
  root.copyIn(first_.path(), kFirst.path);
  root.copyIn(second_.path(), kSecond.path);
  root.copyIn(successor_.path(), kSuccessor.path);
  root.copyIn(secondSuccessor_.path(), kSecondSuccessor.path);
  root.copyIn(outer_.path(), kOuter.path);
  root.copyIn(secondOuter_.path(), kSecondOuter.path);
  root.copyIn(inner_.path(), kInner.path);
}

void furnish(support::PrivateRoot& root) {
  for (const char* folder : {"/Library/Application Support", "/Library/LaunchDaemons", "/Library/LaunchAgents",
                             "/Library/Caches", "/opt", "/var/db"}) {
    root.makeDirectory(folder);
  }
  root.writeFile(kLicence, "licensed");
  root.setConsoleUser(kConsoleUser);
  root.startProcess("loginwindow", kConsoleUser);
}

void furnishClassic(support::PrivateRoot& root) {
  root.makeDirectory("/Library/Guard");
  root.writeFile("/Library/Guard/classic", "classic", 0755);
  root.writeFile(kConfiguration, kEdited, 0600, kConsoleUser, 20);
  root.writeFile(kDaemons + std::string("com.corvane.classic.plist"), "<plist/>");
}

}  // namespace sweep
