// The command channel's listener and its clients.
#include "agent/CommandChannel.h"

#include "agent/CommandSocket.h"
#include "agent/ListeningSocket.h"
#include "kiln/ActivityLock.h"
#include "kiln/RingLog.h"
#include "kiln/Timer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace Agent {

namespace {

// 0 when there is no such file.
ino_t inodeOf(const Kiln::String& path) {
   struct stat status {};
   return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// What a refused command's answer ends with.
Kiln::String errorTail(const Kiln::String& error) {
   return Kiln::String(1, errorMark) + "% " + error + "\n";
}

} // namespace

class CommandChannel::Listener : public Kiln::ActivityManager::Descriptor {
 public:
   Listener(CommandChannel* channel, Kiln::OwnedFd socket)
        : Descriptor(channel->manager_, socket.fd()), channel_(channel), socket_(std::move(socket)),
          pause_(channel->manager_->clock(), this, &Listener::handlePauseEnd) {
      wantsIs(true, false);
   }

   void onReady(bool /*readable*/, bool /*writable*/) override {
      for (;;) {
         Kiln::OwnedFd accepted(accept4(fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
         if (accepted.isOpen()) {
            channel_->handleConnection(std::move(accepted));
         } else if (errno == EAGAIN) {
            return;
         } else if (errno != EINTR && errno != ECONNABORTED) {
            // Out of descriptors. The connection stays pending and the socket readable: without a pause the loop would
            // spin.
            KILN_RINGLOG("command channel: cannot accept: " << std::strerror(errno));
            wantsIs(false, false);
            pause_.timeMinIs(Kiln::System::currentTime() + acceptPause);
            return;
         }
      }
   }

 private:
   static constexpr double acceptPause = 1.0; // seconds

   void handlePauseEnd() { wantsIs(true, false); }

   CommandChannel* channel_;
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
      wantsIs(true, false);
      timeout_.timeMinIs(Kiln::System::currentTime() + channel->limits_.lineTimeout);
   }

   // Bytes of text that the client has yet to take.
   std::size_t waitingBytes() const { return size_ - sent_; }

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
   void runCommand();
   void answer(const Kiln::String& error);
   Progress copyOut();

   CommandChannel* channel_;
   Kiln::OwnedFd connection_;
   Kiln::Timer<Client> timeout_;
   Kiln::String line_;
   bool answering_ = false;
   std::unique_ptr<CommandSpool> spool_; // none when the command was not run
   std::size_t size_ = 0;                // bytes in the spool
   std::size_t sent_ = 0;                // of them, bytes sent
   Kiln::String tail_;                   // the unsent rest of the error
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
      runCommand();
   } else if (got == 0 && line_.empty()) {
      // Not a word: such as another agent that looks whether this one is alive.
      channel_->clientDel(this);
   } else if (got == 0) {
      runCommand(); // a last line without its newline counts
   }
}

void CommandChannel::Client::runCommand() {
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
   const CommandResult result = channel_->runner_->run(line_, *spool_);
   size_ = spool_->size();
   answer(result.error);
}

void CommandChannel::Client::answer(const Kiln::String& error) {
   answering_ = true;
   tail_ = error.empty() ? "" : errorTail(error);
   wantsIs(false, true);
   timeout_.timeMinIs(Kiln::System::currentTime() + channel_->limits_.readerTimeout);
}

void CommandChannel::Client::handleWritable() {
   Progress progress = Progress::none;
   // SDK threads get in meanwhile, but know of no client: only this thread adds and deletes them, so this one stays.
   Kiln::ActivityLockAnchor::yieldWhile([&] { progress = copyOut(); });
   if (progress == Progress::done || progress == Progress::gone) {
      channel_->clientDel(this);
   } else if (progress == Progress::some) {
      timeout_.timeMinIs(Kiln::System::currentTime() + channel_->limits_.readerTimeout);
   }
}

// One piece per turn, so that a fast reader of a long answer does not keep the loop from its clocks.
CommandChannel::Client::Progress CommandChannel::Client::copyOut() {
   if (sent_ == size_ && tail_.empty()) {
      return Progress::done;
   }
   const char* from = tail_.data();
   std::size_t length = tail_.size();
   if (sent_ < size_) {
      from = channel_->piece_.data();
      length = spool_->read(sent_, channel_->piece_.data(), std::min(pieceSize, size_ - sent_));
   }
   // MSG_NOSIGNAL: a client that went away is an error of its own connection, not a signal that ends the agent.
   const ssize_t taken = send(fd(), from, length, MSG_NOSIGNAL);
   if (taken < 0) {
      return errno == EAGAIN || errno == EINTR ? Progress::none : Progress::gone;
   }
   if (sent_ < size_) {
      sent_ += static_cast<std::size_t>(taken);
   } else {
      tail_.erase(0, static_cast<std::size_t>(taken));
   }
   return sent_ == size_ && tail_.empty() ? Progress::done : Progress::some;
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
                               const CommandChannelLimits& limits)
     : manager_(manager), runner_(std::move(runner)), path_(std::move(path)), limits_(limits) {
   listener_ = std::make_unique<Listener>(this, listenOn(path_));
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
   const Kiln::String answer = errorTail("too many clients at once: try again later");
   // Not repeated: so short an answer fits into a new socket's buffer, and a client that has gone misses nothing.
   [[maybe_unused]] const auto sent = send(connection.fd(), answer.data(), answer.size(), MSG_NOSIGNAL);
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
