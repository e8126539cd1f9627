#include "InstallationDeployer/ManifestCache.h"

#include <chrono>

#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/PropertyListFile.h"

namespace deployer {

using foundation::PropertyList;
using foundation::Result;

namespace {

// A file may change again within the clock tick of its last change and keep its times; only an older one is trusted.
constexpr std::chrono::nanoseconds kClockTick = std::chrono::milliseconds(100);

bool isSettled(std::int64_t changedNanoseconds) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return changedNanoseconds < std::chrono::duration_cast<std::chrono::nanoseconds>(now - kClockTick).count();
}

}  // namespace

Result<PropertyList> ManifestCache::read(const std::string& path) {
  if (const PropertyList* kept = current(path)) {
    return *kept;
  }
  // The stamp is taken before the content is read: a change in between leaves a stamp that will not match.
  const auto stamp = stampOf(path);
  auto content = foundation::plist::readDictionary(path);
  if (content && stamp && isSettled(stamp->changed)) {
    parsed_.insert_or_assign(path, Parsed{*stamp, *content});
  }
  return content;
}

const PropertyList* ManifestCache::current(const std::string& path) {
  const auto known = parsed_.find(path);
  if (known == parsed_.end()) {
    return nullptr;
  }
  const auto stamp = stampOf(path);
  if (!stamp || *stamp != known->second.stamp) {
    parsed_.erase(known);
    return nullptr;
  }
  return &known->second.content;
}

std::optional<ManifestCache::Stamp> ManifestCache::stampOf(const std::string& path) {
  const auto attributes = foundation::files::attributesOfItem(path);
  // What a link leads to can change while the link stays.
  if (!attributes || attributes->type != foundation::FileType::Regular) {
    return std::nullopt;
  }
  return Stamp{attributes->device, attributes->inode, attributes->size, attributes->modificationNanoseconds,
               attributes->changeNanoseconds};
}

}  // namespace deployer
