#include "tests/support/AllocationCount.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <sstream>

#include "tests/support/FailingAllocation.h"
#include "tests/support/RootDirectory.h"

namespace support {
namespace {

constexpr const char* kLibrary = "/run/failing-allocation.so";
constexpr const char* kPage = "/run/allocations";

AllocationPage* mapPage(const std::string& path) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  void* mapped = MAP_FAILED;
  if (file >= 0 && ftruncate(file, sizeof(AllocationPage)) == 0) {
    mapped = mmap(nullptr, sizeof(AllocationPage), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  }
  if (mapped == MAP_FAILED) {
    throwErrno("sharing " + path);
  }
  close(file);
  return static_cast<AllocationPage*>(mapped);
}

}  // namespace

AllocationCount::AllocationCount(PrivateRoot& root, const Fault& fault, const std::string& engine) {
  if (!root.exists(kLibrary)) {
    root.copyIn(CORVANE_FAILING_ALLOCATION, kLibrary);
  }
  page_ = mapPage(root.path(kPage));
  engine.copy(page_->engine, PATH_MAX - 1);
  page_->role = static_cast<std::size_t>(fault.role);
  page_->number = fault.number;
}

AllocationCount::~AllocationCount() { munmap(page_, sizeof(AllocationPage)); }

std::vector<std::string> AllocationCount::environment() {
  return {std::string("LD_PRELOAD=") + kLibrary, std::string(AllocationPage::kVariable) + "=" + kPage};
}

void AllocationCount::tell(FaultOutcome& outcome) const {
  outcome.reached = page_->reached;
  outcome.call = outcome.reached ? describe() : "";
  for (std::size_t role = 0; role < kEngineRoles; ++role) {
    outcome.allocationsSeen[role] = page_->counted[role];
  }
}

std::string AllocationCount::describe() const {
  std::ostringstream text;
  text << page_->size << " bytes, asked for at" << std::hex;
  for (const std::uintptr_t caller : page_->callers) {
    if (caller != 0) {
      text << " 0x" << caller;
    }
  }
  return text.str();
}

}  // namespace support
