// Reads a component manifest of 40,000 entries and compares it with what the XML parser alone needs for the same.
// The ways take turns in one run, so that a busy machine slows all of them; the medians are what counts.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "general/foundation/propertylist/PropertyListFile.h"

namespace {

using foundation::PropertyList;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kEntries = 40000;
constexpr int kRounds = 25;

PropertyList manifestEntry(int number) {
  const bool isDirectory = number % 10 == 0;
  char path[128];
  std::snprintf(path, sizeof path, "/Library/Application Support/Example/Component/Resources/Folder %03d/File%06d.dat",
                number / 100, number);
  char checksum[65];
  for (int i = 0; i < 64; ++i) checksum[i] = "0123456789abcdef"[(number * 31 + i * 7 + number / (i + 1)) & 0xF];
  checksum[64] = '\0';
  std::vector<std::pair<std::string, PropertyList>> entries = {
      {"Path", path},
      {"IsDirectory", isDirectory},
      {"IsSymbolicLink", false},
      {"NSFileOwnerAccountID", 0},
      {"NSFileGroupOwnerAccountID", 80},
      {"NSFilePosixPermissions", isDirectory ? 0755 : 0644},
  };
  if (!isDirectory) entries.emplace_back("SHAChecksum", checksum);
  return PropertyList::dictionary(std::move(entries));
}

std::string manifest() {
  PropertyList::Array files;
  for (int i = 0; i < kEntries; ++i) files.push_back(manifestEntry(i));
  const auto value = PropertyList::dictionary({{"ComponentVersion", "1.2.3"},
                                               {"ComponentSize", std::int64_t{123456789}},
                                               {"ListOfFiles", PropertyList(std::move(files))}});
  const auto document = foundation::plist::serialize(value, foundation::plist::Format::Xml);
  if (!document) std::abort();
  return *document;
}

double since(std::chrono::steady_clock::time_point start) {
  return Milliseconds(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> times) {
  std::nth_element(times.begin(), times.begin() + kRounds / 2, times.end());
  return times[kRounds / 2];
}

/// Reads every field of every entry as a plain user of the parser would; the sum keeps the work from being left out.
std::size_t readWithParser(const std::string& document, unsigned options) {
  pugi::xml_document nodes;
  if (!nodes.load_buffer(document.data(), document.size(), options)) std::abort();
  std::size_t sum = 0;
  const pugi::xml_node top = nodes.child("plist").child("dict");
  for (pugi::xml_node key = top.first_child(); key; key = key.next_sibling().next_sibling()) {
    if (std::strcmp(key.child_value(), "ListOfFiles") != 0) continue;
    for (const pugi::xml_node entry : key.next_sibling()) {
      for (pugi::xml_node field = entry.first_child(); field; field = field.next_sibling().next_sibling()) {
        const pugi::xml_node value = field.next_sibling();
        sum += std::strlen(field.child_value());
        if (std::strcmp(value.name(), "string") == 0) {
          sum += std::strlen(value.child_value());
        } else if (std::strcmp(value.name(), "integer") == 0) {
          sum += static_cast<std::size_t>(value.text().as_llong());
        } else {
          sum += std::strcmp(value.name(), "true") == 0 ? 1 : 0;
        }
      }
    }
  }
  return sum;
}

std::size_t readFields(const PropertyList& value) {
  std::size_t sum = 0;
  for (const PropertyList& entry : value["ListOfFiles"].elements()) {
    sum += entry["Path"].text().size() + entry["SHAChecksum"].text().size();
    sum += entry["IsDirectory"].boolean().value_or(false) + entry["IsSymbolicLink"].boolean().value_or(false);
    sum += static_cast<std::size_t>(entry["NSFileOwnerAccountID"].integer().value_or(0));
    sum += static_cast<std::size_t>(entry["NSFileGroupOwnerAccountID"].integer().value_or(0));
    sum += static_cast<std::size_t>(entry["NSFilePosixPermissions"].integer().value_or(0));
  }
  return sum;
}

}  // namespace

int main() {
  const std::string document = manifest();
  std::vector<double> parse;
  std::vector<double> parseReadAndFree;
  std::vector<double> parser;
  std::vector<double> tunedParser;
  std::size_t sum = 0;
  for (int round = 0; round < kRounds; ++round) {
    {
      const auto start = std::chrono::steady_clock::now();
      const auto value = foundation::plist::parse(document);
      parse.push_back(since(start));
      if (!value || (*value)["ListOfFiles"].count() != kEntries) std::abort();
    }
    {
      const auto start = std::chrono::steady_clock::now();
      {
        const auto value = foundation::plist::parse(document);
        if (!value) std::abort();
        sum += readFields(*value);
      }
      parseReadAndFree.push_back(since(start));
    }
    auto start = std::chrono::steady_clock::now();
    sum += readWithParser(document, pugi::parse_default);
    parser.push_back(since(start));
    start = std::chrono::steady_clock::now();
    sum += readWithParser(document, pugi::parse_default | pugi::parse_embed_pcdata);
    tunedParser.push_back(since(start));
  }
  const double reference = median(parser);
  const double tunedReference = median(tunedParser);
  std::printf("%d entries, %.1f MB, %d rounds (check sum %zu)\n", kEntries, static_cast<double>(document.size()) / 1e6,
              kRounds, sum);
  const auto print = [&](const char* what, double time) {
    std::printf("%-44s %7.2f ms  %.2f of the parser alone  %.2f of the parser with its fastest options\n", what, time,
                time / reference, time / tunedReference);
  };
  print("document to value", median(parse));
  print("document to value, all fields read, freed", median(parseReadAndFree));
  print("XML parser alone, fields read, freed", reference);
  print("XML parser alone, fastest options", tunedReference);
  return 0;
}
