// The command socket's place and address, and the protocol's version.
#include "agent/CommandSocket.h"

#include "kiln/Numbers.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace Agent {

namespace {

Kiln::String environment(const char* variable) {
   const char* value = std::getenv(variable);
   return value != nullptr ? value : "";
}

Kiln::String defaultFolder() {
   const Kiln::String runtime = environment("XDG_RUNTIME_DIR");
   if (!runtime.empty()) {
      return runtime + "/zelagent";
   }
   const uid_t user = geteuid();
   return user == 0 ? "/run/zelagent" : "/tmp/zelagent-" + std::to_string(user);
}

} // namespace

Kiln::String protocolWord() {
   return Kiln::String(protocolPrefix) + std::to_string(protocolVersion);
}

std::optional<unsigned> protocolVersionOf(std::string_view word) {
   if (!word.starts_with(protocolPrefix)) {
      return std::nullopt;
   }
   return Kiln::parseNumber<unsigned>(word.substr(protocolPrefix.size()), protocolVersion, UINT_MAX);
}

Kiln::String defaultSocketPath() {
   const Kiln::String chosen = environment("ZEL_SOCKET");
   return chosen.empty() ? defaultFolder() + "/socket" : chosen;
}

std::vector<Kiln::String> clientSocketPaths() {
   std::vector<Kiln::String> paths{defaultSocketPath()};
   if (environment("ZEL_SOCKET").empty()) {
      // As the service's unit has them.
      if (paths.front() != "/run/zelagent/socket") {
         paths.emplace_back("/run/zelagent/socket");
      }
      paths.emplace_back("/run/zelagent/read-socket");
   }
   return paths;
}

Kiln::String userName(uid_t user) {
   const passwd* const entry = getpwuid(user);
   return entry != nullptr ? entry->pw_name : "user " + std::to_string(user);
}

Kiln::String groupName(gid_t group) {
   const ::group* const entry = getgrgid(group);
   return entry != nullptr ? Kiln::String("group ") + entry->gr_name : "group " + std::to_string(group);
}

Kiln::String prepareDefaultSocketFolder() {
   if (!environment("ZEL_SOCKET").empty()) {
      return "";
   }
   const Kiln::String folder = defaultFolder();
   const bool isNew = mkdir(folder.c_str(), S_IRWXU) == 0;
   if (!isNew && errno != EEXIST) {
      throw std::runtime_error("cannot create " + folder + " (" + std::strerror(errno) +
                               "): choose a socket with --socket PATH");
   }
   // Checked even if mkdir found it there, and without following a link: in /tmp anyone may have made it.
   struct stat status {};
   if (lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != geteuid() ||
       (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
      throw std::runtime_error(folder + " is not a folder that only this user may write to: " +
                               "choose a socket with --socket PATH");
   }
   return isNew ? folder : "";
}

SocketAddress::SocketAddress(const Kiln::String& path) {
   if (path.empty() || path.size() >= sizeof address.sun_path) {
      throw std::runtime_error("socket path '" + path + "' has " + std::to_string(path.size()) +
                               " bytes: expected 1 to " + std::to_string(sizeof address.sun_path - 1));
   }
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
}

} // namespace Agent
