#pragma once

#include <gtest/gtest.h>

#include <string>

#include "general/foundation/propertylist/PropertyList.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {

/// A bundle in a folder of its own whose manifests a test writes key by key.
class BundleFixture : public PropertyLists {
 public:
  [[nodiscard]] std::string path() const { return directory_.path("Installer.app"); }
  [[nodiscard]] std::string path(const std::string& below) const { return path() + "/" + below; }
  void writeIndex(const PropertyList& index) const { writeManifest("Index", index); }
  void writeManifest(const std::string& name, const PropertyList& content) const {
    directory_.makeDirectory("Installer.app/Contents/Install/Manifests");
    EXPECT_TRUE(foundation::plist::writeFile(content, path("Contents/Install/Manifests/" + name + ".plist")).ok());
  }
  [[nodiscard]] const TemporaryDirectory& directory() const { return directory_; }

 private:
  TemporaryDirectory directory_;
};

}  // namespace tests
