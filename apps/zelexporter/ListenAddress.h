// Where the exporter listens.
#pragma once

#include "kiln/OwnedFd.h"
#include "kiln/Types.h"

#include <sys/socket.h>

namespace ZelExporter {

// An IP address and a port. A value.
class ListenAddress {
 public:
   static constexpr const char* byDefault = "127.0.0.1:9469";

   // "127.0.0.1:9469", "[::1]:9469", or a port alone, which is one of 127.0.0.1. Throws std::invalid_argument, saying
   // what was expected.
   explicit ListenAddress(const Kiln::String& text);

   // A socket that listens there, without blocking; its connections inherit small buffers. Throws std::runtime_error,
   // saying what to do.
   Kiln::OwnedFd listen() const;
   // Whether only this machine can reach it.
   bool isLoopback() const;

 private:
   sockaddr_storage storage_{};
   socklen_t length_ = 0;
   Kiln::String text_;
};

// What a URL has of the place where the socket listens: "127.0.0.1:9469", with the port that the system chose for 0.
Kiln::String placeOf(const Kiln::OwnedFd& listener);

} // namespace ZelExporter
