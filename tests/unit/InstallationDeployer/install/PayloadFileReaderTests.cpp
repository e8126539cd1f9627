#include <gtest/gtest.h>

#include <atomic>
#include <span>
#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/install/PayloadFileReader.h"
#include "general/foundation/Thread.h"
#include "tests/support/TemporaryDirectory.h"

namespace deployer {
namespace {

using foundation::NamedThread;
using tests::TemporaryDirectory;

std::string checksumOf(const std::string& content) {
  return QVNInstallerChecksum::generateSHA256(std::as_bytes(std::span(content)));
}

std::string textOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

TEST(PayloadFileReader, GivesContentAndChecksumOfOneFileAfterTheOther) {
  const TemporaryDirectory scratch;
  const std::string large(1 << 20, 'x');
  MemoryBudget budget(1 << 21);
  PayloadFileReader reader(budget, 4096);
  for (const std::string& content : {std::string("first"), large, std::string(), std::string("last")}) {
    const auto read = reader.read(scratch.write("file", content));
    ASSERT_TRUE(read.ok());
    EXPECT_EQ(textOf(read->bytes()), content);
    EXPECT_EQ(read->checksum(), checksumOf(content));
  }
}

TEST(PayloadFileReader, ATroubledReadLeavesNothingInTheNextChecksum) {
  const TemporaryDirectory scratch;
  MemoryBudget budget(1 << 20);
  PayloadFileReader reader(budget, 4096);
  EXPECT_TRUE(reader.read(scratch.path("absent")).error().isNoSuchFile());
  const auto read = reader.read(scratch.write("file", "abc"));
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(read->checksum(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(PayloadFileReader, LargeFilesOfSeveralReadersShareOneBudget) {
  const TemporaryDirectory scratch;
  const std::string content(50000, 'x');
  const std::string path = scratch.write("file", content);
  MemoryBudget budget(60000);
  std::atomic<int> good = 0;
  {
    std::vector<NamedThread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back("reader", [&] {
        PayloadFileReader reader(budget, 4096);
        for (int round = 0; round < 20; ++round) {
          const auto read = reader.read(path);
          good += read.ok() && read->bytes().size() == content.size() ? 1 : 0;
        }
      });
    }
  }
  EXPECT_EQ(good, 80);
}

}  // namespace
}  // namespace deployer
