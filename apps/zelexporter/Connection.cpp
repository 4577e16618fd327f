// The phases of a connection, with the patience that each has.
#include "apps/zelexporter/Connection.h"

#include "apps/zelexporter/Server.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace ZelExporter {

namespace {

constexpr std::chrono::seconds headPatience{5};      // from the first byte of a request to its last
constexpr std::chrono::seconds progressPatience{10}; // for a reader that takes nothing
constexpr std::chrono::seconds answerPatience{60};   // for one that takes an answer slowly
constexpr std::chrono::seconds closePatience{1};     // for the reader's end of a connection that was closed

bool mayComeLater(int error) {
   return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace

Connection::Connection(Kiln::OwnedFd socket, Clock::time_point now)
     : socket_(std::move(socket)), since_(now) {}

short Connection::events() const {
   // With requests sent ahead, nothing is read before the next of them is answered.
   return isSending() ? POLLOUT : hasRequest() ? 0 : POLLIN;
}

Connection::Clock::time_point Connection::deadline() const {
   switch (phase_) {
   case Phase::sending:
      return std::min(since_ + answerPatience, progress_ + progressPatience);
   case Phase::closing:
      return since_ + closePatience;
   default:
      return since_ + (received_.empty() ? std::chrono::seconds(Server::idlePatience) : headPatience);
   }
}

void Connection::receive(Clock::time_point now) {
   std::array<char, 4096> bytes; // NOLINT: filled below
   const ssize_t n = recv(fd(), bytes.data(), bytes.size(), 0);
   if (n < 0 && mayComeLater(errno)) {
      return;
   }
   if (n <= 0) {
      phase_ = Phase::over;
   } else if (phase_ == Phase::reading) {
      since_ = received_.empty() ? now : since_;
      const std::size_t searched = received_.size();
      received_.append(bytes.data(), static_cast<std::size_t>(n));
      findHead(searched);
   }
}

// Once for what has come: a head of which each byte comes alone would otherwise be looked through for each of them.
void Connection::findHead(std::size_t searched) {
   headLength_ = headLength(received_, searched);
}

Connection::Request Connection::takeRequest() {
   taken_ = headLength_ != 0 ? headLength_ : received_.size();
   const std::string_view head = std::string_view(received_).substr(0, taken_);
   return {head, refusalOf(head, headLength_ != 0)};
}

void Connection::answerIs(Answer answer, Clock::time_point now) {
   received_.erase(0, taken_);
   findHead(0);
   if (received_.empty()) {
      received_.shrink_to_fit(); // it may be idle for long
   }
   ++answered_;
   answer_ = std::move(answer);
   piece_ = std::move(answer_.bytes);
   unsent_ = piece_;
   phase_ = Phase::sending;
   since_ = progress_ = now;
}

// False at the end of the answer.
bool Connection::nextPiece() {
   if (!answer_.text) {
      return false;
   }
   if (answer_.isUnpacked) {
      if (!unpacker_) {
         unpacker_.emplace(answer_.text);
      }
      if (unpacker_->next(&piece_)) {
         unsent_ = piece_;
         return true;
      }
      return false;
   }
   const std::string_view packed = answer_.text->packed;
   if (unsent_.data() == packed.data() + packed.size()) {
      return false;
   }
   piece_ = {};
   unsent_ = packed;
   return true;
}

void Connection::send(Clock::time_point now) {
   do {
      while (!unsent_.empty()) {
         const ssize_t n = ::send(fd(), unsent_.data(), unsent_.size(), MSG_NOSIGNAL);
         if (n < 0) {
            phase_ = mayComeLater(errno) ? phase_ : Phase::over;
            return;
         }
         unsent_.remove_prefix(static_cast<std::size_t>(n));
         progress_ = now;
      }
   } while (nextPiece());
   answerIsSent(now);
}

void Connection::answerIsSent(Clock::time_point now) {
   phase_ = Phase::reading;
   since_ = now;
   if (answer_.closes) {
      // What is still on its way here would otherwise make the system take the answer back.
      shutdown(fd(), SHUT_WR);
      phase_ = Phase::closing;
   }
   answer_ = {};
   unpacker_.reset();
   piece_ = {};
   unsent_ = {};
}

} // namespace ZelExporter
