#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"

namespace deployer {
namespace {

using foundation::PropertyList;
using Texts = std::vector<std::string>;

class RememberingReceipt : public QVNInstallationReceiptProtocol {
 public:
  PropertyList componentsAndVersions() override {
    asked.emplace_back("componentsAndVersions");
    return PropertyList("records");
  }
  std::optional<Texts> fixPlanForValidation() override {
    asked.emplace_back("fixPlanForValidation");
    return fixPlan;
  }
  bool removeComponents(const Texts& components) override {
    asked.emplace_back("removeComponents:");
    removed = components;
    return true;
  }
  void shutdownService() override { asked.emplace_back("shutdownService"); }

  std::optional<Texts> fixPlan;
  Texts removed;
  Texts asked;
};

TEST(ReceiptProtocol, NamesTheServiceOfAProcess) {
  EXPECT_EQ(receiptServiceNameOfProcess(4242), "com.corvane.installer.receipt.4242");
}

TEST(ReceiptProtocol, EverySelectorReachesItsOperationAndBringsItsResult) {
  RememberingReceipt receipt;
  const ipc::Target target = targetFor(receipt);
  EXPECT_EQ(target("componentsAndVersions", {}), PropertyList("records"));
  EXPECT_TRUE(target("fixPlanForValidation", {}).isNil());
  receipt.fixPlan = Texts{"B"};
  EXPECT_EQ(target("fixPlanForValidation", {}).strings(), Texts{"B"});
  const std::array arguments{PropertyList(Texts{"A", "B"})};
  EXPECT_EQ(target("removeComponents:", arguments).boolean(), true);
  EXPECT_EQ(receipt.removed, (Texts{"A", "B"}));
  EXPECT_TRUE(target("shutdownService", {}).isNil());
  EXPECT_EQ(receipt.asked, (Texts{"componentsAndVersions", "fixPlanForValidation", "fixPlanForValidation",
                                  "removeComponents:", "shutdownService"}));
}

}  // namespace
}  // namespace deployer
