#pragma once

#include "tests/architecture/House.h"

namespace architecture {

/// Targets that the page calls otherwise, and targets of the page that nothing builds.
Problems targetsAgainstPage(const House& house);

/// Folders whose targets do not link what their sources include, or link what no source includes.
Problems linksAgainstIncludes(const House& house);

/// Links that are PUBLIC although no header needs them, and links that a header needs and that are not PUBLIC.
Problems linksAgainstHeaders(const House& house);

/// Sources that no target builds, on any system.
Problems unbuiltSources(const House& house);

}  // namespace architecture
