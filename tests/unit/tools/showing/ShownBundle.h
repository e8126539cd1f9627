#pragma once

#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/unit/tools/PackagerFixture.h"
#include "tools/showing/BundleContents.h"

namespace tests {

/// A packager who looks at the bundle that was built.
class ShownBundle : public PackagerFixture {
 protected:
  static constexpr const char* kIndex = "out/Installer.app/Contents/Install/Manifests/Index.plist";
  static constexpr const char* kCore = "out/Installer.app/Contents/Install/Manifests/Core.plist";

  bundletool::BundleContents read() {
    problems_ = {};
    auto contents = bundletool::readBundle(bundle(), problems_);
    EXPECT_TRUE(contents);
    return std::move(contents).value_or(bundletool::BundleContents{});
  }
  [[nodiscard]] PropertyList plist(const char* name) { return *foundation::plist::readFile(path(name)); }

  /// Builds a bundle of which there is something to tell: a daemon, a link, a set-id executable that is run.
  void buildSomethingToTell() {
    stage("Library/LaunchDaemons/svcd.plist", "daemon");
    std::filesystem::create_symlink("file", staged("opt/link"));
    ASSERT_EQ(chmod(staged("opt/file").c_str(), 04755), 0);
    const PropertyList executable =
        dictionary({{"Path", "/opt/file"}, {"ListOfArguments", array({"-x", "y"})}, {"ExecuteOnInstall", true}});
    useAuthoringPlist(dictionary({{"ListOfExecutables", array({executable})}, {"RebuildKextCache", true}}));
    ASSERT_TRUE(build()) << problems_.errors().at(0).text();
  }
  /// Builds a bundle and puts text into a manifest that would act on a terminal.
  void buildSomethingHostile() {
    ASSERT_TRUE(build());
    const std::string evil =
        "/x\x1b[2J\n\xc2\x9b"
        "31m\xe2\x80\xae\x7f";
    const PropertyList entry = dictionary({{"Path", evil}, {"IsSymbolicLink", true}, {"SymbolicLinkTarget", evil}});
    ASSERT_TRUE(foundation::plist::writeFile(plist(kCore)
                                                 .with("ListOfFiles", array({entry, dictionary({{evil, evil}})}))
                                                 .with("ComponentVersion", evil)
                                                 .with("ListOfLaunchAgents", array({evil})),
                                             path(kCore), foundation::plist::Format::Binary)
                    .ok());
  }
  static void expectHarmless(const std::string& shown) {
    EXPECT_EQ(shown.find('\x1b'), std::string::npos);
    EXPECT_EQ(shown.find('\x7f'), std::string::npos);
    EXPECT_EQ(shown.find("\xc2\x9b"), std::string::npos);
    EXPECT_EQ(shown.find("\xe2\x80\xae"), std::string::npos);
    EXPECT_EQ(shown.find("2J\n"), std::string::npos);
  }
};

}  // namespace tests
