#include "InstallationDeployer/journal/JournalStore.h"

#include <cstdint>
#include <span>

#include "InstallationDeployer/DefaultAttributes.h"
#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "general/foundation/Error.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"

namespace deployer {

namespace files = foundation::files;
namespace paths = foundation::paths;
using foundation::FileAttributes;
using foundation::Result;
using foundation::Status;

namespace {

constexpr std::string_view kExtension = ".journal";
constexpr std::string_view kAsideExtension = ".damaged";
/// With both extensions the name still fits into a folder.
constexpr std::size_t kLongestPlainName = 200;
constexpr std::uint32_t kOwnersAlone = 0700;
constexpr FileAttributes kFolderAttributes{.owner = kRootUser, .group = 0, .permissions = kOwnersAlone};
constexpr FileAttributes kJournalAttributes{.owner = kRootUser, .group = 0, .permissions = 0600};
constexpr FileAttributes kParentAttributes{.owner = kRootUser, .group = 0, .permissions = 0755};

std::span<const std::byte> bytesOf(const std::string& text) { return std::as_bytes(std::span(text)); }

std::string fileNameFor(std::string_view product) {
  const std::string name = product.size() <= kLongestPlainName
                               ? std::string(product)
                               : QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(product)));
  return name + std::string(kExtension);
}

Result<bool> owesFiles(const std::string& path) {
  foundation::FileBuffer buffer;
  const auto content = files::readItself(path, buffer);
  if (!content) {
    return content.error().isNoSuchFile() ? Result<bool>(false) : content.error();
  }
  const auto journal = ChangeJournal::parse(*content);
  return !journal || !journal->owedFiles.empty();
}

}  // namespace

std::string JournalStore::pathFor(std::string_view product) const {
  return paths::append(folder_, fileNameFor(product));
}

Result<std::optional<ChangeJournal>> JournalStore::read(std::string_view product) const {
  foundation::FileBuffer buffer;
  const auto content = files::readItself(pathFor(product), buffer);
  if (!content) {
    if (content.error().isNoSuchFile()) {
      return std::optional<ChangeJournal>();
    }
    return content.error();
  }
  auto journal = ChangeJournal::parse(*content);
  if (!journal) {
    return journal.error();
  }
  if (journal->product != product) {
    return foundation::fileError(foundation::kReadCorrupt, "It is of another product.", pathFor(product));
  }
  return std::optional(*std::move(journal));
}

Status JournalStore::write(const ChangeJournal& journal) const {
  const auto document = journal.document();
  if (!document) {
    return document.error();
  }
  if (Status made = makeFolder(); !made) {
    return made;
  }
  return files::writeDurably(bytesOf(*document), pathFor(journal.product), kJournalAttributes);
}

Status JournalStore::makeFolder() const {
  const std::string parent = paths::deleteLastComponent(folder_);
  if (Status made = files::createDirectory(parent, true, kParentAttributes); !made) {
    return made;
  }
  const auto found = files::attributesOfItem(folder_);
  if (!found) {
    if (!found.error().isNoSuchFile()) {
      return found.error();
    }
    Status made = files::createDirectory(folder_, false, kFolderAttributes);
    return made ? files::flushItem(parent) : made;
  }
  if (!found->isDirectory() || found->owner != kRootUser || found->permissions != kOwnersAlone) {
    return foundation::fileError(foundation::kWriteNoPermission, "The folder of the journals is not root's alone.",
                                 folder_);
  }
  return {};
}

Status JournalStore::append(std::string_view product, const JournalNote& note) const {
  const auto document = ChangeJournal::documentOf(note);
  return document ? files::append(bytesOf(*document), pathFor(product)) : Status(document.error());
}

Status JournalStore::remove(std::string_view product) const { return files::removeItemIfPresent(pathFor(product)); }

Result<std::string> JournalStore::setAsideFor(const ChangeJournal& successor) const {
  const std::string path = pathFor(successor.product);
  foundation::FileBuffer buffer;
  const auto content = files::readItself(path, buffer);
  if (!content) {
    return content.error();
  }
  std::string aside = path + std::string(kAsideExtension);
  if (const Status kept = files::writeDurably(*content, aside, kJournalAttributes); !kept) {
    return kept.error();
  }
  if (const Status written = write(successor); !written) {
    return written.error();
  }
  return aside;
}

Result<bool> JournalStore::anotherOwesFiles(std::string_view product) const {
  const auto names = files::contentsOfDirectory(folder_);
  if (!names) {
    return names.error().isNoSuchFile() ? Result<bool>(false) : names.error();
  }
  const std::string own = fileNameFor(product);
  for (const std::string& name : *names) {
    if (name == own || !name.ends_with(kExtension)) {
      continue;
    }
    auto owes = owesFiles(paths::append(folder_, name));
    if (!owes || *owes) {
      return owes;
    }
  }
  return false;
}

}  // namespace deployer
