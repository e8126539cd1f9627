#include "general/foundation/files/ItemStatus.h"

namespace foundation {

std::string_view fileTypeName(FileType type) {
  switch (type) {
    case FileType::Regular:
      return "NSFileTypeRegular";
    case FileType::Directory:
      return "NSFileTypeDirectory";
    case FileType::SymbolicLink:
      return "NSFileTypeSymbolicLink";
    case FileType::CharacterSpecial:
      return "NSFileTypeCharacterSpecial";
    case FileType::BlockSpecial:
      return "NSFileTypeBlockSpecial";
    case FileType::Socket:
      return "NSFileTypeSocket";
    case FileType::Fifo:
    case FileType::Unknown:
      break;
  }
  return "NSFileTypeUnknown";
}

}  // namespace foundation
