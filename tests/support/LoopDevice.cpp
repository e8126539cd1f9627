#include "tests/support/LoopDevice.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "tests/support/Program.h"
#include "tests/support/RootDirectory.h"

namespace support {
namespace {

constexpr const char* kControl = "/dev/loop-control";
constexpr int kTries = 20;
/// Those who make file systems are not on everybody's path.
const std::string kSearchPath = "PATH=/usr/sbin:/sbin:/usr/bin:/bin; ";

class Descriptor {
 public:
  Descriptor(const std::string& path, int flags, mode_t mode = 0) : number_(open(path.c_str(), flags, mode)) {
    if (number_ < 0) {
      throwErrno("opening " + path);
    }
  }
  ~Descriptor() { close(number_); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int number() const { return number_; }

 private:
  int number_;
};

/// A device that nobody uses; others may take it first.
std::string freeDevice() {
  const Descriptor control(kControl, O_RDWR | O_CLOEXEC);
  const int number = ioctl(control.number(), LOOP_CTL_GET_FREE);
  if (number < 0) {
    throwErrno("finding a free loop device");
  }
  return "/dev/loop" + std::to_string(number);
}

bool configure(int device, int image) {
  loop_config configuration{};
  configuration.fd = static_cast<__u32>(image);
  configuration.info.lo_flags = LO_FLAGS_AUTOCLEAR;
  return ioctl(device, LOOP_CONFIGURE, &configuration) == 0;
}

/// Calls `use` with each piece that holds data.
template <class Use>
void forEachPiece(int file, Use use) {
  static std::array<char, 1 << 20> piece;
  off_t data = lseek(file, 0, SEEK_DATA);
  while (data >= 0) {
    const off_t hole = lseek(file, data, SEEK_HOLE);
    while (data < hole) {
      const auto wanted = static_cast<std::size_t>(std::min<off_t>(hole - data, piece.size()));
      const ssize_t count = pread(file, piece.data(), wanted, data);
      if (count <= 0) {
        throwErrno("reading an image");
      }
      use(piece.data(), static_cast<std::size_t>(count), data);
      data += count;
    }
    data = lseek(file, hole, SEEK_DATA);
  }
}

void copyOnce(const std::string& from, const std::string& to) {
  const Descriptor source(from, O_RDONLY | O_CLOEXEC);
  const Descriptor target(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (ftruncate(target.number(), lseek(source.number(), 0, SEEK_END)) != 0) {
    throwErrno("making " + to);
  }
  forEachPiece(source.number(), [&](const char* bytes, std::size_t count, off_t place) {
    if (pwrite(target.number(), bytes, count, place) != static_cast<ssize_t>(count)) {
      throwErrno("writing " + to);
    }
  });
}

bool isStill(const std::string& image, const std::string& copy) {
  const Descriptor source(image, O_RDONLY | O_CLOEXEC);
  const Descriptor copied(copy, O_RDONLY | O_CLOEXEC);
  bool same = true;
  std::string bytes;
  forEachPiece(source.number(), [&](const char* found, std::size_t count, off_t place) {
    bytes.resize(count);
    same = same && pread(copied.number(), bytes.data(), count, place) == static_cast<ssize_t>(count) &&
           std::memcmp(found, bytes.data(), count) == 0;
  });
  return same;
}

}  // namespace

LoopDevice::LoopDevice(const std::string& image) {
  const Descriptor file(image, O_RDWR | O_CLOEXEC);
  for (int tries = 0; tries < kTries; ++tries) {
    path_ = freeDevice();
    descriptor_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor_ >= 0 && configure(descriptor_, file.number())) {
      return;
    }
    const int reason = errno;
    close(descriptor_);
    errno = reason;
    if (errno != EBUSY) {
      break;
    }
  }
  throwErrno("making a device of " + image);
}

LoopDevice::~LoopDevice() { close(descriptor_); }

std::optional<std::string> LoopDevice::whyImpossible() {
  try {
    static_cast<void>(Descriptor(freeDevice(), O_RDWR | O_CLOEXEC));
    return std::nullopt;
  } catch (const PrivateRootError& error) {
    return error.what();
  }
}

std::optional<std::string> whyNoFileSystem(const std::string& fileSystem) {
  const std::string maker = "mkfs." + fileSystem;
  if (!runOnHost({"/bin/sh", "-c", kSearchPath + "command -v \"$0\"", maker}).succeeded()) {
    return "there is no " + maker;
  }
  std::ifstream known("/proc/filesystems");
  for (std::string line; std::getline(known, line);) {
    if (line.ends_with("\t" + fileSystem)) {
      return std::nullopt;
    }
  }
  return "the kernel does not know " + fileSystem;
}

void makeImage(const std::string& image, const std::string& fileSystem, std::uint64_t sizeBytes) {
  {
    const Descriptor file(image, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (ftruncate(file.number(), static_cast<off_t>(sizeBytes)) != 0) {
      throwErrno("making " + image);
    }
  }
  const Outcome outcome = runOnHost({"/bin/sh", "-c", kSearchPath + "exec mkfs." + fileSystem + " \"$0\"", image});
  if (!outcome.succeeded()) {
    throw PrivateRootError("mkfs." + fileSystem + ": " + outcome.description());
  }
}

void copyImage(const std::string& from, const std::string& to) {
  for (int tries = 0; tries < kTries; ++tries) {
    copyOnce(from, to);
    if (isStill(from, to)) {
      return;
    }
  }
  throw PrivateRootError("copying " + from + ": it is written to all the time");
}

}  // namespace support
