#pragma once

#include <optional>
#include <string>
#include <vector>

#include "InstallationDeployer/receipt/QVNReceiptClient.h"

namespace tests {

/// A receipt that answers as a test says, and remembers in order what it was asked.
class FakeReceiptClient : public deployer::QVNReceiptClient {
 public:
  using Texts = std::vector<std::string>;

  deployer::QVNInstallationReceiptProtocol* receiptProxy() override { return hasReceiptProxy ? &receipt_ : nullptr; }
  deployer::QVNInstallationStatusProtocol* receiptStatusProxy() override { return hasStatusProxy ? &status_ : nullptr; }
  bool lastReceiptProxyMessageSuccess() override { return lastMessage_ != failingMessage; }
  bool lastReceiptStatusProxyMessageSuccess() override { return lastMessage_ != failingMessage; }
  void startUpdatingCurrentStepStatusFromReceipt() override { calls.emplace_back("start updating"); }
  void stopUpdatingCurrentStepStatusFromReceipt() override { calls.emplace_back("stop updating"); }

  bool hasReceiptProxy = true;
  bool hasStatusProxy = true;
  foundation::PropertyList records;
  std::optional<Texts> fixPlan = Texts{};
  bool removes = true;
  std::int32_t state = 0;
  /// The message that counts as failed.
  std::string failingMessage;
  Texts calls;
  Texts componentsToRemove;

 private:
  void note(const std::string& message) {
    calls.push_back(message);
    lastMessage_ = message;
  }

  class Receipt : public deployer::QVNInstallationReceiptProtocol {
   public:
    explicit Receipt(FakeReceiptClient& client) : client_(client) {}
    foundation::PropertyList componentsAndVersions() override {
      client_.note("componentsAndVersions");
      return client_.records;
    }
    std::optional<Texts> fixPlanForValidation() override {
      client_.note("fixPlanForValidation");
      return client_.fixPlan;
    }
    bool removeComponents(const Texts& components) override {
      client_.note("removeComponents:");
      client_.componentsToRemove = components;
      return client_.removes;
    }
    void shutdownService() override { client_.note("shutdownService"); }

   private:
    FakeReceiptClient& client_;
  };

  class Status : public deployer::QVNInstallationStatusProtocol {
   public:
    explicit Status(FakeReceiptClient& client) : client_(client) {}
    std::int32_t getCurrentState() override {
      client_.note("getCurrentState");
      return client_.state;
    }
    std::int64_t getProgress() override { return 0; }
    void cancelInstallation() override {}
    void shutdownService() override {}
    std::string description() const override { return "the status proxy"; }

   private:
    FakeReceiptClient& client_;
  };

  Receipt receipt_{*this};
  Status status_{*this};
  std::string lastMessage_;
};

}  // namespace tests
