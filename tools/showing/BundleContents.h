#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/rules/Problem.h"

namespace bundletool {

/// What a bundle's manifests say. Texts are as they stand there and not fit to be printed before they are escaped; what
/// a manifest does not say, or says in a way that cannot be used, is absent.
struct BundleContents {
  struct Phase {
    std::string type;
    std::vector<std::string> components;
    std::optional<std::string> bundlePath;
    std::optional<std::string> externalProduct;
  };
  struct Product {
    std::string name;
    std::vector<Phase> phases;
    std::vector<std::string> crossGrades;  ///< names of products
  };
  struct Executable {
    std::string path;
    std::vector<std::string> arguments;
    std::vector<std::string> flags;
  };
  struct File {
    std::string path;
    std::string type;  ///< "file", "folder" or "link"
    std::optional<std::uint64_t> owner;
    std::optional<std::uint64_t> group;
    std::optional<std::uint64_t> mode;
    std::optional<std::uint64_t> size;  ///< of the content in the payload, when it is there
    std::optional<std::string> checksum;
    std::optional<std::string> target;
    std::optional<std::string> externalSource;
    std::vector<std::string> flags;
  };
  struct Component {
    std::string name;
    std::optional<std::string> version;
    std::optional<std::uint64_t> size;
    std::vector<std::string> daemons;
    std::vector<std::string> agents;
    std::vector<Executable> executables;
    std::vector<File> files;
    std::optional<bool> rebuildKextCache;
  };

  std::string path;
  std::optional<std::string> payloadVersion;
  std::optional<std::string> installerVersion;
  std::optional<std::uint64_t> payloadSize;
  std::optional<std::uint64_t> receiptSize;
  std::optional<bool> receiptHasPayloadContents;
  std::vector<std::string> detectedProducts;
  std::vector<std::string> removedProducts;
  std::vector<Product> products;
  std::vector<Component> components;  ///< each once, in the order in which products name them
};

/// Reads the manifests of a bundle or receipt and complains about whatever does not fit.
[[nodiscard]] BundleContents readBundle(const std::string& path, Problems& problems);

}  // namespace bundletool
