// What the agent and its client agree on: where the command socket is, and how an answer ends.
//
// A connection carries one command: one line in, text out, end of file. The answer to a refused command ends with a NUL
// byte, "% ", what is wrong and what is expected, and a newline. Text never holds a NUL, so the client can tell the two
// apart, and a person with a plain socket tool still reads the line.
#pragma once

#include "kiln/Types.h"

#include <sys/socket.h>
#include <sys/un.h>

namespace Agent {

constexpr char errorMark = '\0';
constexpr std::size_t commandLineLimit = 4096; // bytes, newline included

// $ZEL_SOCKET; else zelagent/socket below $XDG_RUNTIME_DIR, below /run for root, else
// /tmp/zelagent-UID/socket.
Kiln::String defaultSocketPath();

// Creates the default socket's folder, for its user only; the folder of $ZEL_SOCKET is its user's business. Throws
// std::runtime_error if another user owns the folder or may write to it: that user could listen there.
void prepareDefaultSocketFolder();

struct SocketAddress {
   // Throws std::runtime_error if the path is empty or too long for a socket.
   explicit SocketAddress(const Kiln::String& path);

   const sockaddr* any() const { return reinterpret_cast<const sockaddr*>(&address); }
   socklen_t length() const { return sizeof address; }

   sockaddr_un address{};
};

} // namespace Agent
