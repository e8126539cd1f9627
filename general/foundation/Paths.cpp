#include "general/foundation/Paths.h"

#include <algorithm>
#include <climits>

namespace foundation::paths {

namespace {

// "/" stays what it is, however many slashes it is written with.
std::string_view withoutTrailingSlashes(std::string_view path) {
  const std::size_t last = path.find_last_not_of('/');
  if (last == std::string_view::npos) {
    return path.substr(0, path.empty() ? 0 : 1);
  }
  return path.substr(0, last + 1);
}

std::string_view withoutLeadingSlashes(std::string_view path) {
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

template <class Visitor>
void forEachComponent(std::string_view path, Visitor visit) {
  std::size_t position = 0;
  while (position < path.size()) {
    const std::size_t end = std::min(path.find('/', position), path.size());
    if (end > position) {
      visit(path.substr(position, end - position));
    }
    position = end + 1;
  }
}

std::string_view lastComponentView(std::string_view path) {
  const std::string_view trimmed = withoutTrailingSlashes(path);
  const std::size_t slash = trimmed.rfind('/');
  return slash == std::string_view::npos || trimmed.size() == 1 ? trimmed : trimmed.substr(slash + 1);
}

}  // namespace

std::string append(std::string_view path, std::string_view component) {
  const std::string_view tail = withoutLeadingSlashes(withoutTrailingSlashes(component));
  if (path.empty()) {
    return std::string(withoutTrailingSlashes(component));
  }
  std::string result(withoutTrailingSlashes(path));
  if (tail.empty()) {
    return result;
  }
  result.reserve(result.size() + 1 + tail.size());
  if (result.back() != '/') {
    result += '/';
  }
  return result.append(tail);
}

std::string appendExtension(std::string_view path, std::string_view extension) {
  std::string result(withoutTrailingSlashes(path));
  if (result.empty() || result == "/") {
    return result;
  }
  return result.append(".").append(extension);
}

std::string deleteLastComponent(std::string_view path) {
  const std::string_view trimmed = withoutTrailingSlashes(path);
  const std::size_t slash = trimmed.rfind('/');
  return slash == std::string_view::npos ? std::string()
                                         : std::string(withoutTrailingSlashes(trimmed.substr(0, slash + 1)));
}

std::string lastComponent(std::string_view path) { return std::string(lastComponentView(path)); }

std::string deleteExtension(std::string_view path) {
  const std::string_view trimmed = withoutTrailingSlashes(path);
  const std::string_view name = lastComponentView(trimmed);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || name == "..") {
    return std::string(trimmed);
  }
  return std::string(trimmed.substr(0, trimmed.size() - (name.size() - dot)));
}

std::vector<std::string> components(std::string_view path) {
  std::vector<std::string> result;
  if (isAbsolute(path)) {
    result.emplace_back("/");
  }
  forEachComponent(path, [&](std::string_view component) { result.emplace_back(component); });
  return result;
}

std::string standardize(std::string_view path) {
  const bool absolute = isAbsolute(path);
  std::vector<std::string_view> kept;
  forEachComponent(path, [&](std::string_view component) {
    if (component == ".") {
      return;
    }
    if (absolute && component == "..") {
      if (!kept.empty()) {
        kept.pop_back();
      }
      return;
    }
    kept.push_back(component);
  });
  if (kept.empty()) {
    return absolute ? "/" : (path.empty() ? "" : ".");
  }
  std::string result;
  result.reserve(path.size());
  for (const std::string_view component : kept) {
    if (absolute || !result.empty()) {
      result += '/';
    }
    result.append(component);
  }
  return result;
}

bool isAbsolute(std::string_view path) { return path.starts_with('/'); }

std::string resolve(std::string_view base, std::string_view path) {
  return isAbsolute(path) ? std::string(path) : standardize(append(base, path));
}

bool isSingleComponent(std::string_view name) {
  return !name.empty() && name.size() <= NAME_MAX && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

bool isWithinLimits(std::string_view path) {
  bool fits = path.size() < PATH_MAX;
  forEachComponent(path, [&](std::string_view component) { fits = fits && component.size() <= NAME_MAX; });
  return fits;
}

bool climbs(std::string_view path) {
  bool found = false;
  forEachComponent(path, [&](std::string_view component) { found = found || component == ".."; });
  return found;
}

}  // namespace foundation::paths
