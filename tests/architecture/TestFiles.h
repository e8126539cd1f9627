#pragma once

#include <string>
#include <vector>

#include "tests/architecture/House.h"

namespace architecture {

/// The files of tests below tests/unit/ of a project, as `folder/SubjectTests.cpp`, without tests/unit/.
std::vector<std::string> unitTestFilesOf(const std::string& project);

/// Files of tests that are not named after a source or header in the same folder of the product:
/// `folder/SubjectTests.cpp` stands for `folder/Subject.h` or `.cpp`.
Problems testFilesWithoutSubject(const House& house, const std::vector<std::string>& testFiles);

}  // namespace architecture
