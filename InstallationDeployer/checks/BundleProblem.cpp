#include "InstallationDeployer/checks/BundleProblem.h"

#include <iterator>
#include <system_error>
#include <utility>

namespace deployer {

namespace {

constexpr std::size_t kLongestText = 1000;

std::string reasonIn(const foundation::Error& error) {
  return error.underlyingErrno != 0 ? std::generic_category().message(error.underlyingErrno) : error.text;
}

}  // namespace

std::string_view nameOf(BundleProblem::Kind kind) {
  switch (kind) {
    case BundleProblem::Kind::Missing:
      return "missing";
    case BundleProblem::Kind::Unreadable:
      return "unreadable";
    case BundleProblem::Kind::Checksum:
      return "checksum";
    case BundleProblem::Kind::Space:
      return "space";
    case BundleProblem::Kind::Malformed:
      break;
  }
  return "malformed";
}

BundleProblem problemOfReading(const std::string& path, const std::string& component, const foundation::Error& error) {
  using Kind = BundleProblem::Kind;
  if (error.isNoSuchFile()) {
    return {.kind = Kind::Missing, .file = path, .what = "is missing", .component = component};
  }
  if (error.code == foundation::kReadCorrupt) {
    return {.kind = Kind::Malformed, .file = path, .what = "is damaged: " + error.text, .component = component};
  }
  return {.kind = Kind::Unreadable, .file = path, .what = "cannot be read: " + reasonIn(error), .component = component};
}

std::string shortened(std::string text) {
  if (text.size() > kLongestText) {
    text.resize(kLongestText);
    text += "...";
  }
  return text;
}

void BundleProblems::add(std::uint64_t place, BundleProblem problem) {
  problem.what = shortened(std::move(problem.what));
  const foundation::MutexLock lock(mutex_);
  ++count_;
  kept_.emplace(place, std::move(problem));
  if (kept_.size() > kMostKept) {
    kept_.erase(std::prev(kept_.end()));
  }
}

std::uint64_t BundleProblems::count() const {
  const foundation::MutexLock lock(mutex_);
  return count_;
}

std::vector<BundleProblem> BundleProblems::first() const {
  const foundation::MutexLock lock(mutex_);
  std::vector<BundleProblem> problems;
  for (const auto& [place, problem] : kept_) {
    problems.push_back(problem);
  }
  return problems;
}

}  // namespace deployer
