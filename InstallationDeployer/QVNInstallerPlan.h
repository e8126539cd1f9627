#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace deployer {

/// The model of a plan that knows its kind. The steps of a run share a plain list of names instead; nothing creates one
/// of these yet.
class QVNInstallerPlan {
 public:
  enum Type : std::int32_t { Install, Fix, Removal };

  [[nodiscard]] static QVNInstallerPlan initInstallPlanWithPath(const std::string& path,
                                                                const std::string& receiptPath);
  [[nodiscard]] static QVNInstallerPlan initFixPlanWithPath(const std::string& path, const std::string& targetPath);
  [[nodiscard]] static QVNInstallerPlan initRemovalPlanWithPath(const std::string& path, const std::string& targetPath);

  [[nodiscard]] std::int32_t type() const { return type_; }
  void setType(std::int32_t type) { type_ = type; }
  [[nodiscard]] const std::vector<std::string>& planComponents() const { return planComponents_; }
  void setPlanComponents(std::vector<std::string> components) { planComponents_ = std::move(components); }
  [[nodiscard]] const std::vector<std::string>& components() const { return planComponents_; }

 private:
  std::int32_t type_ = Install;
  std::vector<std::string> planComponents_;
};

}  // namespace deployer
