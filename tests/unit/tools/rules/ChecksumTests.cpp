#include <gtest/gtest.h>

#include <string>

#include "tools/rules/Checksum.h"

namespace {

using bundletool::faultOfChecksum;

TEST(Checksum, HasSixtyFourLowercaseHexadecimalDigits) {
  EXPECT_EQ(faultOfChecksum("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"), std::nullopt);
  for (const std::string& text : {std::string(), std::string(63, 'a'), std::string(65, 'a'), std::string(64, 'A'),
                                  std::string(64, 'g'), std::string(63, 'a') + "/", std::string(64, '\0')}) {
    EXPECT_NE(faultOfChecksum(text), std::nullopt) << text;
  }
}

}  // namespace
