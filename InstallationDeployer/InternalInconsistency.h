#pragma once

#include <stdexcept>

namespace deployer {

/// A manifest contradicts what the engine relies on; the run cannot go on. what() is the message. It ends the run with
/// the state QVNInstallerStateFailed, wherever it is thrown.
class InternalInconsistency : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace deployer
