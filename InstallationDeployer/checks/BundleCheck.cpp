#include "InstallationDeployer/checks/BundleCheck.h"

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "InstallationDeployer/checks/BundleReading.h"
#include "InstallationDeployer/checks/ChecksumComparison.h"
#include "InstallationDeployer/checks/SpaceOutlook.h"
#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace deployer {

using Names = std::vector<std::string>;

namespace {

/// The products that the engine may choose from. One that has no folder's name is refused by it before it looks
/// further.
Names productsFor(const BundleCheckRequest& request, QVNInstallerManifest& manifest) {
  Names products;
  const foundation::PropertyList listed = manifest.productsDictionary();
  for (const auto& entry : listed.entries()) {
    if ((!request.product || entry.key == *request.product) && foundation::paths::isSingleComponent(entry.key)) {
      products.emplace_back(entry.key);
    }
  }
  return products;
}

void addShortage(const SpaceShortage& shortage, std::uint64_t place, BundleProblems& problems) {
  problems.add(place, {.kind = BundleProblem::Kind::Space,
                       .file = "/",
                       .what = foundation::format("has too little space: %lld bytes are required and %lld free",
                                                  shortage.required, shortage.free),
                       .component = {},
                       .expected = std::to_string(shortage.required),
                       .found = std::to_string(shortage.free)});
}

BundleReport reportOf(const BundleProblems& problems, const BundleReading& reading) {
  BundleReport report;
  report.problems = problems.first();
  report.problemCount = problems.count();
  report.warnings = reading.warnings();
  report.files = reading.payload().files().size();
  for (const PayloadFiles::File& file : reading.payload().files()) {
    report.bytes += file.bytes;
  }
  return report;
}

}  // namespace

BundleReport checkBundle(const BundleCheckRequest& request, CheckProgress& progress) {
  QVNInstallerManifest manifest(request.bundlePath);
  BundleProblems problems;
  BundleReading reading(request.bundlePath, manifest, problems, progress);
  if (!reading.readIndex()) {
    return reportOf(problems, reading);
  }
  const Names products = productsFor(request, manifest);
  for (const std::string& product : products) {
    reading.readProduct(product);
  }
  std::uint64_t place = reading.nextPlace();
  if (const auto shortage = spaceShortageFor(manifest, products)) {
    addShortage(*shortage, place++, problems);
  }
  if (request.comparesChecksums) {
    ChecksumComparison(reading.payload(), place, problems, progress).run();
  }
  BundleReport report = reportOf(problems, reading);
  report.comparedChecksums = request.comparesChecksums;
  return report;
}

BundleReport checkReceipt(const std::string& bundlePath) {
  QVNInstallerManifest manifest(bundlePath);
  BundleProblems problems;
  CheckProgress progress;
  BundleReading reading(bundlePath, manifest, problems, progress);
  static_cast<void>(reading.readIndex());
  BundleReport report = reportOf(problems, reading);
  const bool isGone = !report.isFit() && report.problems.front().kind == BundleProblem::Kind::Missing;
  return isGone ? BundleReport() : report;
}

}  // namespace deployer
