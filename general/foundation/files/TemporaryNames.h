#pragma once

#include <string>
#include <string_view>

/// Names of items that are being made and that nobody is to see under their final name yet:
/// `.com.corvane.installer.<process id>.<start of the process>.<16 random hexadecimal digits>`. The start tells the
/// maker from a later process with its number, after a restart above all. Where the system does not say when a process
/// was started a name has no start, and 32 random digits. All functions may be called from any thread.
namespace foundation::temporary_names {

/// A new name in this folder ("" is the current one), as a path. Whoever creates it does so exclusively and removes it
/// or renames it away. The first call for a folder also sweeps it, see sweep().
[[nodiscard]] std::string make(const std::string& folder);

/// Removes from the folder what a killed run left behind, as far as that is certain: entries named exactly as make()
/// names them, of a process that no longer lives, that are regular files, links or empty directories, and that belong
/// to the effective user or lie in a folder that only its owner may write to (an item has its final owner before its
/// final name). Links are removed, not followed; everything else stays, and what cannot be removed is left alone.
void sweep(const std::string& folder);
/// The same, and directories with all their content. Only for folders in which nobody but the effective user can make
/// anything.
void sweepWithContent(const std::string& folder);

/// Whether an entry has a name as make() gives them, whoever made it.
[[nodiscard]] bool isTemporary(std::string_view name);

}  // namespace foundation::temporary_names
