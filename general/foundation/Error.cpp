#include "general/foundation/Error.h"

#include <cerrno>
#include <system_error>

#include "general/foundation/Paths.h"

namespace foundation {

namespace {

FileErrorCode readCode(int errnoValue) {
  switch (errnoValue) {
    case ENOENT:
      return kNoSuchFileOnRead;
    case EACCES:
    case EPERM:
      return kReadNoPermission;
    case ENAMETOOLONG:
      return kReadInvalidName;
    case EFBIG:
    case ENOMEM:
      return kReadTooLarge;
    default:
      return kReadUnknown;
  }
}

FileErrorCode writeCode(int errnoValue) {
  switch (errnoValue) {
    case ENOENT:
      return kNoSuchFileOnWrite;
    case EACCES:
    case EPERM:
      return kWriteNoPermission;
    case ENAMETOOLONG:
      return kWriteInvalidName;
    case EEXIST:
    case ENOTEMPTY:
      return kWriteFileExists;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return kWriteOutOfSpace;
    case EROFS:
      return kWriteVolumeReadOnly;
    default:
      return kWriteUnknown;
  }
}

FileErrorCode codeFor(int errnoValue, Access access, std::string_view path) {
  // The system never sees such a path, so EINVAL is what the check of the path itself reports.
  if (errnoValue == EINVAL && path.find('\0') != std::string_view::npos) {
    return access == Access::Read ? kReadInvalidName : kWriteInvalidName;
  }
  return access == Access::Read ? readCode(errnoValue) : writeCode(errnoValue);
}

std::string_view reasonFor(FileErrorCode code) {
  switch (code) {
    case kNoSuchFileOnWrite:
    case kNoSuchFileOnRead:
      return "because there is no such file";
    case kReadNoPermission:
    case kWriteNoPermission:
      return "because access to it is denied";
    case kReadInvalidName:
    case kWriteInvalidName:
      return "because its name is invalid";
    case kReadCorrupt:
      return "because its content is damaged";
    case kReadTooLarge:
      return "because it is too large";
    case kWriteFileExists:
      return "because an item with this name already exists";
    case kWriteOutOfSpace:
      return "because the volume is out of space";
    case kWriteVolumeReadOnly:
      return "because the volume is read only";
    case kReadUnknown:
    case kWriteUnknown:
      break;
  }
  return "";
}

// A NUL would cut the message short wherever it is printed.
std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char character : text) {
    if (character == '\0') {
      result += "\\0";
    } else {
      result += character;
    }
  }
  return result;
}

std::string sentence(FileErrorCode code, Access access, int errnoValue, std::string_view path) {
  std::string text = "The item \"";
  text += printable(paths::lastComponent(path));
  text += access == Access::Read ? "\" could not be read" : "\" could not be changed";
  if (const std::string_view reason = reasonFor(code); !reason.empty()) {
    return text.append(" ").append(reason).append(".");
  }
  return text.append(": ").append(std::generic_category().message(errnoValue)).append(".");
}

std::string describe(std::string_view domain, long code, std::string_view text) {
  std::string result = "Error Domain=";
  result.append(domain).append(" Code=").append(std::to_string(code));
  return result.append(" \"").append(printable(text)).append("\"");
}

}  // namespace

bool Error::meansNothingThere() const {
  return isNoSuchFile() || code == kReadInvalidName || code == kWriteInvalidName || underlyingErrno == ENOTDIR ||
         underlyingErrno == ELOOP;
}

std::map<std::string, std::string, std::less<>> Error::userInfo() const {
  auto info = details;
  if (path) {
    info.emplace(kFilePathErrorKey, *path);
  }
  if (underlyingErrno != 0) {
    info.emplace(kUnderlyingErrorKey,
                 describe(kPosixErrorDomain, underlyingErrno, std::generic_category().message(underlyingErrno)));
  }
  return info;
}

std::string Error::description() const {
  std::string result = describe(domain, code, text) + " UserInfo={";
  std::string_view separator;
  for (const auto& [key, value] : userInfo()) {
    result.append(separator).append(printable(key)).append("=").append(printable(value));
    separator = ", ";
  }
  return result + "}";
}

Error fileError(int errnoValue, Access access, std::string_view path) {
  const FileErrorCode code = codeFor(errnoValue, access, path);
  return {.domain = std::string(kFileErrorDomain),
          .code = code,
          .text = sentence(code, access, errnoValue, path),
          .path = std::string(path),
          .underlyingErrno = errnoValue,
          .details = {}};
}

Error fileError(FileErrorCode code, std::string_view text, std::string_view path) {
  return {.domain = std::string(kFileErrorDomain),
          .code = code,
          .text = std::string(text),
          .path = std::string(path),
          .underlyingErrno = 0,
          .details = {}};
}

}  // namespace foundation
