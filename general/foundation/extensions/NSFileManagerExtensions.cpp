#include "general/foundation/extensions/NSFileManagerExtensions.h"

#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/GuardedReading.h"

namespace foundation::NSFileManagerExtensions {

namespace {

constexpr std::uint32_t kPermissionBitsWithoutSetId = 0777;

FileAttributes attributesOf(const ItemStatus& item) {
  return {.owner = item.owner,
          .group = item.group,
          .permissions = item.permissions,
          .modificationNanoseconds = item.modificationNanoseconds};
}

/// Without set-id bits: they were given to a file of another owner.
FileAttributes attributesOfLink(const ItemStatus& link, const ItemStatus& target) {
  FileAttributes own = attributesOf(link);
  own.permissions = target.permissions & kPermissionBitsWithoutSetId;
  return own;
}

}  // namespace

Error errorWithMessage(std::string_view message, const std::optional<std::string>& path, long code) {
  const std::string text(message);
  return {.domain = std::string(kFileManagerExtensionsErrorDomain),
          .code = code,
          .text = text,
          .path = path,
          .underlyingErrno = 0,
          .details = {{std::string(kLocalizedDescriptionKey), text},
                      {std::string(kLocalizedFailureReasonErrorKey), text},
                      {std::string(kUnderlyingErrorKey), text}}};
}

Status createDeepDirectoryAtPath(const std::string& path, const FileAttributes& attributes) {
  return files::createDirectory(path, true, attributes);
}

Status copyAndOverwriteItemAtPath(const std::string& source, const std::string& destination) {
  FileBuffer buffer;
  const auto content = files::read(source, buffer);
  if (!content) {
    return content.error();
  }
  const auto status = files::attributesOfItem(source);
  if (!status) {
    return status.error();
  }
  FileAttributes own = attributesOf(*status);
  if (status->isSymbolicLink() && !files::linksHavePermissions()) {
    const auto target = files::attributesOfTarget(source);
    if (!target) {
      return target.error();
    }
    own = attributesOfLink(*status, *target);
  }
  return files::writeAtomically(*content, destination, own);
}

Status copyAndOverwriteGuardedItemAtPath(const std::string& source, const std::string& destination) {
  FileBuffer buffer;
  const auto content = files::readGuarded(source, buffer);
  if (!content) {
    return content.error();
  }
  const bool isLink = content->item.isSymbolicLink() && !files::linksHavePermissions();
  return files::writeAtomically(content->bytes, destination,
                                isLink ? attributesOfLink(content->item, content->file) : attributesOf(content->item));
}

}  // namespace foundation::NSFileManagerExtensions
