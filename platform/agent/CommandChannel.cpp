// The command channel's listener and its clients.
#include "agent/CommandChannel.h"

#include "agent/CommandOrigin.h"
#include "agent/CommandSocket.h"
#include "agent/ListeningSocket.h"
#include "kiln/ActivityLock.h"
#include "kiln/OperatorLog.h"
#include "kiln/RingLog.h"
#include "kiln/Timer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Agent {

namespace {

// 0 when there is no such file.
ino_t inodeOf(const Kiln::String& path) {
   struct stat status {};
   return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// Who opened the connection.
Kiln::String peerOf(int connection) {
   ucred peer{};
   socklen_t size = sizeof peer;
   return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? CommandOrigin::textOf(peer.uid)
                                                                             : "an unknown user";
}

// What an answer begins with.
Kiln::String head() {
   return protocolWord() + "\n";
}

// What an answer ends with; the error is empty if the command was carried out.
Kiln::String tail(const Kiln::String& error) {
   Kiln::String text(1, endMark);
   text += error.empty() ? Kiln::String(doneText) : "% " + error;
   return text + '\n';
}

// Answers a client that is not served.
void refuse(const Kiln::OwnedFd& connection, const Kiln::String& error) {
   const Kiln::String answer = head() + tail(error);
   // Not repeated: so short an answer fits into a new socket's buffer, and a client that has gone misses nothing.
   [[maybe_unused]] const auto sent = send(connection.fd(), answer.data(), answer.size(), MSG_NOSIGNAL);
}

constexpr Kiln::LogMessage clientsRefused{
     "AGENT_COMMANDS_REFUSED", Kiln::Severity::warning, "Clients on %s are refused: %s.",
     "A client could not be connected, so its command was not run. Counting and publishing go on.",
     "If the process has too many open files, see what holds them in its folder of /proc, and raise its "
     "limit."};

constexpr Kiln::LogMessage clientsTaken{"AGENT_COMMANDS_TAKEN", Kiln::Severity::notice,
                                        "Clients on %s are served again.", "Commands are run as usual.",
                                        "None."};

} // namespace

class CommandChannel::Listener : public Kiln::ActivityManager::Descriptor {
 public:
   Listener(CommandChannel* channel, Kiln::OwnedFd socket)
        : Descriptor(channel->manager_, socket.fd()), channel_(channel), socket_(std::move(socket)),
          pause_(channel->manager_->clock(), this, &Listener::handlePauseEnd) {
      servedMeanwhileIs(true);
      wantsIs(true, false);
   }

   // Not all that wait: whoever connects without end must not keep the loop from its clocks.
   void onReady(bool /*readable*/, bool /*writable*/) override {
      for (unsigned i = 0; i < acceptsPerTurn; ++i) {
         Kiln::OwnedFd accepted = nextConnection();
         if (accepted.isOpen()) {
            troubleIs("");
            channel_->handleConnection(std::move(accepted));
         } else if (errno == EAGAIN) {
            return;
         } else if (errno != EINTR && errno != ECONNABORTED) {
            handleTrouble(std::strerror(errno));
            return;
         }
      }
   }

 private:
   static constexpr double acceptPause = 1.0; // seconds
   static constexpr unsigned acceptsPerTurn = 16;

   Kiln::OwnedFd nextConnection() const {
      return Kiln::OwnedFd(accept4(fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
   }

   static Kiln::OwnedFd spare() { return Kiln::OwnedFd(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

   // Mostly no descriptor is left. The client gets the one that was kept for it, to hear why it is not served.
   void handleTrouble(const Kiln::String& reason) {
      if (reserve_.isOpen()) {
         reserve_ = {};
         // None if nobody waits any more: without a descriptor, accept() looks no further.
         if (const Kiln::OwnedFd refused = nextConnection(); refused.isOpen()) {
            refuse(refused, "the agent has no descriptors left: try again later");
            troubleIs(reason);
         }
      } else {
         // The connection stays pending and the socket readable: without a pause the loop would spin.
         wantsIs(false, false);
         pause_.timeMinIs(Kiln::System::currentTime() + acceptPause);
         troubleIs(reason);
      }
      reserve_ = spare();
   }

   // Why there is no connection; empty if there is one. Said once, and once when it is over.
   void troubleIs(const Kiln::String& trouble) {
      if (!trouble.empty() && !isTroubled_) {
         Kiln::OperatorLog::instance().log(clientsRefused,
                                           std::array<Kiln::String, 2>{channel_->path_, trouble});
      } else if (trouble.empty() && isTroubled_) {
         Kiln::OperatorLog::instance().log(clientsTaken, std::array<Kiln::String, 1>{channel_->path_});
      }
      isTroubled_ = !trouble.empty();
   }

   void handlePauseEnd() { wantsIs(true, false); }

   CommandChannel* channel_;
   Kiln::OwnedFd reserve_ = spare();
   bool isTroubled_ = false; // as the log has it
   Kiln::OwnedFd socket_;
   Kiln::Timer<Listener> pause_;
};

// One connection: takes the line, runs it, and sends the answer.
class CommandChannel::Client : public Kiln::ActivityManager::Descriptor {
 public:
   Client(CommandChannel* channel, Kiln::OwnedFd connection)
        : Descriptor(channel->manager_, connection.fd()), channel_(channel),
          connection_(std::move(connection)),
          timeout_(channel->manager_->clock(), this, &Client::handleTimeout) {
      servedMeanwhileIs(true);
      wantsIs(true, false);
      timeout_.timeMinIs(Kiln::System::currentTime() + channel->limits_.lineTimeout);
   }

   // Bytes of text that the client has yet to take, as far as its command has come.
   std::size_t waitingBytes() const { return !answering_ && spool_ ? spool_->size() : answerSize() - sent_; }

   void onReady(bool /*readable*/, bool /*writable*/) override {
      if (answering_) {
         handleWritable();
      } else {
         handleReadable();
      }
   }

 private:
   enum class Progress { some, none, done, gone };

   void handleReadable();
   void handleWritable();
   void handleTimeout();
   void handleLine();
   void runCommand(std::string_view command);
   void answer(const Kiln::String& error);
   std::size_t answerSize() const { return head_.size() + size_ + tail_.size(); }
   std::string_view nextPiece();
   Progress copyOut();

   CommandChannel* channel_;
   Kiln::OwnedFd connection_;
   Kiln::Timer<Client> timeout_;
   Kiln::String line_;
   bool answering_ = false;
   // The answer is the head, the text and the tail.
   Kiln::String head_ = head();
   std::unique_ptr<CommandSpool> spool_; // none when the command was not run
   std::size_t size_ = 0;                // bytes in the spool
   Kiln::String tail_;
   std::size_t sent_ = 0; // bytes of the answer
};

void CommandChannel::Client::handleReadable() {
   char bytes[commandLineLimit];
   const ssize_t got = recv(fd(), bytes, sizeof bytes, 0);
   if (got < 0) {
      if (errno != EAGAIN && errno != EINTR) {
         channel_->clientDel(this);
      }
      return;
   }
   line_.append(bytes, static_cast<std::size_t>(got));
   const std::size_t end = line_.find('\n');
   if (std::min(end, line_.size()) >= commandLineLimit) {
      answer("the command is longer than " + std::to_string(commandLineLimit - 1) +
             " bytes: expected one line of words");
   } else if (end != Kiln::String::npos) {
      line_.resize(end); // one command per connection: what follows is ignored
      handleLine();
   } else if (got == 0 && line_.empty()) {
      // Not a word: such as another agent that looks whether this one is alive.
      channel_->clientDel(this);
   } else if (got == 0) {
      handleLine(); // a last line without its newline counts
   }
}

void CommandChannel::Client::handleLine() {
   const std::string_view line = line_;
   const std::size_t end = std::min(line.find_first_of(" \t\r"), line.size());
   const std::optional<unsigned> version = protocolVersionOf(line.substr(0, end));
   if (!version) {
      // A client that sends no version would take the agent's for a line of the answer.
      head_.clear();
      answer("this client is older than the agent: upgrade zelctl; by hand, begin the line with '" +
             protocolWord() + "'");
   } else if (*version != protocolVersion) {
      answer("this client is newer than the agent: upgrade zelagent");
   } else {
      runCommand(line.substr(end));
   }
}

void CommandChannel::Client::runCommand(std::string_view command) {
   if (channel_->readers_ && channel_->runner_->changes(command)) {
      answer("this socket is for reading only: as " + userName(geteuid()) + ", use --socket " +
             channel_->readers_->fullSocket);
      return;
   }
   // Asked before the command runs, so that a refused command has done nothing.
   if (channel_->waitingBytes() > channel_->limits_.waitingBytes) {
      answer("too much output waits for clients that read slowly: try again later");
      return;
   }
   try {
      spool_ = std::make_unique<CommandSpool>(channel_->limits_.answerBytes);
   } catch (const std::exception& error) {
      answer(error.what());
      return;
   }
   wantsIs(false, false); // not served in its own middle
   const CommandResult result = channel_->runner_->run(command, *spool_, peerOf(fd()));
   size_ = spool_->size();
   answer(result.error);
}

void CommandChannel::Client::answer(const Kiln::String& error) {
   answering_ = true;
   tail_ = tail(error);
   wantsIs(false, true);
   timeout_.timeMinIs(Kiln::System::currentTime() + channel_->limits_.readerTimeout);
}

void CommandChannel::Client::handleWritable() {
   Progress progress = Progress::none;
   // SDK threads get in meanwhile, but know of no client: only this thread adds and deletes them, so this one stays.
   Kiln::ActivityLockAnchor::yieldWhile([&] {
      progress = copyOut();
      if (progress == Progress::done || progress == Progress::gone) {
         spool_.reset(); // to free a long one takes long
      }
   });
   if (progress == Progress::done || progress == Progress::gone) {
      channel_->clientDel(this);
   } else if (progress == Progress::some) {
      timeout_.timeMinIs(Kiln::System::currentTime() + channel_->limits_.readerTimeout);
   }
}

// Bytes of the answer from sent_ on.
std::string_view CommandChannel::Client::nextPiece() {
   if (sent_ < head_.size()) {
      return std::string_view(head_).substr(sent_);
   }
   const std::size_t offset = sent_ - head_.size();
   if (offset < size_) {
      return {channel_->piece_.data(),
              spool_->read(offset, channel_->piece_.data(), std::min(pieceSize, size_ - offset))};
   }
   return std::string_view(tail_).substr(offset - size_);
}

// One piece per turn, so that a fast reader of a long answer does not keep the loop from its clocks.
CommandChannel::Client::Progress CommandChannel::Client::copyOut() {
   const std::string_view piece = nextPiece();
   // MSG_NOSIGNAL: a client that went away is an error of its own connection, not a signal that ends the agent.
   const ssize_t taken = send(fd(), piece.data(), piece.size(), MSG_NOSIGNAL);
   if (taken < 0) {
      return errno == EAGAIN || errno == EINTR ? Progress::none : Progress::gone;
   }
   sent_ += static_cast<std::size_t>(taken);
   return sent_ == answerSize() ? Progress::done : Progress::some;
}

void CommandChannel::Client::handleTimeout() {
   if (answering_) {
      KILN_RINGLOG("command channel: dropped a client that took nothing for "
                   << channel_->limits_.readerTimeout << " seconds");
      channel_->clientDel(this);
   } else {
      answer("no command came: expected one line");
   }
}

CommandChannel::CommandChannel(const Kiln::Ptr<Kiln::ActivityManager>& manager,
                               Kiln::Ptr<const CommandRunner> runner, Kiln::String path,
                               const CommandChannelLimits& limits, std::optional<CommandReaders> readers)
     : manager_(manager), runner_(std::move(runner)), path_(std::move(path)), readers_(std::move(readers)),
       limits_(limits) {
   listener_ = std::make_unique<Listener>(
        this, listenOn(path_, readers_ ? std::optional(readers_->group) : std::nullopt));
   inode_ = inodeOf(path_);
}

CommandChannel::~CommandChannel() {
   // If the file was removed meanwhile, another agent may be listening there by now.
   if (inodeOf(path_) == inode_) {
      unlink(path_.c_str());
   }
}

void CommandChannel::handleConnection(Kiln::OwnedFd connection) {
   if (clients_.size() < limits_.clients) {
      clients_.push_back(std::make_unique<Client>(this, std::move(connection)));
      return;
   }
   refuse(connection, "too many clients at once: try again later");
}

// Mostly called by the client itself, which must not touch itself afterwards.
void CommandChannel::clientDel(const Client* client) {
   std::erase_if(clients_, [client](const auto& one) { return one.get() == client; });
}

std::size_t CommandChannel::waitingBytes() const {
   std::size_t all = 0;
   for (const auto& client : clients_) {
      all += client->waitingBytes();
   }
   return all;
}

} // namespace Agent
