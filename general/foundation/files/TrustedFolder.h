#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "general/foundation/Result.h"
#include "general/foundation/files/FileAttributes.h"

/// Whose word what lies in a folder is. Who may write in a folder can put, replace and remove everything there,
/// whatever the permissions of the items are; a sticky bit (as /tmp has it) keeps users from each other's items, but
/// from nothing that is not there yet. So what is found in a folder is its owner's word when neither its group nor
/// others may write in it, and root's when the folder is root's besides. Asked of an open folder, nobody can exchange
/// it between the answer and its use (TOCTOU). Use from any thread.
namespace foundation::trusted_folder {

/// Nobody but the owner, and root, can change what lies in a folder with these permissions; other mode bits do no harm.
[[nodiscard]] bool isItsOwnersAlone(std::uint32_t permissions);
/// Nobody but root can.
[[nodiscard]] bool isRootsAlone(std::uint32_t owner, std::uint32_t permissions);
/// Whether there is a directory at the path that only root can change. A link there is none.
[[nodiscard]] bool isRootsAlone(const std::string& path);
/// The first item on the way to an absolute path, the path itself included, by which another user decides what lies
/// there: it belongs to neither root nor this process's user, or everybody may write in it and it has no sticky bit.
/// Nothing when there is none, and where the way ends early. Links are judged themselves, and what they lead to.
[[nodiscard]] std::optional<std::string> firstOfSomebodyElse(const std::string& path);
/// Gives a directory these attributes, by which others lose what they could do in it. What lies in it stays. A link,
/// and what is no directory, is an error: nothing else can be given away by somebody who exchanges it meanwhile.
[[nodiscard]] Status takeOver(const std::string& path, const FileAttributes& attributes);

}  // namespace foundation::trusted_folder
