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
  /// A step of a product's installation.
  struct Phase {
    std::string type;                            ///< the key for the payload of this bundle, or for another bundle
    std::vector<std::string> components;         ///< of this bundle, in the order of installing
    std::optional<std::string> bundlePath;       ///< where the other bundle will be found
    std::optional<std::string> externalProduct;  ///< what is installed from it
  };
  struct Product {
    std::string name;
    std::vector<Phase> phases;
    std::vector<std::string> crossGrades;  ///< names of products
  };
  /// A program that is run after an install and stopped before files change.
  struct Executable {
    std::string path;
    std::vector<std::string> arguments;
    std::vector<std::string> flags;  ///< the keys that are set
  };
  /// An entry of a component's list of files.
  struct File {
    std::string path;                           ///< where it is installed
    std::string type;                           ///< "file", "folder" or "link"
    std::optional<std::uint64_t> owner;         ///< account ID
    std::optional<std::uint64_t> group;         ///< account ID
    std::optional<std::uint64_t> mode;          ///< permissions, set-id and sticky bits
    std::optional<std::uint64_t> size;          ///< bytes of the content in the payload, when it is there
    std::optional<std::string> checksum;        ///< SHA-256 in hexadecimal digits; names the content in the payload
    std::optional<std::string> target;          ///< of a link
    std::optional<std::string> externalSource;  ///< where the content comes from instead of the payload
    std::vector<std::string> flags;             ///< the keys that are set
  };
  struct Component {
    std::string name;
    std::optional<std::string> version;
    std::optional<std::uint64_t> size;  ///< bytes, as the engine counts them
    std::vector<std::string> daemons;   ///< labels
    std::vector<std::string> agents;    ///< labels
    std::vector<Executable> executables;
    std::vector<File> files;
    std::optional<bool> rebuildKextCache;
  };

  std::string path;  ///< of the bundle or receipt
  std::optional<std::string> payloadVersion;
  std::optional<std::string> installerVersion;
  std::optional<std::uint64_t> payloadSize;       ///< bytes
  std::optional<std::uint64_t> receiptSize;       ///< bytes
  std::optional<bool> receiptHasPayloadContents;  ///< the payload is kept with the installed product
  std::vector<std::string> detectedProducts;      ///< names, of those the engine looks for on the machine
  std::vector<std::string> removedProducts;       ///< names, of those that are removed before an install
  std::vector<Product> products;
  std::vector<Component> components;  ///< each once, in the order in which products name them
};

/// Reads the manifests of a bundle or receipt and complains about whatever does not fit. The bundle may be hostile:
/// names are checked before they become parts of paths, and of the payload only the sizes are looked at. Nothing, with
/// a problem that says why, where no manifest index can be read: then it is no bundle.
[[nodiscard]] std::optional<BundleContents> readBundle(const std::string& path, Problems& problems);

}  // namespace bundletool
