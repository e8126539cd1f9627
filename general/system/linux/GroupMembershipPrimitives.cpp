#include "general/system/GroupMembershipPrimitives.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr std::size_t kFirstBuffer = 4096;
// A database that wants more than this for one entry is broken or hostile.
constexpr std::size_t kLargestBuffer = std::size_t{16} << 20U;
constexpr int kMostGroups = 65536;  // the kernel's own limit

/// Calls a database look-up with more and more room for the entry's texts. The entry lives in the buffer.
template <class Entry, class LookUp>
std::optional<Entry> lookUp(std::vector<char>& buffer, const LookUp& find) {
  for (std::size_t size = kFirstBuffer; size <= kLargestBuffer; size *= 2) {
    buffer.resize(size);
    Entry entry{};
    Entry* found = nullptr;
    const int error = find(&entry, buffer.data(), buffer.size(), &found);
    if (error == 0 && found != nullptr) {
      return entry;
    }
    if (error != ERANGE) {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

std::optional<gid_t> groupIdOf(const std::string& group) {
  std::vector<char> buffer;
  const auto entry =
      lookUp<struct group>(buffer, [&](struct group* room, char* texts, std::size_t size, struct group** found) {
        return getgrnam_r(group.c_str(), room, texts, size, found);
      });
  return entry ? std::optional(entry->gr_gid) : std::nullopt;
}

std::vector<gid_t> groupsOf(const char* user, gid_t primary) {
  int count = 64;
  while (count <= kMostGroups) {
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    int found = count;
    if (getgrouplist(user, primary, groups.data(), &found) >= 0) {
      groups.resize(static_cast<std::size_t>(std::max(found, 0)));
      return groups;
    }
    count = std::max(found, count * 2);
  }
  return {primary};
}

}  // namespace

bool isMemberOfGroup(std::uint32_t userId, const std::string& group) {
  const auto groupId = groupIdOf(group);
  if (!groupId) {
    return false;
  }
  std::vector<char> buffer;
  const auto user = lookUp<passwd>(buffer, [&](passwd* room, char* texts, std::size_t size, passwd** found) {
    return getpwuid_r(userId, room, texts, size, found);
  });
  if (!user) {
    return false;
  }
  const auto groups = groupsOf(user->pw_name, user->pw_gid);
  return std::find(groups.begin(), groups.end(), *groupId) != groups.end();
}

}  // namespace platform
