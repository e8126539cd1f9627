#include "tests/support/Snapshot.h"

#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <memory>
#include <optional>
#include <sstream>

namespace support {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kPermissionBits = 07777;

std::string checksumOf(const std::string& path) {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  std::ifstream file(path, std::ios::binary);
  if (!file || EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) != 1) {
    return "unreadable";
  }
  std::array<char, 65536> piece{};
  while (file.read(piece.data(), piece.size()), file.gcount() > 0) {
    EVP_DigestUpdate(digest.get(), piece.data(), static_cast<std::size_t>(file.gcount()));
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned length = 0;
  EVP_DigestFinal_ex(digest.get(), bytes.data(), &length);
  std::ostringstream text;
  for (unsigned index = 0; index < length; ++index) {
    text << std::hex << std::setw(2) << std::setfill('0') << unsigned{bytes[index]};
  }
  return text.str();
}

bool describe(const std::string& outside, const std::string& path, SnapshotEntry& entry, dev_t& device) {
  const std::string whole = outside + path;
  struct stat attributes {};
  if (lstat(whole.c_str(), &attributes) != 0) {
    return false;
  }
  device = attributes.st_dev;
  entry.path = path;
  entry.type = typeLetter(attributes.st_mode);
  entry.mode = attributes.st_mode & kPermissionBits;
  entry.user = attributes.st_uid;
  entry.group = attributes.st_gid;
  std::error_code error;
  if (entry.type == 'l') {
    entry.target = fs::read_symlink(whole, error);
    entry.size = entry.target.size();
  } else if (entry.type == '-') {
    entry.size = static_cast<std::uint64_t>(attributes.st_size);
    entry.checksum = checksumOf(whole);
  }
  return true;
}

void collect(const std::string& outside, const std::string& path, std::optional<dev_t> within, Snapshot& snapshot) {
  SnapshotEntry entry;
  dev_t device = 0;
  if (!describe(outside, path, entry, device)) {
    return;
  }
  // What is mounted below, such as /usr and /proc below "/", is not of this tree.
  const bool entered = entry.type == 'd' && within.value_or(device) == device;
  snapshot.push_back(std::move(entry));
  if (!entered) {
    return;
  }
  std::error_code error;
  for (const auto& item : fs::directory_iterator(outside + path, error)) {
    collect(outside, (path == "/" ? "" : path) + "/" + item.path().filename().string(), device, snapshot);
  }
}

std::string modeText(const SnapshotEntry& entry) {
  std::string text(1, entry.type);
  const char* letters = "rwxrwxrwx";
  for (unsigned bit = 0; bit < 9; ++bit) {
    text += (entry.mode & (0400U >> bit)) != 0 ? letters[bit] : '-';
  }
  const auto mark = [&](mode_t bit, std::size_t place, char with, char without) {
    if ((entry.mode & bit) != 0) {
      text[place] = text[place] == 'x' ? with : without;
    }
  };
  mark(S_ISUID, 3, 's', 'S');
  mark(S_ISGID, 6, 's', 'S');
  mark(S_ISVTX, 9, 't', 'T');
  return text;
}

}  // namespace

char typeLetter(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return 'd';
    case S_IFREG:
      return '-';
    case S_IFLNK:
      return 'l';
    case S_IFIFO:
      return 'p';
    case S_IFSOCK:
      return 's';
    case S_IFCHR:
      return 'c';
    case S_IFBLK:
      return 'b';
    default:
      return '?';
  }
}

std::ostream& operator<<(std::ostream& stream, const SnapshotEntry& entry) {
  stream << modeText(entry) << ' ' << std::setw(5) << entry.user << ' ' << std::setw(5) << entry.group << ' '
         << std::setw(8) << entry.size << "  " << entry.path;
  if (entry.type == 'l') {
    stream << " -> " << entry.target;
  }
  return stream;
}

Snapshot takeSnapshot(const std::string& outside, const std::string& path) {
  Snapshot snapshot;
  collect(outside, path, std::nullopt, snapshot);
  std::sort(snapshot.begin(), snapshot.end(),
            [](const SnapshotEntry& left, const SnapshotEntry& right) { return left.path < right.path; });
  return snapshot;
}

std::string difference(const Snapshot& found, const Snapshot& wanted) {
  std::ostringstream text;
  for (const SnapshotEntry& entry : found) {
    if (std::ranges::find(wanted, entry) == wanted.end()) {
      text << "too much: " << entry << '\n';
    }
  }
  for (const SnapshotEntry& entry : wanted) {
    if (std::ranges::find(found, entry) == found.end()) {
      text << "missing: " << entry << '\n';
    }
  }
  return text.str();
}

std::string listing(const Snapshot& snapshot) {
  std::ostringstream text;
  for (const SnapshotEntry& entry : snapshot) {
    text << entry << '\n';
  }
  return text.str();
}

}  // namespace support
