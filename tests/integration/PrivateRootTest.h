#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/PrivateRoot.h"

namespace tests {

/// Every test runs in both ways, so that the one the machine at hand does not need is tried as well.
class PrivateRootTest : public ::testing::TestWithParam<support::PrivateRoot::Way> {
 protected:
  void SetUp() override {
    if (const auto reason = support::PrivateRoot::whyImpossible(GetParam())) {
      GTEST_SKIP() << *reason;
    }
    support::PrivateRoot::Options options;
    options.way = GetParam();
    root_ = std::make_unique<support::PrivateRoot>(options);
  }

  support::PrivateRoot& root() { return *root_; }

  std::unique_ptr<support::PrivateRoot> root_;
};

/// A test that is run for either has the way in its name.
inline std::string wayName(const ::testing::TestParamInfo<support::PrivateRoot::Way>& way) {
  return way.param == support::PrivateRoot::Way::Mounts ? "Mounts" : "Copies";
}

}  // namespace tests
