// One command and its answer over the agent's socket.
#include "apps/zelctl/connection/AgentConnection.h"

#include "agent/CommandSocket.h"
#include "agent/CommandSpool.h"
#include "apps/zelctl/terminal/Terminal.h"
#include "kiln/Choices.h"
#include "kiln/OwnedFd.h"
#include "kiln/Time.h"
#include "kiln/Utf8.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <iostream>
#include <limits>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace ZelCtl {

namespace {

using Paths = std::vector<Kiln::String>;

constexpr int connectTimeout = 5; // seconds
// An agent's text, and what it has around that.
constexpr std::size_t answerLimit = Agent::CommandSpool::sizeLimit + Agent::answerFrameLimit; // bytes

// A socket on which somebody answers who is not to be believed.
struct Stranger {
   Kiln::String path;
   uid_t user;
};

Kiln::String strangerText(const Stranger& stranger) {
   const Kiln::String theirs = Agent::userName(stranger.user);
   return "the agent on " + stranger.path + " is run by " + theirs + ", not by root" +
          (geteuid() == 0 ? "" : " or " + Agent::userName(geteuid())) + ": if that is meant, run zelctl as " +
          theirs;
}

// What a user without the right to open these sockets can do: become who may, or join the group of a socket for readers.
Kiln::String deniedText(const Paths& denied) {
   struct stat status {};
   const bool isSeen = stat(denied.front().c_str(), &status) == 0;
   const Kiln::String owner = isSeen ? Agent::userName(status.st_uid) : "the agent's user";
   Kiln::String text = "no permission to open " + denied.front() +
                       (isSeen ? ", which is " + owner + "'s" : "") + ": run zelctl as " + owner +
                       ", such as by sudo";
   for (const Kiln::String& path : denied) {
      if (stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWGRP) != 0) {
         text += ", or, to read, as a member of " + Agent::groupName(status.st_gid);
      }
   }
   return text;
}

class Connection {
 public:
   Connection(Signals* signals, const Patience& patience)
        : signals_(signals), patience_(patience),
          end_(Kiln::System::monotonicTime() + (patience.inAll > 0 ? patience.inAll : never)) {}

   // Connects to the first of the paths on which an agent of this user's, or of root's, answers. In a folder that all
   // may write to, such as /tmp, anybody may listen.
   void open(const Paths& paths) {
      Paths denied;
      std::optional<Stranger> stranger;
      for (const Kiln::String& path : paths) {
         path_ = path;
         const int error = connectToPath();
         if (error == 0) {
            const uid_t user = peer();
            if (user == 0 || user == geteuid()) {
               return;
            }
            stranger = Stranger{path, user};
         } else if (error == EACCES || error == EPERM) {
            denied.push_back(path);
         } else if (error != ENOENT && error != ECONNREFUSED && error != ENOTDIR && error != ENOTSOCK) {
            throw std::runtime_error("cannot connect to the agent on " + path + ": " + std::strerror(error));
         }
      }
      if (stranger) {
         throw std::runtime_error(strangerText(*stranger));
      }
      throw std::runtime_error(denied.empty() ? "no agent answers on " + Kiln::choices(paths) +
                                                     ": start one with 'zelagent', or name its socket with "
                                                     "--socket PATH"
                                              : deniedText(denied));
   }

   const Kiln::String& path() const { return path_; }

   // An agent that refuses a command may answer and close before it has read all of it, so a failed send is not an
   // error: the answer tells.
   void send(const Kiln::String& line) {
      const Kiln::String bytes = line + "\n";
      for (std::size_t sent = 0; sent < bytes.size();) {
         const ssize_t taken = ::send(socket_.fd(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
         if (taken < 0 && errno != EINTR) {
            return;
         }
         sent += taken > 0 ? static_cast<std::size_t>(taken) : 0;
      }
   }

   // All that comes until the agent closes the connection. One that closes before it has read a whole line resets it;
   // what it sent before counts anyway.
   Kiln::String receive() {
      Kiln::String all;
      char bytes[64 * 1024];
      for (;;) {
         awaitBytes();
         const ssize_t got = recv(socket_.fd(), bytes, sizeof bytes, 0);
         if (got > 0 && all.size() + static_cast<std::size_t>(got) > answerLimit) {
            throw std::runtime_error("the agent on " + path_ + " answers with more than " +
                                     std::to_string(Agent::CommandSpool::sizeLimit >> 20U) +
                                     " MiB, which no agent does: find out who listens there");
         }
         if (got > 0) {
            all.append(bytes, static_cast<std::size_t>(got));
         } else if (got == 0 || errno == ECONNRESET) {
            return all;
         } else if (errno != EINTR) {
            throw std::runtime_error("the agent on " + path_ +
                                     " did not finish its answer: " + std::strerror(errno));
         }
      }
   }

 private:
   static constexpr int never = std::numeric_limits<int>::max(); // seconds
   static constexpr int silence = 1; // seconds, after which a person should know what is waited for

   // Who listens, as the kernel has noted it.
   uid_t peer() const {
      ucred credentials{};
      socklen_t size = sizeof credentials;
      if (getsockopt(socket_.fd(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
         throw std::runtime_error("cannot tell who runs the agent on " + path_ + ": " + std::strerror(errno));
      }
      return credentials.uid;
   }

   void awaitBytes() {
      const double began = Kiln::System::monotonicTime();
      const double due = std::min(end_, began + patience_.perByte);
      pollfd watched[] = {{socket_.fd(), POLLIN, 0},
                          {signals_ != nullptr ? signals_->fd() : -1, POLLIN, 0},
                          {patience_.endsByKey ? STDIN_FILENO : -1, POLLIN, 0}};
      do {
         if (signals_ != nullptr && signals_->isBreaking()) {
            throw std::runtime_error("interrupted before the agent answered");
         }
         const double next = isSaid() ? due : std::min(due, began + silence);
         const double left = std::max(0.0, next - Kiln::System::monotonicTime());
         if (poll(watched, std::size(watched), static_cast<int>(std::ceil(left * 1e3))) == 0) {
            if (next == due) {
               const int waited = patience_.inAll > 0 ? patience_.inAll : patience_.perByte;
               throw std::runtime_error("the agent on " + path_ + " did not answer within " +
                                        Kiln::counted(static_cast<U64>(waited), "second") + ": try again");
            }
            sayWaiting();
         }
         if (watched[2].revents != 0 && readsEndKey()) {
            signals_->interruptIs();
         }
      } while (watched[0].revents == 0);
   }

   bool isSaid() const { return wasSaid_ || !patience_.isSaid; }

   void sayWaiting() {
      if (!isSaid()) {
         std::cerr << "waiting for the agent; Ctrl-C ends\n";
         wasSaid_ = true;
      }
   }

   // Returns 0, or why there is no connection, as an errno value: EAGAIN if the agent's queue of connections stayed
   // full.
   int connectToPath() {
      const int bound =
           std::min({patience_.perByte, connectTimeout, patience_.inAll > 0 ? patience_.inAll : never});
      // Anew for each path: the last one may be connected to a stranger.
      socket_ = Kiln::OwnedFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
      if (!socket_.isOpen()) {
         throw std::runtime_error(Kiln::String("cannot create a socket: ") + std::strerror(errno));
      }
      int error = connectWithin(silence);
      if (error == EAGAIN && bound > silence) {
         sayWaiting();
         error = connectWithin(bound - silence);
      }
      return error;
   }

   int connectWithin(int seconds) {
      const Agent::SocketAddress address(path_);
      const timeval timeout{seconds, 0};
      setsockopt(socket_.fd(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout); // bounds connect() as well
      return connect(socket_.fd(), address.any(), address.length()) == 0 ? 0 : errno;
   }

   Kiln::String path_;
   Signals* signals_;
   Patience patience_;
   bool wasSaid_ = false;
   double end_; // on the monotonic clock
   Kiln::OwnedFd socket_;
};

constexpr const char* cutText = "% the agent ended before its answer was complete";

// Takes an answer apart. Throws std::runtime_error if it is of another version of the protocol.
Answer answerIn(const Kiln::String& bytes, const Kiln::String& path) {
   const std::size_t headEnd = bytes.find('\n');
   if (headEnd == Kiln::String::npos) {
      return {"", cutText, true};
   }
   const std::optional<unsigned> version = Agent::protocolVersionOf(bytes.substr(0, headEnd));
   if (!version) {
      throw std::runtime_error("the agent on " + path +
                               " is older than this zelctl: upgrade zelagent, and start it again");
   }
   if (*version != Agent::protocolVersion) {
      throw std::runtime_error("the agent on " + path + " is newer than this zelctl: upgrade zelctl");
   }
   const std::size_t textBegin = headEnd + 1;
   const std::size_t mark = bytes.find(Agent::endMark, textBegin);
   if (mark == Kiln::String::npos || bytes.back() != '\n') {
      const std::size_t textEnd = bytes.rfind('\n', mark) + 1;
      return {bytes.substr(textBegin, textEnd - textBegin), cutText, true};
   }
   const Kiln::String end = bytes.substr(mark + 1, bytes.size() - mark - 2);
   return {bytes.substr(textBegin, mark - textBegin), end == Agent::doneText ? "" : end};
}

} // namespace

Answer ask(const Paths& socketPaths, const Kiln::String& line, Signals* signals, const Patience& patience) {
   try {
      Connection connection(signals, patience);
      connection.open(socketPaths);
      connection.send(Agent::protocolWord() + " " + line);
      Answer answer = answerIn(connection.receive(), connection.path());
      answer.text = Kiln::printableText(answer.text);
      answer.error = Kiln::printable(answer.error);
      return answer;
   } catch (const std::exception& error) {
      return {"", "% " + Kiln::printable(error.what())};
   }
}

} // namespace ZelCtl
