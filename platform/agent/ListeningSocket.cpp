// Takes over a path from a dead agent, never from a living one.
#include "agent/ListeningSocket.h"

#include "agent/CommandSocket.h"
#include "kiln/TrustedFile.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Agent {

namespace {

[[noreturn]] void throwErrno(const Kiln::String& what) {
   throw std::runtime_error(what + ": " + std::strerror(errno));
}

Kiln::OwnedFd streamSocket() {
   Kiln::OwnedFd made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
   if (!made.isOpen()) {
      throwErrno("cannot create a socket");
   }
   return made;
}

// Removes a socket only if nobody listens on it any more.
void removeStaleSocket(const SocketAddress& address, const Kiln::String& path) {
   struct stat status {};
   if (lstat(path.c_str(), &status) != 0) {
      return;
   }
   if (!S_ISSOCK(status.st_mode)) {
      throw std::runtime_error(path + " exists and is no socket: choose another with --socket PATH");
   }
   if (status.st_uid != geteuid()) {
      throw std::runtime_error(path + " belongs to " + userName(status.st_uid) + ", not to " +
                               userName(geteuid()) +
                               ": remove it, or choose another socket with --socket PATH");
   }
   const Kiln::OwnedFd probe = streamSocket();
   // EAGAIN: the other's queue of connections is full, so it lives.
   if (connect(probe.fd(), address.any(), address.length()) == 0 || errno == EAGAIN) {
      throw std::runtime_error("another agent answers on " + path +
                               ": stop it, or choose another socket with --socket PATH");
   }
   if (errno != ECONNREFUSED) {
      throwErrno("cannot tell whether an agent answers on " + path);
   }
   unlink(path.c_str());
}

// By the file's name: the descriptor's own owner and mode are not the file's.
void groupIs(const Kiln::String& path, gid_t group) {
   if (chmod(path.c_str(), S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP) == 0 &&
       lchown(path.c_str(), static_cast<uid_t>(-1), group) == 0) {
      return;
   }
   const Kiln::String reason = std::strerror(errno);
   unlink(path.c_str());
   throw std::runtime_error("cannot give " + path + " to " + groupName(group) + " (" + reason +
                            "): the agent must be its member, or root");
}

} // namespace

Kiln::OwnedFd listenOn(const Kiln::String& path, std::optional<gid_t> group) {
   const SocketAddress address(path);
   Kiln::requireTrustedFolder(Kiln::folderOf(path));
   // No other agent looks for a stale socket meanwhile: it could take the socket that this one has bound, but does not
   // listen on yet, for a stale one.
   std::optional<Kiln::FileLock> lock;
   try {
      lock.emplace(path, Kiln::FileLock::patience);
   } catch (const std::system_error& error) {
      throw std::runtime_error("cannot listen on " + path + ": " + error.code().message());
   }
   removeStaleSocket(address, path);
   Kiln::OwnedFd made = streamSocket();
   // Before the socket has a name, so that others can open it at no moment.
   fchmod(made.fd(), S_IRUSR | S_IWUSR);
   if (bind(made.fd(), address.any(), address.length()) != 0) {
      throwErrno("cannot listen on " + path);
   }
   if (group) {
      groupIs(path, *group);
   }
   if (listen(made.fd(), SOMAXCONN) != 0) {
      throwErrno("cannot listen on " + path);
   }
   return made;
}

} // namespace Agent
