#include "tests/sweep/Machine.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <filesystem>
#include <sstream>

#include "tests/support/RootDirectory.h"
#include "tests/support/Snapshot.h"

namespace sweep {
namespace {

namespace fs = std::filesystem;

/// What runs may change, the records of the tests' own programs included.
constexpr std::array kTops = {"/Library", "/opt", "/var/db", "/run/com.corvane.installer", "/run/programs"};
constexpr mode_t kPermissionBits = 07777;
constexpr std::size_t kBig = 65536;
constexpr int kShownLines = 12;

std::string readFile(const std::string& path, std::size_t size) {
  std::string content(size, '\0');
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (file < 0) {
    support::throwErrno("reading " + path);
  }
  std::size_t done = 0;
  ssize_t count = 0;
  while (done < size && (count = read(file, content.data() + done, size - done)) > 0) {
    done += static_cast<std::size_t>(count);
  }
  close(file);
  content.resize(done);
  return content;
}

std::string readLink(const std::string& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlink(path.c_str(), target.data(), target.size());
  return {target.data(), length < 0 ? 0 : static_cast<std::size_t>(length)};
}

void require(bool success, const std::string& what) {
  if (!success) {
    support::throwErrno(what);
  }
}

std::string line(const std::string& path, const Item& item) {
  std::ostringstream text;
  text << item.type << ' ' << std::oct << item.mode << std::dec << ' ' << item.user << ':' << item.group << ' '
       << item.text().size() << ' ' << path;
  if (item.type == 'l') {
    text << " -> " << item.text();
  } else if (item.text().size() < 40) {
    text << " \"" << item.text() << '"';
  }
  return text.str();
}

}  // namespace

std::string difference(const Tree& found, const Tree& wanted) {
  std::string text;
  int lines = 0;
  const auto add = [&](const char* what, const std::string& path, const Item& item) {
    if (++lines <= kShownLines) {
      text.append(text.empty() ? "" : "; ").append(what).append(line(path, item));
    }
  };
  for (const auto& [path, item] : found) {
    const auto other = wanted.find(path);
    if (other == wanted.end() || !(other->second == item)) {
      add("too much: ", path, item);
    }
  }
  for (const auto& [path, item] : wanted) {
    const auto other = found.find(path);
    if (other == found.end() || !(other->second == item)) {
      add("missing: ", path, item);
    }
  }
  return text;
}

std::size_t Machine::hash() const {
  const std::hash<std::string_view> ofText;
  std::size_t sum = 0;
  const auto add = [&sum](std::size_t value) { sum = sum * 1099511628211U + value; };
  for (const auto& [path, item] : tree) {
    add(ofText(path));
    add(static_cast<std::size_t>(item.type));
    add(item.mode);
    add(item.user);
    add(item.group);
    // The same bytes are at the same place: see MachineStore::shared().
    add(item.text().size() < kBig ? ofText(item.text()) : reinterpret_cast<std::size_t>(item.content.get()));
  }
  for (const std::string& service : services) {
    add(ofText(service));
  }
  return sum;
}

void MachineStore::put(const Machine& machine) {
  for (const char* top : kTops) {
    fs::remove_all(root_.path(top));
  }
  for (const auto& [path, item] : machine.tree) {
    putItem(path, item);
  }
  // Last, for what is made in a folder changes its time.
  for (const auto& [path, item] : machine.tree) {
    const std::array<timespec, 2> times{item.written, item.written};
    require(utimensat(AT_FDCWD, root_.path(path).c_str(), times.data(), AT_SYMLINK_NOFOLLOW) == 0, path);
  }
  root_.forgetRecordedCalls();
}

void MachineStore::putItem(const std::string& inside, const Item& item) {
  const std::string path = root_.path(inside);
  if (item.type == 'd') {
    require(mkdir(path.c_str(), 0700) == 0, "making " + inside);
  } else if (item.type == 'l') {
    require(symlink(item.content->c_str(), path.c_str()) == 0, "making " + inside);
  } else if (item.type == 's') {
    require(mknod(path.c_str(), S_IFSOCK | 0600, 0) == 0, "making " + inside);
  } else {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    require(file >= 0, "making " + inside);
    const ssize_t written = write(file, item.content->data(), item.content->size());
    close(file);
    require(written == static_cast<ssize_t>(item.content->size()), "writing " + inside);
  }
  require(lchown(path.c_str(), item.user, item.group) == 0, "owner of " + inside);
  require(item.type == 'l' || chmod(path.c_str(), item.mode) == 0, "mode of " + inside);
}

Machine MachineStore::take(const Machine& before) {
  Machine machine;
  for (const char* top : kTops) {
    takeItem(top, machine.tree);
  }
  machine.services = servicesAfter(before.services, root_.recordedCalls());
  return machine;
}

void MachineStore::takeItem(const std::string& inside, Tree& tree) {
  const std::string path = root_.path(inside);
  struct stat attributes {};
  if (lstat(path.c_str(), &attributes) != 0) {
    return;
  }
  Item item;
  item.type = support::typeLetter(attributes.st_mode);
  item.mode = attributes.st_mode & kPermissionBits;
  item.user = attributes.st_uid;
  item.group = attributes.st_gid;
  item.written = attributes.st_mtim;
  if (item.type == '-') {
    item.content = shared(readFile(path, static_cast<std::size_t>(attributes.st_size)));
  } else if (item.type == 'l') {
    item.content = shared(readLink(path));
  }
  tree.emplace(inside, std::move(item));
  if (S_ISDIR(attributes.st_mode)) {
    for (const auto& entry : fs::directory_iterator(path)) {
      takeItem(inside + "/" + entry.path().filename().string(), tree);
    }
  }
}

std::shared_ptr<const std::string> MachineStore::shared(std::string content) {
  if (content.size() < kBig) {
    return std::make_shared<const std::string>(std::move(content));
  }
  const auto [begin, end] = contents_.equal_range(content.size());
  const auto known = std::find_if(begin, end, [&](const auto& entry) { return *entry.second == content; });
  if (known != end) {
    return known->second;
  }
  auto made = std::make_shared<const std::string>(std::move(content));
  contents_.emplace(made->size(), made);
  return made;
}

std::set<std::string> servicesAfter(std::set<std::string> loaded, const std::vector<support::RecordedCall>& calls) {
  for (const support::RecordedCall& call : calls) {
    if (call.arguments.empty()) {
      continue;
    }
    const std::string& service = call.arguments.back();
    if (std::ranges::find(call.arguments, "load") != call.arguments.end()) {
      loaded.insert(service);
    } else if (std::ranges::find(call.arguments, "unload") != call.arguments.end()) {
      loaded.erase(service);
    } else {
      // "remove" takes a label.
      std::erase_if(loaded, [&](const std::string& path) { return path.ends_with("/" + service + ".plist"); });
    }
  }
  return loaded;
}

}  // namespace sweep
