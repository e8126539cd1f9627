#include "InstallationDeployer/journal/ChangeJournal.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "general/foundation/Error.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace deployer {

namespace plist = foundation::plist;
using foundation::PropertyList;
using foundation::Result;
using foundation::NSDictionaryExtensions::boolForKey;

namespace {

constexpr std::int64_t kFormat = 1;

constexpr std::string_view kFormatKey = "Format";
constexpr std::string_view kOperationKey = "Operation";
constexpr std::string_view kProductKey = "Product";
constexpr std::string_view kBundleKey = "Bundle";
constexpr std::string_view kProcessKey = "Process";
constexpr std::string_view kProcessStartKey = "ProcessStart";
constexpr std::string_view kBegunKey = "Begun";
constexpr std::string_view kTreatedAsUpdateKey = "TreatedAsUpdate";
constexpr std::string_view kVersionsBeforeKey = "VersionsBefore";
constexpr std::string_view kVersionsAfterKey = "VersionsAfter";
constexpr std::string_view kManifestsKey = "Manifests";
constexpr std::string_view kComponentKey = "Component";
constexpr std::string_view kRoleKey = "Role";
constexpr std::string_view kWithModifiableFilesKey = "WithModifiableFiles";
constexpr std::string_view kDocumentKey = "Document";
constexpr std::string_view kOwedFilesKey = "OwedFiles";
constexpr std::string_view kOwedFromElsewhereKey = "OwedFromElsewhere";
constexpr std::string_view kWhatKey = "What";
constexpr std::string_view kComponentsKey = "Components";

constexpr std::string_view kInstall = "Install";
constexpr std::string_view kRemove = "Remove";
constexpr std::string_view kRemoved = "Removed";
constexpr std::string_view kPlaced = "Placed";

// Each document is preceded by its length: four bytes, the most significant first.
constexpr std::size_t kLengthBytes = 4;
constexpr unsigned kBitsPerByte = 8;

foundation::Error damaged(std::string_view why) {
  return {.domain = std::string(foundation::kFileErrorDomain),
          .code = foundation::kReadCorrupt,
          .text = std::string(why),
          .path = std::nullopt,
          .underlyingErrno = 0,
          .details = {}};
}

Result<std::string> framed(const PropertyList& value) {
  auto document = plist::serialize(value, plist::Format::Binary);
  if (!document) {
    return document;
  }
  if (document->size() > UINT32_MAX) {
    return damaged("It is too large.");
  }
  std::string length;
  for (std::size_t index = kLengthBytes; index-- > 0;) {
    length += static_cast<char>(document->size() >> (kBitsPerByte * index));
  }
  document->insert(0, length);
  return document;
}

/// Takes the next document from the bytes; nothing when it does not stand there whole.
std::optional<PropertyList> takeDocument(std::span<const std::byte>& bytes) {
  if (bytes.size() < kLengthBytes) {
    return std::nullopt;
  }
  std::size_t length = 0;
  for (const std::byte byte : bytes.first(kLengthBytes)) {
    length = (length << kBitsPerByte) | std::to_integer<std::size_t>(byte);
  }
  bytes = bytes.subspan(kLengthBytes);
  if (length > bytes.size()) {
    return std::nullopt;
  }
  auto document = plist::parse(bytes.first(length));
  bytes = bytes.subspan(length);
  return document ? std::optional(*std::move(document)) : std::nullopt;
}

PropertyList dictionaryOf(const JournaledManifest& manifest) {
  return PropertyList::dictionary(
      {{std::string(kComponentKey), manifest.component},
       {std::string(kRoleKey), manifest.role == JournaledManifest::Role::Placed ? kPlaced : kRemoved},
       {std::string(kWithModifiableFilesKey), manifest.withModifiableFiles},
       {std::string(kDocumentKey), manifest.document}});
}

std::optional<JournaledManifest> manifestFrom(const PropertyList& value) {
  const auto component = value[kComponentKey].string();
  const auto role = value[kRoleKey].string();
  const PropertyList& document = value[kDocumentKey];
  if (!component || (role != kPlaced && role != kRemoved) || document.type() != PropertyList::Type::Data) {
    return std::nullopt;
  }
  return JournaledManifest{.component = std::string(*component),
                           .role = role == kPlaced ? JournaledManifest::Role::Placed : JournaledManifest::Role::Removed,
                           .withModifiableFiles = boolForKey(value, kWithModifiableFilesKey),
                           .document = document};
}

bool readManifests(const PropertyList& values, std::vector<JournaledManifest>& manifests) {
  for (const PropertyList& value : values.elements()) {
    auto manifest = manifestFrom(value);
    if (!manifest) {
      return false;
    }
    manifests.push_back(*std::move(manifest));
  }
  return values.isArray();
}

std::optional<ChangeJournal> journalFrom(const PropertyList& value) {
  const auto operation = value[kOperationKey].string();
  const auto product = value[kProductKey].string();
  if ((operation != kInstall && operation != kRemove) || !product) {
    return std::nullopt;
  }
  ChangeJournal journal{
      .operation = operation == kRemove ? ChangeJournal::Operation::Remove : ChangeJournal::Operation::Install,
      .product = std::string(*product),
      .bundlePath = std::string(value[kBundleKey].text()),
      .process = static_cast<int>(value[kProcessKey].integer().value_or(0)),
      .processStart = value[kProcessStartKey].integer(),
      .begunAt = value[kBegunKey].secondsSince2001().value_or(0),
      .treatedAsUpdate = boolForKey(value, kTreatedAsUpdateKey),
      .versionsBefore = value[kVersionsBeforeKey],
      .versionsAfter = value[kVersionsAfterKey],
      .manifests = {},
      .owedFiles = value[kOwedFilesKey].strings(),
      .owedFromElsewhere = value[kOwedFromElsewhereKey].strings(),
      .notes = {}};
  if (!readManifests(value[kManifestsKey], journal.manifests)) {
    return std::nullopt;
  }
  return journal;
}

void addMissing(std::vector<std::string>& names, const std::vector<std::string>& more) {
  for (const std::string& name : more) {
    if (std::ranges::find(names, name) == names.end()) {
      names.push_back(name);
    }
  }
}

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text.append(text.empty() ? "" : ", ").append(name);
  }
  return "(" + text + ")";
}

}  // namespace

PropertyList JournaledManifest::content() const {
  auto content = plist::parse(document.bytes());
  return content ? *std::move(content) : PropertyList();
}

std::vector<std::string> ChangeJournal::components() const {
  std::vector<std::string> names;
  std::set<std::string_view> known;
  for (const JournaledManifest& manifest : manifests) {
    if (known.insert(manifest.component).second) {
      names.push_back(manifest.component);
    }
  }
  return names;
}

void ChangeJournal::adopt(const ChangeJournal& earlier) {
  for (const JournaledManifest& manifest : earlier.manifests) {
    add(manifest);
  }
  addMissing(owedFiles, earlier.owedFiles);
  addMissing(owedFromElsewhere, earlier.owedFromElsewhere);
  treatedAsUpdate = treatedAsUpdate || earlier.treatedAsUpdate;
}

void ChangeJournal::add(JournaledManifest manifest) {
  if (std::ranges::find(manifests, manifest) == manifests.end()) {
    manifests.push_back(std::move(manifest));
  }
}

std::string ChangeJournal::description() const {
  std::string done;
  for (const JournalNote& note : notes) {
    done.append(done.empty() ? "" : ", ").append(note.what);
    if (!note.components.empty()) {
      done.append(" ").append(listed(note.components));
    }
  }
  return foundation::format("The %s of \"%@\" by process %d from %@ was interrupted. It began at %s and had %s.",
                            operation == Operation::Remove ? "removal" : "install", product, process, bundlePath,
                            foundation::description(PropertyList::date(begunAt)),
                            done.empty() ? "done nothing yet" : done);
}

Result<std::string> ChangeJournal::document() const {
  PropertyList::Array values;
  values.reserve(manifests.size());
  for (const JournaledManifest& manifest : manifests) {
    values.push_back(dictionaryOf(manifest));
  }
  return framed(PropertyList::dictionary(
      {{std::string(kFormatKey), kFormat},
       {std::string(kOperationKey), operation == Operation::Remove ? kRemove : kInstall},
       {std::string(kProductKey), product},
       {std::string(kBundleKey), bundlePath},
       {std::string(kProcessKey), process},
       {std::string(kProcessStartKey), processStart ? PropertyList(*processStart) : PropertyList()},
       {std::string(kBegunKey), PropertyList::date(begunAt)},
       {std::string(kTreatedAsUpdateKey), treatedAsUpdate},
       {std::string(kVersionsBeforeKey), versionsBefore},
       {std::string(kVersionsAfterKey), versionsAfter},
       {std::string(kManifestsKey), PropertyList(std::move(values))},
       {std::string(kOwedFilesKey), owedFiles},
       {std::string(kOwedFromElsewhereKey), owedFromElsewhere}}));
}

Result<std::string> ChangeJournal::documentOf(const JournalNote& note) {
  return framed(
      PropertyList::dictionary({{std::string(kWhatKey), note.what}, {std::string(kComponentsKey), note.components}}));
}

Result<ChangeJournal> ChangeJournal::parse(std::span<const std::byte> bytes) {
  const auto header = takeDocument(bytes);
  if (!header) {
    return damaged("It does not hold what a journal begins with.");
  }
  if (const auto format = (*header)[kFormatKey].integer(); format && *format > kFormat) {
    return damaged("It was written by a newer engine.");
  }
  auto journal = journalFrom(*header);
  if (!journal) {
    return damaged("It does not say what was changed.");
  }
  while (const auto note = takeDocument(bytes)) {
    journal->notes.push_back({std::string((*note)[kWhatKey].text()), (*note)[kComponentsKey].strings()});
  }
  return *std::move(journal);
}

}  // namespace deployer
