#pragma once

#include <string>

namespace support {

/// Copies a folder with everything in it to a path where nothing is: types, owners, groups, modes, contents and
/// targets; no times, and no sockets. Files of more than a mebibyte, which are programs that nobody writes into, become
/// further names of the same files. Throws PrivateRootError.
void copyTree(const std::string& from, const std::string& to);

/// Removes whatever is at a path, folders with everything in them. Throws PrivateRootError.
void removeTree(const std::string& path);

}  // namespace support
