#pragma once

#include <string_view>

/// The keys of a bundle's description. Keys that go into manifests are the engine's: see ManifestKeys.h.
namespace bundletool {

// The top level.
inline constexpr std::string_view kDescriptionComponents = "Components";
inline constexpr std::string_view kDescriptionExternalTools = "ExternalTools";
inline constexpr std::string_view kDescriptionOptions = "Options";
inline constexpr std::string_view kDescriptionFrontEnd = "FrontEnd";
inline constexpr std::string_view kDescriptionEngine = "Engine";
inline constexpr std::string_view kDescriptionRootOwnerGroup = "RootOwnerGroup";
inline constexpr std::string_view kDescriptionSilencedWarnings = "SilencedWarnings";

// A component.
inline constexpr std::string_view kDescriptionName = "Name";
inline constexpr std::string_view kDescriptionVersion = "Version";
inline constexpr std::string_view kDescriptionStagedFolder = "StagedFolder";
inline constexpr std::string_view kDescriptionRootPrefix = "RootPrefix";
inline constexpr std::string_view kDescriptionProducts = "Products";
inline constexpr std::string_view kDescriptionAuthoringPlist = "AuthoringPlist";

// An external tool.
inline constexpr std::string_view kDescriptionBundlePath = "BundlePath";
inline constexpr std::string_view kDescriptionExternalProduct = "ExternalProduct";
inline constexpr std::string_view kDescriptionProduct = "Product";

// The options, beside those of the index.
inline constexpr std::string_view kDescriptionOptionsPlist = "OptionsPlist";

}  // namespace bundletool
