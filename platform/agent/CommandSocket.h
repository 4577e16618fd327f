// What the agent and its client agree on: where the command socket is, and how requests and answers begin and end.
//
// A connection carries one command. The client sends one line, which begins with the word "zel/2", the protocol and its
// version. The agent sends a line "zel/2", text, a NUL byte, and one more line: "done", or for a refused command "% ",
// what is wrong and what is expected. Text never holds a NUL, so an answer is complete if and only if the line after one
// is; and a person with a plain socket tool can read all of it.
#pragma once

#include "kiln/Types.h"

#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>
#include <vector>

namespace Agent {

// Its own versions apart, "zel/" and a number is all that later versions have to keep. The first version sent no such
// word.
constexpr std::string_view protocolPrefix = "zel/";
constexpr unsigned protocolVersion = 2;
Kiln::String protocolWord(); // "zel/2"
// The version that the word names, of this protocol or a later one; nothing if it names none.
std::optional<unsigned> protocolVersionOf(std::string_view word);

constexpr char endMark = '\0';
constexpr std::string_view doneText = "done";
constexpr std::size_t commandLineLimit = 4096; // bytes, newline included
constexpr std::size_t answerFrameLimit =
     64U << 10U; // bytes of an answer besides its text, of which an error has most

// $ZEL_SOCKET; else zelagent/socket below $XDG_RUNTIME_DIR, below /run for root, else
// /tmp/zelagent-UID/socket.
Kiln::String defaultSocketPath();

// Where a client looks for an agent, in this order: only $ZEL_SOCKET if it is set; else the default socket, the
// service's, and the one on which the service's readers ask.
std::vector<Kiln::String> clientSocketPaths();

// "root", or "user 1000" if it has no name; "group adm" or "group 1000". One thread at a time.
Kiln::String userName(uid_t user);
Kiln::String groupName(gid_t group);

// Creates the default socket's folder, for its user only, and returns its path; empty if it was there, or if
// $ZEL_SOCKET names another. Throws std::runtime_error if another user owns the folder or may write to it: that user
// could listen there.
Kiln::String prepareDefaultSocketFolder();

struct SocketAddress {
   // Throws std::runtime_error if the path is empty or too long for a socket.
   explicit SocketAddress(const Kiln::String& path);

   const sockaddr* any() const { return reinterpret_cast<const sockaddr*>(&address); }
   socklen_t length() const { return sizeof address; }

   sockaddr_un address{};
};

} // namespace Agent
