#include "general/foundation/Thread.h"

#include <new>
#include <utility>

#include "general/foundation/ThreadPrimitives.h"

namespace foundation {

namespace {

std::string& nameOfThisThread() {
  thread_local std::string name;
  return name;
}

}  // namespace

void setCurrentThreadName(const std::string& name) {
  nameOfThisThread() = name;
  setSystemThreadName(name);
}

const std::string& currentThreadName() { return nameOfThisThread(); }

NamedThread::NamedThread(std::string name, std::function<void()> body)
    : thread_([threadName = std::move(name), run = std::move(body)] {
        try {
          setCurrentThreadName(threadName);
        } catch (const std::bad_alloc&) {
          // It goes without its name.
        }
        run();
      }) {}

NamedThread::~NamedThread() { join(); }

void NamedThread::join() {
  if (thread_.joinable()) {
    thread_.join();
  }
}

}  // namespace foundation
