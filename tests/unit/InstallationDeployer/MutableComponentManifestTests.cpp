#include <gtest/gtest.h>

#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/MutableComponentManifest.h"

namespace deployer {
namespace {

using foundation::PropertyList;

TEST(MutableComponentManifest, HasEveryListFromTheBeginning) {
  const PropertyList empty = MutableComponentManifest().dictionary();
  for (const auto key :
       {kManifestListOfFiles, kManifestListOfExecutables, kManifestListOfLaunchDaemons, kManifestListOfLaunchAgents}) {
    EXPECT_TRUE(empty[key].isArray()) << key;
    EXPECT_EQ(empty[key].count(), 0U) << key;
  }
  EXPECT_EQ(empty[kManifestComponentSize].integer(), 0);
  EXPECT_TRUE(empty[kManifestComponentVersion].isNil());
}

TEST(MutableComponentManifest, GrowsWithoutChangingWhatItStartedWith) {
  const PropertyList existing =
      PropertyList::dictionary({{"ListOfFiles", PropertyList::Array{"one"}}, {"ComponentSize", 10}, {"Other", "kept"}});
  MutableComponentManifest manifest(existing);
  manifest.files.emplace_back("two");
  manifest.size += 5;
  manifest.version = "1.2";
  EXPECT_EQ(manifest.dictionary()[kManifestListOfFiles], PropertyList(PropertyList::Array{"one", "two"}));
  EXPECT_EQ(manifest.dictionary()[kManifestComponentSize].integer(), 15);
  EXPECT_EQ(manifest.dictionary()[kManifestComponentVersion].text(), "1.2");
  EXPECT_EQ(manifest.dictionary()["Other"].text(), "kept");
  EXPECT_EQ(existing[kManifestListOfFiles].count(), 1U);
}

TEST(MutableComponentManifest, ListsOfTheWrongTypeAreStartedAnew) {
  const MutableComponentManifest manifest(
      PropertyList::dictionary({{"ListOfFiles", "text"}, {"ComponentSize", "ten"}}));
  EXPECT_TRUE(manifest.files.empty());
  EXPECT_TRUE(manifest.dictionary()[kManifestListOfFiles].isArray());
  EXPECT_EQ(manifest.size, 0);
}

}  // namespace
}  // namespace deployer
