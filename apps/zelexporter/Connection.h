// One client.
#pragma once

#include "apps/zelexporter/Answer.h"
#include "apps/zelexporter/RequestHead.h"
#include "kiln/OwnedFd.h"

#include <chrono>
#include <optional>

namespace ZelExporter {

// Reads a request, sends its answer, and so on, without ever waiting. What it keeps is bounded: a head, and an answer.
// While it sends, it does not read.
class Connection {
 public:
   using Clock = std::chrono::steady_clock;

   Connection(Kiln::OwnedFd socket, Clock::time_point now);

   int fd() const { return socket_.fd(); }
   // What the connection waits for, as poll() has it.
   short events() const;
   bool isSending() const { return phase_ == Phase::sending; }
   bool isOver() const { return phase_ == Phase::over; }
   Clock::time_point since() const { return since_; } // when its present phase began
   Clock::time_point deadline() const;                // then it is closed
   // Of the answer, what only this connection keeps.
   std::size_t heldBytes() const { return isSending() ? piece_.size() : 0; }
   const PackedText* text() const { return answer_.text.get(); }

   void receive(Clock::time_point now);
   // Whether a request waits for its answer: a whole head, or one that is too long.
   bool hasRequest() const { return phase_ == Phase::reading && (headLength_ != 0 || isTooLong()); }
   std::size_t answered() const { return answered_; } // requests
   // Takes the request out. `head` is valid until the connection's next use.
   struct Request {
      std::string_view head;
      Refusal refusal;
   };
   Request takeRequest();
   void answerIs(Answer answer, Clock::time_point now);
   void send(Clock::time_point now);
   void close() { phase_ = Phase::over; }

 private:
   enum class Phase : U8 { reading, sending, closing, over };

   bool isTooLong() const { return received_.size() >= longestHead; }
   void findHead(std::size_t searched);
   bool nextPiece();
   void answerIsSent(Clock::time_point now);

   Kiln::OwnedFd socket_;
   Phase phase_ = Phase::reading;
   Clock::time_point since_;
   Clock::time_point progress_{}; // of sending
   std::size_t answered_ = 0;
   Kiln::String received_;
   std::size_t headLength_ = 0; // of its first request; 0 if that is not complete
   std::size_t taken_ = 0;      // of it, the request that is being answered
   Answer answer_;
   std::optional<Unpacker> unpacker_;
   Kiln::String piece_; // what is sent now: of the answer, or unpacked
   std::string_view unsent_;
};

} // namespace ZelExporter
