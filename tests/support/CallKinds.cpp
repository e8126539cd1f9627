#include "tests/support/CallKinds.h"

#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace support {
namespace {

constexpr int kNone = NamedCall::kNone;

/// A kind of calls and the calls of it; calls that an architecture does not have are left out.
struct KindWithCalls {
  CallKind kind;
  std::vector<NamedCall> calls;
};

KindWithCalls kind(std::string_view name, std::vector<int> errors, std::vector<NamedCall> calls) {
  KindWithCalls made{{name, {}, std::move(errors)}, std::move(calls)};
  for (const NamedCall& call : made.calls) {
    made.kind.numbers.push_back(call.number);
  }
  return made;
}

std::vector<KindWithCalls> kindsOfNames() {
  return {
      kind("open", {EIO, EMFILE, ENOMEM, EACCES, EINTR},
           {
#ifdef SYS_open
               {SYS_open, "open", kNone, 0},
#endif
               {SYS_openat, "openat", 0, 1},
               {SYS_openat2, "openat2", 0, 1}}),
      kind("rename", {EIO, ENOSPC, EACCES},
           {
#ifdef SYS_rename
               {SYS_rename, "rename", kNone, 0, 1},
#endif
#ifdef SYS_renameat
               {SYS_renameat, "renameat", 0, 1, 3},
#endif
               {SYS_renameat2, "renameat2", 0, 1, 3}}),
      kind("link", {EIO, ENOSPC, EPERM},
           {
#ifdef SYS_link
               {SYS_link, "link", kNone, 0, 1},
#endif
               {SYS_linkat, "linkat", 0, 1, 3}}),
      kind("symlink", {EIO, ENOSPC, EACCES},
           {
#ifdef SYS_symlink
               {SYS_symlink, "symlink", kNone, 0, 1},
#endif
               {SYS_symlinkat, "symlinkat", 1, 0, 2}}),
      kind("mkdir", {EIO, ENOSPC, EACCES},
           {
#ifdef SYS_mkdir
               {SYS_mkdir, "mkdir", kNone, 0},
#endif
               {SYS_mkdirat, "mkdirat", 0, 1}}),
      kind("unlink", {EIO, EBUSY, EPERM},
           {
#ifdef SYS_unlink
               {SYS_unlink, "unlink", kNone, 0},
               {SYS_rmdir, "rmdir", kNone, 0},
#endif
               {SYS_unlinkat, "unlinkat", 0, 1}}),
      kind("readlink", {EIO, EACCES},
           {
#ifdef SYS_readlink
               {SYS_readlink, "readlink", kNone, 0},
#endif
               {SYS_readlinkat, "readlinkat", 0, 1}}),
      kind("stat", {EIO, ENOMEM, EACCES},
           {
#ifdef SYS_stat
               {SYS_stat, "stat", kNone, 0},
               {SYS_lstat, "lstat", kNone, 0},
#endif
               {SYS_newfstatat, "newfstatat", 0, 1},
               {SYS_statx, "statx", 0, 1}}),
      kind("access", {EIO, EACCES},
           {
#ifdef SYS_access
               {SYS_access, "access", kNone, 0},
#endif
               {SYS_faccessat, "faccessat", 0, 1},
               {SYS_faccessat2, "faccessat2", 0, 1}}),
  };
}

std::vector<KindWithCalls> kindsOfFiles() {
  return {
      kind("read", {EIO, EINTR, ENOMEM},
           {{SYS_read, "read", 0}, {SYS_pread64, "pread64", 0}, {SYS_readv, "readv", 0}, {SYS_preadv, "preadv", 0}}),
      kind("write", {EIO, ENOSPC, EINTR},
           {{SYS_write, "write", 0},
            {SYS_pwrite64, "pwrite64", 0},
            {SYS_writev, "writev", 0},
            {SYS_pwritev, "pwritev", 0}}),
      kind("copy", {EIO, ENOSPC, EINTR},
           {{SYS_copy_file_range, "copy_file_range", 2}, {SYS_sendfile, "sendfile", 0}, {SYS_splice, "splice", 2}}),
      kind("fstat", {EIO, ENOMEM}, {{SYS_fstat, "fstat", 0}}),
      kind("allocate", {EIO, ENOSPC, EINTR}, {{SYS_fallocate, "fallocate", 0}, {SYS_ftruncate, "ftruncate", 0}}),
      kind("chown", {EIO, EPERM},
           {
#ifdef SYS_chown
               {SYS_chown, "chown", kNone, 0},
               {SYS_lchown, "lchown", kNone, 0},
#endif
               {SYS_fchown, "fchown", 0},
               {SYS_fchownat, "fchownat", 0, 1}}),
      kind("chmod", {EIO, EPERM},
           {
#ifdef SYS_chmod
               {SYS_chmod, "chmod", kNone, 0},
#endif
               {SYS_fchmod, "fchmod", 0},
               {SYS_fchmodat, "fchmodat", 0, 1}}),
      kind("utime", {EIO, EPERM}, {{SYS_utimensat, "utimensat", 0, 1}}),
      kind("xattr", {EIO, EPERM},
           {{SYS_setxattr, "setxattr", kNone, 0}, {SYS_fsetxattr, "fsetxattr", 0}, {SYS_flistxattr, "flistxattr", 0}}),
      kind("getdents", {EIO, ENOMEM}, {{SYS_getdents64, "getdents64", 0}}),
      kind("statfs", {EIO, ENOMEM}, {{SYS_statfs, "statfs", kNone, 0}, {SYS_fstatfs, "fstatfs", 0}}),
      kind("sync", {EIO, ENOSPC, EDQUOT},
           {{SYS_fsync, "fsync", 0}, {SYS_fdatasync, "fdatasync", 0}, {SYS_syncfs, "syncfs", 0}}),
      kind("flock", {EINTR, ENOLCK}, {{SYS_flock, "flock", 0}}),
      kind("mmap", {ENOMEM}, {{SYS_mmap, "mmap"}, {SYS_mprotect, "mprotect"}, {SYS_mremap, "mremap"}}),
      kind("memfd", {EMFILE, ENOMEM}, {{SYS_memfd_create, "memfd_create"}}),
      kind("random", {EINTR, ENOSYS}, {{SYS_getrandom, "getrandom"}}),
  };
}

std::vector<KindWithCalls> kindsOfConnections() {
  return {
      kind("socket", {EMFILE, ENOMEM, ENOBUFS}, {{SYS_socket, "socket"}, {SYS_socketpair, "socketpair"}}),
      kind("bind", {EADDRINUSE, ENOSPC, EACCES, EIO}, {{SYS_bind, "bind", 0}}),
      kind("listen", {EADDRINUSE, ENOMEM}, {{SYS_listen, "listen", 0}}),
      kind("connect", {ECONNREFUSED, EAGAIN, EINTR, ENOMEM}, {{SYS_connect, "connect", 0}}),
      kind("accept", {ECONNABORTED, EMFILE, EINTR, ENOMEM}, {{SYS_accept, "accept", 0}, {SYS_accept4, "accept4", 0}}),
      kind("receive", {ECONNRESET, EINTR, ENOMEM}, {{SYS_recvmsg, "recvmsg", 0}, {SYS_recvfrom, "recvfrom", 0}}),
      kind("send", {EPIPE, ECONNRESET, EAGAIN, EINTR, ENOBUFS},
           {{SYS_sendmsg, "sendmsg", 0}, {SYS_sendto, "sendto", 0}}),
      kind("sockopt", {ENOMEM, ENOBUFS},
           {{SYS_getsockopt, "getsockopt", 0},
            {SYS_setsockopt, "setsockopt", 0},
            {SYS_getsockname, "getsockname", 0},
            {SYS_getpeername, "getpeername", 0}}),
      kind("poll", {EINTR, ENOMEM},
           {
#ifdef SYS_poll
               {SYS_poll, "poll"},
               {SYS_epoll_wait, "epoll_wait", 0},
#endif
               {SYS_ppoll, "ppoll"},
               {SYS_epoll_pwait, "epoll_pwait", 0}}),
      kind("epoll", {EMFILE, ENOMEM}, {{SYS_epoll_create1, "epoll_create1"}, {SYS_epoll_ctl, "epoll_ctl", 0}}),
      kind("pipe", {EMFILE, ENFILE},
           {
#ifdef SYS_pipe
               {SYS_pipe, "pipe"},
#endif
               {SYS_pipe2, "pipe2"}}),
      kind("eventfd", {EMFILE, ENOMEM}, {{SYS_eventfd2, "eventfd2"}}),
      kind("timerfd", {EMFILE, ENOMEM},
           {{SYS_timerfd_create, "timerfd_create"}, {SYS_timerfd_settime, "timerfd_settime", 0}}),
      kind("signalfd", {EMFILE, ENOMEM}, {{SYS_signalfd4, "signalfd4"}}),
  };
}

std::vector<KindWithCalls> kindsOfProcesses() {
  return {
      kind("clone", {EAGAIN, ENOMEM},
           {
#ifdef SYS_fork
               {SYS_fork, "fork"},
               {SYS_vfork, "vfork"},
#endif
               {SYS_clone, "clone"},
               {SYS_clone3, "clone3"}}),
      kind("exec", {EACCES, ENOMEM, EIO}, {{SYS_execve, "execve", kNone, 0}, {SYS_execveat, "execveat", 0, 1}}),
      kind("wait", {EINTR, ECHILD}, {{SYS_wait4, "wait4"}, {SYS_waitid, "waitid"}}),
      kind("pidfd", {EMFILE, ENOMEM}, {{SYS_pidfd_open, "pidfd_open"}}),
      kind("dup", {EMFILE, EINTR},
           {
#ifdef SYS_dup2
               {SYS_dup2, "dup2", 0},
#endif
               {SYS_dup, "dup", 0},
               {SYS_dup3, "dup3", 0}}),
      kind("chdir", {EIO, EACCES}, {{SYS_chdir, "chdir", kNone, 0}, {SYS_fchdir, "fchdir", 0}}),
  };
}

const std::vector<KindWithCalls>& allKinds() {
  static const std::vector<KindWithCalls> kAll = [] {
    std::vector<KindWithCalls> all;
    for (auto part : {kindsOfNames(), kindsOfFiles(), kindsOfConnections(), kindsOfProcesses()}) {
      all.insert(all.end(), part.begin(), part.end());
    }
    return all;
  }();
  return kAll;
}

constexpr std::array kErrorNames = {
    std::pair{EIO, "EIO"},
    std::pair{EMFILE, "EMFILE"},
    std::pair{ENFILE, "ENFILE"},
    std::pair{ENOMEM, "ENOMEM"},
    std::pair{EACCES, "EACCES"},
    std::pair{EPERM, "EPERM"},
    std::pair{EINTR, "EINTR"},
    std::pair{ENOSPC, "ENOSPC"},
    std::pair{EDQUOT, "EDQUOT"},
    std::pair{EBUSY, "EBUSY"},
    std::pair{EAGAIN, "EAGAIN"},
    std::pair{ENOLCK, "ENOLCK"},
    std::pair{EPIPE, "EPIPE"},
    std::pair{ENOBUFS, "ENOBUFS"},
    std::pair{ECHILD, "ECHILD"},
    std::pair{ENOSYS, "ENOSYS"},
    std::pair{ECONNREFUSED, "ECONNREFUSED"},
    std::pair{ECONNRESET, "ECONNRESET"},
    std::pair{ECONNABORTED, "ECONNABORTED"},
    std::pair{EADDRINUSE, "EADDRINUSE"},
};

}  // namespace

std::optional<NamedCall> namedCall(long number) {
  for (const KindWithCalls& kind : allKinds()) {
    const auto call = std::ranges::find(kind.calls, number, &NamedCall::number);
    if (call != kind.calls.end()) {
      return *call;
    }
  }
  return std::nullopt;
}

const std::vector<CallKind>& callKinds() {
  static const std::vector<CallKind> kKinds = [] {
    std::vector<CallKind> kinds;
    for (const KindWithCalls& kind : allKinds()) {
      kinds.push_back(kind.kind);
    }
    return kinds;
  }();
  return kKinds;
}

std::string nameOfError(int error) {
  const auto known = std::ranges::find(kErrorNames, error, [](const auto& named) { return named.first; });
  return known == kErrorNames.end() ? std::to_string(error) : known->second;
}

std::optional<int> errorNamed(std::string_view name) {
  const auto known =
      std::ranges::find(kErrorNames, name, [](const auto& named) { return std::string_view(named.second); });
  return known == kErrorNames.end() ? std::nullopt : std::optional(known->first);
}

}  // namespace support
