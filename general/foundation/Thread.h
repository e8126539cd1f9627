#pragma once

#include <functional>
#include <string>
#include <thread>

/// Threads with names. The full name is for logs; the system's own copy is cut to what it takes.
namespace foundation {

/// Names the calling thread.
void setCurrentThreadName(const std::string& name);
/// The name of the calling thread; empty when it was never named.
[[nodiscard]] const std::string& currentThreadName();

/// A thread that names itself before its body runs and is joined on destruction.
class NamedThread {
 public:
  /// Throws std::system_error when the system gives no thread. What the body throws ends the process.
  NamedThread(std::string name, std::function<void()> body);
  ~NamedThread();
  NamedThread(NamedThread&&) = default;
  NamedThread(const NamedThread&) = delete;
  NamedThread& operator=(const NamedThread&) = delete;
  void join();

 private:
  std::thread thread_;
};

}  // namespace foundation
