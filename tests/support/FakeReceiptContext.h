#pragma once

#include <string>
#include <utility>
#include <vector>

#include "InstallationDeployer/receipt/ReceiptContext.h"

namespace tests {

/// The part of a run that has to do with receipts, without a controller: hands out the client that a test gives it and
/// remembers what the steps did.
class FakeReceiptContext : public deployer::ReceiptContext {
 public:
  explicit FakeReceiptContext(std::string bundlePath) : bundlePath_(std::move(bundlePath)) {}

  deployer::QVNReceiptClient* getReceiptClientForStrategy(deployer::QVNInstallStepStrategy& step) override {
    askedForReceiptClient.push_back(&step);
    return receiptClient;
  }
  std::string postingNotificationId() const override { return bundlePath_; }
  void shutdownStatusService() override { ++statusServiceShutdowns; }

  deployer::QVNReceiptClient* receiptClient = nullptr;
  std::vector<deployer::QVNInstallStepStrategy*> askedForReceiptClient;
  int statusServiceShutdowns = 0;

 private:
  std::string bundlePath_;
};

}  // namespace tests
