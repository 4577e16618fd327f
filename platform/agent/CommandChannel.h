// The agent's command channel: a Unix stream socket served by the activity loop. How a connection runs is in
// agent/CommandSocket.h.
//
// A command writes to a spool in memory, so it never waits for its reader; the channel copies the spool out as
// fast as the client takes it, in pieces, without the activity lock. Clients that stall are dropped. All of it
// is bounded: clients, bytes a line, bytes an answer, bytes that wait in all.
#pragma once

#include "agent/CommandRunner.h"
#include "agent/CommandSpool.h"
#include "kiln/ActivityManager.h"

#include <array>
#include <memory>
#include <sys/types.h>

namespace Agent {

struct CommandChannelLimits {
   std::size_t clients = 16;
   std::size_t answerBytes = CommandSpool::sizeLimit;  // text of one answer
   std::size_t waitingBytes = CommandSpool::sizeLimit; // beyond it no further command is run
   double lineTimeout = 10.0;                          // seconds for a client to send its line
   double readerTimeout = 60.0;                        // seconds for a client to take another byte
};

class CommandChannel : public Kiln::PtrInterface {
 public:
   // Listens on the socket, which only its user may open. The file of an agent that died is replaced; a live
   // agent's, or a file that is no socket, is a std::runtime_error that says what to do. Activity thread, as
   // everything here.
   CommandChannel(const Kiln::Ptr<Kiln::ActivityManager>& manager, Kiln::Ptr<const CommandRunner> runner,
                  Kiln::String path, const CommandChannelLimits& limits = {});
   // Closes every connection and removes the socket's file, unless another has taken its place.
   ~CommandChannel() override;

   std::size_t clientCount() const { return clients_.size(); }

 private:
   class Listener;
   class Client;

   static constexpr std::size_t pieceSize = std::size_t{64} * 1024; // bytes copied out at once

   void handleConnection(Kiln::OwnedFd connection);
   void clientDel(const Client* client);
   std::size_t waitingBytes() const;

   Kiln::Ptr<Kiln::ActivityManager> manager_;
   Kiln::Ptr<const CommandRunner> runner_;
   Kiln::String path_;
   ino_t inode_ = 0; // of the socket's file
   CommandChannelLimits limits_;
   std::array<char, pieceSize> piece_;
   std::unique_ptr<Listener> listener_;
   std::vector<std::unique_ptr<Client>> clients_;
};

} // namespace Agent
