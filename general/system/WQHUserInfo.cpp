#include "general/system/WQHUserInfo.h"

#include "general/system/GroupMembershipPrimitives.h"
#include "general/system/ProcessSelf.h"

namespace platform {

bool WQHUserInfo::isMemberOfAdminForUid(std::uint32_t userId) { return isMemberOfGroup(userId, "admin"); }

bool WQHUserInfo::isMemberOfAdmin() { return isMemberOfAdminForUid(self::realUserId()); }

}  // namespace platform
