// One command and its answer over the agent's socket.
#include "apps/zelctl/connection/AgentConnection.h"

#include "agent/CommandSocket.h"
#include "apps/zelctl/terminal/Terminal.h"
#include "kiln/Choices.h"
#include "kiln/OwnedFd.h"
#include "kiln/Time.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <poll.h>
#include <stdexcept>
#include <sys/time.h>
#include <unistd.h>

namespace ZelCtl {

namespace {

constexpr int connectTimeout = 5; // seconds

class Connection {
 public:
   Connection(const Kiln::String& path, Signals* signals, const Patience& patience)
        : path_(path), signals_(signals), patience_(patience),
          end_(patience.inAll > 0 ? Kiln::System::monotonicTime() + patience.inAll : never),
          socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      if (!socket_.isOpen()) {
         throw std::runtime_error(Kiln::String("cannot create a socket: ") + std::strerror(errno));
      }
   }

   void open() {
      const Agent::SocketAddress address(path_);
      // A send timeout bounds connect() as well, which waits while the agent's queue of connections is full.
      const int bound = std::min(patience_.perByte, connectTimeout);
      sendTimeoutIs(patience_.inAll > 0 ? std::min(patience_.inAll, bound) : bound);
      if (connect(socket_.fd(), address.any(), address.length()) == 0) {
         return;
      }
      if (errno == ENOENT || errno == ECONNREFUSED || errno == ENOTDIR || errno == ENOTSOCK) {
         throw std::runtime_error("no agent answers on " + path_ +
                                  ": start one with 'zelagent', or name its socket with --socket PATH");
      }
      if (errno == EACCES || errno == EPERM) {
         throw std::runtime_error("no permission to open " + path_ + ": run as the agent's user");
      }
      throw std::runtime_error("cannot connect to the agent on " + path_ + ": " + std::strerror(errno));
   }

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

   Kiln::String receive() {
      Kiln::String all;
      char bytes[64 * 1024];
      for (;;) {
         awaitBytes();
         const ssize_t got = recv(socket_.fd(), bytes, sizeof bytes, 0);
         if (got > 0) {
            all.append(bytes, static_cast<std::size_t>(got));
         } else if (got == 0 || all.find(Agent::errorMark) != Kiln::String::npos) {
            // An agent that closes before it has read a whole line resets the connection; its refusal counts anyway.
            return all;
         } else if (errno != EINTR) {
            throw std::runtime_error("the agent on " + path_ +
                                     " did not finish its answer: " + std::strerror(errno));
         }
      }
   }

 private:
   static constexpr double never = std::numeric_limits<double>::infinity();

   void awaitBytes() {
      const double due = std::min(end_, Kiln::System::monotonicTime() + patience_.perByte);
      pollfd watched[] = {{socket_.fd(), POLLIN, 0},
                          {signals_ != nullptr ? signals_->fd() : -1, POLLIN, 0},
                          {patience_.endsByKey ? STDIN_FILENO : -1, POLLIN, 0}};
      do {
         if (signals_ != nullptr && signals_->isBreaking()) {
            throw std::runtime_error("interrupted before the agent answered");
         }
         const double left = std::max(0.0, due - Kiln::System::monotonicTime());
         if (poll(watched, std::size(watched), static_cast<int>(std::ceil(left * 1e3))) == 0) {
            const int waited = patience_.inAll > 0 ? patience_.inAll : patience_.perByte;
            throw std::runtime_error("the agent on " + path_ + " did not answer within " +
                                     Kiln::counted(static_cast<U64>(waited), "second") + ": try again");
         }
         if (watched[2].revents != 0 && readsEndKey()) {
            signals_->interruptIs();
         }
      } while (watched[0].revents == 0);
   }

   void sendTimeoutIs(int seconds) {
      const timeval timeout{seconds, 0};
      setsockopt(socket_.fd(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
   }

   Kiln::String path_;
   Signals* signals_;
   Patience patience_;
   double end_; // on the monotonic clock
   Kiln::OwnedFd socket_;
};

} // namespace

Answer ask(const Kiln::String& socketPath, const Kiln::String& line, Signals* signals,
           const Patience& patience) {
   Answer answer;
   try {
      Connection connection(socketPath, signals, patience);
      connection.open();
      connection.send(line);
      answer.text = connection.receive();
   } catch (const std::exception& error) {
      answer.error = Kiln::String("% ") + error.what();
      return answer;
   }
   const std::size_t mark = answer.text.find(Agent::errorMark);
   if (mark != Kiln::String::npos) {
      answer.error = answer.text.substr(mark + 1);
      answer.error.resize(std::min(answer.error.find('\n'), answer.error.size()));
      answer.text.resize(mark);
   }
   return answer;
}

} // namespace ZelCtl
