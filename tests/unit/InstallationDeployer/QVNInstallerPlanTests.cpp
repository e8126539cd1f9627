#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallerPlan.h"

namespace deployer {
namespace {

TEST(InstallerPlan, InitialisersLoadNothing) {
  EXPECT_TRUE(QVNInstallerPlan::initInstallPlanWithPath("/a", "/b").components().empty());
  EXPECT_TRUE(QVNInstallerPlan::initFixPlanWithPath("/a", "/b").components().empty());
  QVNInstallerPlan plan = QVNInstallerPlan::initRemovalPlanWithPath("/a", "/b");
  plan.setPlanComponents({"A"});
  EXPECT_EQ(plan.components(), std::vector<std::string>{"A"});
  plan.setType(QVNInstallerPlan::Fix);
  EXPECT_EQ(plan.type(), 1);
}

}  // namespace
}  // namespace deployer
