// The agent's command channel: a Unix stream socket served by the activity loop. agent/CommandSocket.h describes a
// connection.
//
// A command writes to a spool in memory, so it never waits for its reader. The channel copies the spool to the client
// in pieces, as fast as the client takes them and without the activity lock. When a long command gives way, other clients
// of any channel are served in its middle, so a short command does not wait for it. Clients that stall are dropped.
// Everything has a bound: clients, bytes per line, bytes per answer, bytes waiting in all, and commands within others.
#pragma once

#include "agent/CommandRunner.h"
#include "agent/CommandSpool.h"
#include "kiln/ActivityManager.h"

#include <array>
#include <memory>
#include <optional>
#include <sys/types.h>

namespace Agent {

struct CommandChannelLimits {
   std::size_t clients = 16;
   std::size_t answerBytes = CommandSpool::sizeLimit;  // text of one answer
   std::size_t waitingBytes = CommandSpool::sizeLimit; // of all answers; beyond it no further command is run
   double lineTimeout = 10.0;                          // seconds for a client to send its line
   double readerTimeout = 60.0;                        // seconds for a client to take another byte
};

// Makes a channel one for readers: its socket is open to a group, and takes commands only that change nothing.
struct CommandReaders {
   gid_t group;
   Kiln::String fullSocket; // where the other commands go, for the refusal
};

class CommandChannel : public Kiln::PtrInterface {
 public:
   // Listens on the socket, which only its user may open, and the readers if there are any. Replaces the socket of an
   // agent that died. Throws std::runtime_error, saying what to do, for a living agent's socket, for a file that is not
   // a socket, and for a group that the user may not give the socket to. Activity thread, as everything here.
   CommandChannel(const Kiln::Ptr<Kiln::ActivityManager>& manager, Kiln::Ptr<const CommandRunner> runner,
                  Kiln::String path, const CommandChannelLimits& limits = {},
                  std::optional<CommandReaders> readers = {});
   // Closes every connection and removes the socket's file, unless another file has taken its place.
   ~CommandChannel() override;

   std::size_t clientCount() const { return clients_.size(); }

 private:
   class Listener;
   class Client;

   static constexpr std::size_t pieceSize = std::size_t{64} * 1024; // bytes copied at once

   void handleConnection(Kiln::OwnedFd connection);
   void clientDel(const Client* client);
   std::size_t waitingBytes() const;

   Kiln::Ptr<Kiln::ActivityManager> manager_;
   Kiln::Ptr<const CommandRunner> runner_;
   Kiln::String path_;
   std::optional<CommandReaders> readers_;
   ino_t inode_ = 0; // of the socket's file, to tell it from a successor's
   CommandChannelLimits limits_;
   std::array<char, pieceSize> piece_; // one for all clients: each is served to the end of its turn
   std::unique_ptr<Listener> listener_;
   std::vector<std::unique_ptr<Client>> clients_;
};

} // namespace Agent
