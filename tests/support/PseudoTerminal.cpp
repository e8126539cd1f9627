#include "tests/support/PseudoTerminal.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace support {

namespace {

constexpr int kPatienceMilliseconds = 60'000;

}  // namespace

PseudoTerminal::PseudoTerminal(unsigned short columns) : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  std::array<char, 128> name{};
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 ||
      ptsname_r(master_, name.data(), name.size()) != 0) {
    throw std::runtime_error("no terminal can be made");
  }
  programEnd_ = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (programEnd_ < 0) {
    throw std::runtime_error("the terminal cannot be opened");
  }
  setColumns(columns);
}

PseudoTerminal::~PseudoTerminal() {
  giveAwayProgramEnd();
  close(master_);
}

void PseudoTerminal::giveAwayProgramEnd() {
  if (programEnd_ >= 0) {
    close(std::exchange(programEnd_, -1));
  }
}

void PseudoTerminal::setColumns(unsigned short columns) const {
  winsize size{};
  size.ws_row = 24;
  size.ws_col = columns;
  if (ioctl(master_, TIOCSWINSZ, &size) != 0) {
    throw std::runtime_error("the terminal takes no other size");
  }
}

void PseudoTerminal::type(std::string_view keys) const {
  if (write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    throw std::runtime_error("the terminal takes no keys");
  }
}

bool PseudoTerminal::waitFor(std::string_view text) {
  while (true) {
    if (const auto found = drawn_.find(text, looked_); found != std::string::npos) {
      looked_ = found + text.size();
      return true;
    }
    if (!readSome()) {
      return false;
    }
  }
}

const std::string& PseudoTerminal::everything() {
  while (readSome()) {
  }
  return drawn_;
}

bool PseudoTerminal::readSome() {
  pollfd news{master_, POLLIN, 0};
  std::array<char, 4096> bytes{};
  if (poll(&news, 1, kPatienceMilliseconds) <= 0) {
    return false;
  }
  const ssize_t count = read(master_, bytes.data(), bytes.size());
  if (count <= 0) {
    return false;
  }
  drawn_.append(bytes.data(), static_cast<std::size_t>(count));
  return true;
}

}  // namespace support
