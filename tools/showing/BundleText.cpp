#include "tools/showing/BundleText.h"

#include <algorithm>
#include <array>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/terminal/PrintableText.h"
#include "tools/showing/TextTable.h"

namespace bundletool {

using terminal::printable;
using terminal::sizeText;

namespace {

constexpr const char* kNone = "-";

std::string joined(const std::vector<std::string>& texts, std::string_view separator = ", ") {
  std::string line;
  for (const std::string& text : texts) {
    line += (line.empty() ? "" : std::string(separator)) + printable(text);
  }
  return line.empty() ? kNone : line;
}

std::string orNone(const std::optional<std::string>& text) { return text ? printable(*text) : kNone; }
std::string orNone(const std::optional<std::uint64_t>& number) { return number ? std::to_string(*number) : kNone; }

std::string modeText(const BundleContents::File& file) {
  if (!file.mode) {
    return kNone;
  }
  constexpr std::array<char, 3> kLetters{'r', 'w', 'x'};
  constexpr std::array<char, 3> kSpecialLetters{'s', 's', 't'};
  std::string text(1, file.type == "folder" ? 'd' : file.type == "link" ? 'l' : '-');
  for (unsigned bit = 0; bit < 9; ++bit) {
    text += (*file.mode & (0400U >> bit)) != 0 ? kLetters[bit % 3] : '-';
  }
  for (unsigned part = 0; part < 3; ++part) {
    char& execute = text[3 * part + 3];
    if ((*file.mode & (04000U >> part)) != 0) {
      execute = execute == 'x' ? kSpecialLetters[part] : static_cast<char>(kSpecialLetters[part] - 'a' + 'A');
    }
  }
  return text;
}

std::string pathText(const BundleContents::File& file) {
  std::string text = printable(file.path);
  if (file.target) {
    text += " -> " + printable(*file.target);
  }
  if (file.externalSource) {
    text += " from " + printable(*file.externalSource);
  }
  return file.flags.empty() ? text : text + "  (" + joined(file.flags) + ")";
}

std::string productText(const BundleContents::Product& product) {
  std::string text = "\nProduct " + printable(product.name) + "\n";
  for (const BundleContents::Phase& phase : product.phases) {
    text += "  " + printable(phase.type) + ": ";
    text += phase.bundlePath || phase.externalProduct
                ? orNone(phase.externalProduct) + " from " + orNone(phase.bundlePath)
                : joined(phase.components);
    text += "\n";
  }
  if (!product.crossGrades.empty()) {
    text += "  Cross-grades from: " + joined(product.crossGrades) + "\n";
  }
  return text;
}

std::string filesText(const std::vector<BundleContents::File>& files) {
  TextTable table({"  Mode", "Owner", "Group", "Size", "Checksum", "Path"}, {1, 2, 3});
  for (const BundleContents::File& file : files) {
    table.add({"  " + modeText(file), orNone(file.owner), orNone(file.group), orNone(file.size), orNone(file.checksum),
               pathText(file)});
  }
  return table.text();
}

std::string componentText(const BundleContents::Component& component) {
  std::string text = foundation::format(
      "\nComponent %@, version %@, %@, %lu entries\n", printable(component.name), orNone(component.version),
      component.size ? sizeText(*component.size) : "size unknown", static_cast<std::uint64_t>(component.files.size()));
  if (!component.daemons.empty()) {
    text += "  Daemons: " + joined(component.daemons) + "\n";
  }
  if (!component.agents.empty()) {
    text += "  Agents: " + joined(component.agents) + "\n";
  }
  for (const BundleContents::Executable& executable : component.executables) {
    text += "  Executable: " + printable(executable.path);
    text += executable.arguments.empty() ? "" : " " + joined(executable.arguments, " ");
    text += executable.flags.empty() ? "\n" : "  (" + joined(executable.flags) + ")\n";
  }
  if (component.rebuildKextCache.value_or(false)) {
    text += "  " + std::string(deployer::kManifestRebuildKextCache) + "\n";
  }
  return component.files.empty() ? text : text + filesText(component.files);
}

}  // namespace

std::string textOf(const BundleContents& contents) {
  std::string text = "Bundle " + printable(contents.path) + "\n";
  text += "  Payload version " + orNone(contents.payloadVersion) + ", installer version " +
          orNone(contents.installerVersion) + "\n";
  text += "  Payload " + (contents.payloadSize ? sizeText(*contents.payloadSize) : kNone) + ", receipt " +
          (contents.receiptSize ? sizeText(*contents.receiptSize) : kNone) +
          (contents.receiptHasPayloadContents.value_or(false) ? " and the payload\n" : "\n");
  if (!contents.detectedProducts.empty()) {
    text += "  Detects: " + joined(contents.detectedProducts) + "\n";
  }
  if (!contents.removedProducts.empty()) {
    text += "  Removes: " + joined(contents.removedProducts) + "\n";
  }
  for (const BundleContents::Product& product : contents.products) {
    text += productText(product);
  }
  for (const BundleContents::Component& component : contents.components) {
    text += componentText(component);
  }
  return text;
}

}  // namespace bundletool
