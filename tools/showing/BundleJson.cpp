#include "tools/showing/BundleJson.h"

#include "general/terminal/JsonWriter.h"

namespace bundletool {

using terminal::JsonWriter;

namespace {

void write(JsonWriter& json, const BundleContents::Product& product);
void write(JsonWriter& json, const BundleContents::Component& component);

void write(JsonWriter& json, const BundleContents::Phase& phase) {
  json.beginObject();
  json.member("type", phase.type);
  json.member("components", phase.components);
  json.member("bundlePath", phase.bundlePath);
  json.member("externalProduct", phase.externalProduct);
  json.endObject();
}

void write(JsonWriter& json, const BundleContents::Executable& executable) {
  json.beginObject();
  json.member("path", executable.path);
  json.member("arguments", executable.arguments);
  json.member("flags", executable.flags);
  json.endObject();
}

void write(JsonWriter& json, const BundleContents::File& file) {
  json.beginObject();
  json.member("path", file.path);
  json.member("type", file.type);
  json.member("owner", file.owner);
  json.member("group", file.group);
  json.member("mode", file.mode);
  json.member("size", file.size);
  json.member("checksum", file.checksum);
  json.member("target", file.target);
  json.member("externalSource", file.externalSource);
  json.member("flags", file.flags);
  json.endObject();
}

template <class Elements>
void writeAll(JsonWriter& json, std::string_view name, const Elements& elements) {
  json.key(name);
  json.beginArray();
  for (const auto& element : elements) {
    write(json, element);
  }
  json.endArray();
}

void write(JsonWriter& json, const BundleContents::Product& product) {
  json.beginObject();
  json.member("name", product.name);
  writeAll(json, "phases", product.phases);
  json.member("crossGrades", product.crossGrades);
  json.endObject();
}

void write(JsonWriter& json, const BundleContents::Component& component) {
  json.beginObject();
  json.member("name", component.name);
  json.member("version", component.version);
  json.member("size", component.size);
  json.member("daemons", component.daemons);
  json.member("agents", component.agents);
  json.member("rebuildKextCache", component.rebuildKextCache);
  writeAll(json, "executables", component.executables);
  json.member("numberOfFiles", std::optional<std::uint64_t>(component.files.size()));
  writeAll(json, "files", component.files);
  json.endObject();
}

}  // namespace

std::string jsonOf(const BundleContents& contents) {
  JsonWriter json;
  json.beginObject();
  json.member("bundle", contents.path);
  json.member("payloadVersion", contents.payloadVersion);
  json.member("installerVersion", contents.installerVersion);
  json.member("payloadSize", contents.payloadSize);
  json.member("receiptSize", contents.receiptSize);
  json.member("receiptHasPayloadContents", contents.receiptHasPayloadContents);
  json.member("detectedProducts", contents.detectedProducts);
  json.member("removedProducts", contents.removedProducts);
  writeAll(json, "products", contents.products);
  writeAll(json, "components", contents.components);
  json.endObject();
  return json.text();
}

}  // namespace bundletool
