#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Thread.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeReceiptClient.h"
#include "tests/support/FakeReceiptContext.h"
#include "tests/support/FakeStepContext.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {

/// The steps of an installer that talk to the installed product's receipt.
class ReceiptAskingTest : public ::testing::Test, protected tests::BundleFixture {
 protected:
  using Texts = std::vector<std::string>;

  void SetUp() override {
    run_.configuration().setProductName("P");
    run_.configuration().setHasInstallerReceipt(true);
    receipts_.receiptClient = &client_;
    writeProduct({"A", "B", "C"});
    writeVersion("A", "1.0");
    writeVersion("B", "1.1");
    writeVersion("C", "1.0");
    client_.records = records({{"A", "1.0"}, {"B", "1.0"}});
  }

  void writeProduct(const Texts& components) const { writeIndex(indexOfComponents("P", components)); }
  void writeVersion(const std::string& component, const std::string& version) const {
    writeManifest(component, dictionary({{"ComponentVersion", version}}));
  }
  static std::string statusLine() {
    return "----- <" + foundation::currentThreadName() +
           ">execute:\n\tstatusProxy = the status proxy\n\t[statusProxy getCurrentState]";
  }
  template <class Step>
  void expectFailure(Step& step, QVNInstallerState state, const Texts& errors) {
    const tests::CapturedLog log;
    EXPECT_FALSE(step.execute(true));
    EXPECT_EQ(step.installerState(), state);
    EXPECT_EQ(log.texts("Error"), errors);
  }

  tests::FakeReceiptClient client_;
  tests::FakeStepContext run_{path()};
  tests::FakeReceiptContext receipts_{path()};
  SharedPlan plan_ = std::make_shared<Plan>();
};

}  // namespace deployer
