#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "InstallationDeployer/DiskSpace.h"

namespace deployer {
namespace {

constexpr auto kMostBytes = std::numeric_limits<std::int64_t>::max();

TEST(DiskSpaceNeeded, FreeSpaceExactlyEqualToTheRequiredSizePasses) {
  DiskSpace space;
  space.add(1000);
  EXPECT_TRUE(space.fitsInto(1000));
  EXPECT_FALSE(space.fitsInto(999));
}

TEST(DiskSpaceNeeded, SumsStopAtTheEndsOfTheRange) {
  DiskSpace space;
  space.add(kMostBytes);
  space.add(kMostBytes);
  EXPECT_EQ(space.required(), kMostBytes);
  DiskSpace negative;
  negative.add(std::numeric_limits<std::int64_t>::min());
  negative.add(-1);
  EXPECT_EQ(negative.required(), std::numeric_limits<std::int64_t>::min());
}

TEST(DiskSpaceNeeded, AReceiptTakesThePayloadToWhereItKeepsIt) {
  using foundation::PropertyList;
  const PropertyList index = PropertyList::dictionary({{"ReceiptSize", 10}, {"PayloadSize", 300}});
  DiskSpace without;
  without.addReceipt(index);
  EXPECT_EQ(without.required(), 10);
  DiskSpace with;
  with.addReceipt(index.with("ReceiptHasPayloadContents", true));
  EXPECT_EQ(with.required(), 310);
  DiskSpace unknown;
  unknown.addReceipt({});
  EXPECT_EQ(unknown.required(), 0);
}

TEST(DiskSpaceNeeded, FreeSpaceBeyondTheSignedRangeIsTheLargestNumber) {
  EXPECT_EQ(DiskSpace::signedSize(std::numeric_limits<std::uint64_t>::max()), kMostBytes);
}

}  // namespace
}  // namespace deployer
