// generate-payload: fills a folder with the same files on every machine.
//
//   generate-payload big|mixed|tiny|many SCALE FOLDER
//
// SCALE divides the number of files; 1 is the full size. Content is random, so nothing can be saved by compressing it.

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kKilobyte = 1024;
constexpr std::size_t kMegabyte = 1024 * kKilobyte;

struct Layout {
  std::size_t files;
  std::size_t folders;
};

class Payload {
 public:
  Payload(std::string_view kind, std::size_t scale, std::filesystem::path root)
      : kind_(kind), scale_(scale), root_(std::move(root)) {}

  bool generate() {
    const Layout layout = layoutOfKind();
    if (layout.files == 0) {
      return false;
    }
    const std::size_t files = std::max<std::size_t>(layout.files / scale_, 1);
    const std::size_t folders = std::max<std::size_t>(layout.folders / scale_, 1);
    for (std::size_t file = 0; file < files; ++file) {
      const auto folder = folderOf(file * folders / files);
      std::filesystem::create_directories(folder);
      if (!write(folder / ("file-" + std::to_string(file)), sizeOf(file))) {
        return false;
      }
    }
    return true;
  }

 private:
  [[nodiscard]] Layout layoutOfKind() const {
    if (kind_ == "big") {
      return {24, 1};
    }
    if (kind_ == "mixed") {
      return {6000, 300};
    }
    if (kind_ == "tiny") {
      return {40000, 2000};
    }
    return kind_ == "many" ? Layout{100000, 5000} : Layout{0, 0};
  }
  [[nodiscard]] std::size_t sizeOf(std::size_t file) {
    if (kind_ == "big") {
      return 32 * kMegabyte;
    }
    if (kind_ == "tiny") {
      return between(kKilobyte, 4 * kKilobyte);
    }
    if (kind_ == "many") {
      // For measurements that never look into a file.
      return 0;
    }
    // Few large files that hold most of the bytes, many small ones, as in products.
    if (file % 20 == 0) {
      return between(kMegabyte, 2 * kMegabyte);
    }
    return file % 20 <= 5 ? between(32 * kKilobyte, 96 * kKilobyte) : between(kKilobyte, 24 * kKilobyte);
  }
  std::size_t between(std::size_t least, std::size_t most) { return least + random_() % (most - least + 1); }
  [[nodiscard]] std::filesystem::path folderOf(std::size_t folder) const {
    return root_ / "opt" / "benchmark" / ("group-" + std::to_string(folder / 100)) /
           ("folder-" + std::to_string(folder));
  }
  bool write(const std::filesystem::path& path, std::size_t size) {
    content_.resize((size + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t));
    for (std::uint64_t& word : content_) {
      word = random_();
    }
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content_.data()), static_cast<std::streamsize>(size));
    return file.good();
  }

  const std::string_view kind_;
  const std::size_t scale_;
  const std::filesystem::path root_;
  std::mt19937_64 random_{20};
  std::vector<std::uint64_t> content_;
};

int generate(const std::vector<std::string_view>& arguments) {
  std::size_t scale = 0;
  if (arguments.size() == 3) {
    std::from_chars(arguments[1].data(), arguments[1].data() + arguments[1].size(), scale);
  }
  if (scale == 0) {
    std::cerr << "usage: generate-payload big|mixed|tiny|many SCALE FOLDER\n";
    return 2;
  }
  if (!Payload(arguments[0], scale, arguments[2]).generate()) {
    std::cerr << "generate-payload: cannot generate " << arguments[0] << " in " << arguments[2] << '\n';
    return 1;
  }
  return 0;
}

}  // namespace

int main(int count, char** values) {
  try {
    return generate({values + 1, values + count});
  } catch (const std::exception& problem) {
    std::cerr << "generate-payload: " << problem.what() << '\n';
    return 1;
  }
}
