#include "general/system/GroupMembershipPrimitives.h"

#include <grp.h>
#include <membership.h>
#include <uuid/uuid.h>

namespace platform {

bool isMemberOfGroup(std::uint32_t userId, const std::string& group) {
  const struct group* const entry = getgrnam(group.c_str());
  uuid_t user;
  uuid_t members;
  int isMember = 0;
  return entry != nullptr && mbr_uid_to_uuid(userId, user) == 0 && mbr_gid_to_uuid(entry->gr_gid, members) == 0 &&
         mbr_check_membership(user, members, &isMember) == 0 && isMember != 0;
}

}  // namespace platform
