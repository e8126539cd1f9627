#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <new>
#include <string>

#include "InstallationDeployer/receipt/ReceiptLeftovers.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/NoMemory.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;

TEST(ReceiptLeftovers, WhatStaysForLackOfMemoryIsNamed) {
  const tests::TemporaryDirectory folder;
  const std::string aside = folder.path() + "/.com.corvane.installer.1.2.aside";
  unsigned long failures = 0;
  for (unsigned long number = 1;; ++number) {
    fs::create_directories(aside + "/Installer.app/Contents");
    std::ofstream(aside + "/Installer.app/Contents/file") << "content";
    const tests::CapturedLog log;
    bool failed = false;
    bool wasReached = false;
    {
      const support::NoMemory noMemory(number);
      try {
        static_cast<void>(deployer::removePutAsideReceipt(aside));
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      wasReached = support::NoMemory::wasReached();
    }
    if (!wasReached) {
      break;
    }
    failures += failed ? 1 : 0;
    if (failed) {
      EXPECT_TRUE(log.contains("Error", "What is left of the receipt lies at " + aside + ". std::bad_alloc")) << number;
    }
  }
  EXPECT_GT(failures, 5U);
}

}  // namespace
