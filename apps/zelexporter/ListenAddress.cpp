// Reads an address, and listens there.
#include "apps/zelexporter/ListenAddress.h"

#include "kiln/Choices.h"
#include "kiln/Numbers.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <stdexcept>

namespace ZelExporter {

namespace {

// Of an answer that its reader does not take, the kernel keeps twice this.
constexpr int sendBuffer = 65536;
// A request is no longer than some kilobytes.
constexpr int receiveBuffer = 16384;
constexpr int backlog = 512;

[[noreturn]] void refuse(const Kiln::String& text) {
   throw std::invalid_argument("--listen " + Kiln::quoted(text) +
                               ": expected an IP address and a port, as 127.0.0.1:9469, [::1]:9469 or "
                               "0.0.0.0:9469, or a port alone");
}

const char* remedyFor(int error) {
   switch (error) {
   case EADDRINUSE:
      return ": end the program that listens there, or choose another port with --listen ADDRESS:PORT";
   case EADDRNOTAVAIL:
      return ": choose an address of this machine with --listen ADDRESS:PORT";
   case EACCES:
      return ": choose a port from 1024 upward with --listen ADDRESS:PORT";
   default:
      return "";
   }
}

} // namespace

ListenAddress::ListenAddress(const Kiln::String& text) : text_(text) {
   const std::size_t colon = text.rfind(':');
   const Kiln::String port = colon == Kiln::String::npos ? text : text.substr(colon + 1);
   Kiln::String host = colon == Kiln::String::npos ? "127.0.0.1" : text.substr(0, colon);
   const bool isBracketed = host.starts_with('[') && host.ends_with(']');
   if (isBracketed) {
      host = host.substr(1, host.size() - 2);
   }
   // Without brackets nobody can tell the last part of an IPv6 address from a port.
   if (host.empty() || !Kiln::parseNumber<U16>(port) ||
       isBracketed != (host.find(':') != Kiln::String::npos)) {
      refuse(text);
   }
   addrinfo hints{};
   hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
   hints.ai_socktype = SOCK_STREAM;
   addrinfo* found = nullptr;
   if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
      refuse(text);
   }
   const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found, freeaddrinfo);
   std::memcpy(&storage_, found->ai_addr, found->ai_addrlen);
   length_ = found->ai_addrlen;
}

bool ListenAddress::isLoopback() const {
   constexpr U32 loopbackNet = 127;
   if (storage_.ss_family == AF_INET6) {
      const in6_addr& address = reinterpret_cast<const sockaddr_in6*>(&storage_)->sin6_addr;
      constexpr std::size_t firstOfIpv4 = 12;
      return IN6_IS_ADDR_LOOPBACK(&address) != 0 ||
             (IN6_IS_ADDR_V4MAPPED(&address) != 0 && address.s6_addr[firstOfIpv4] == loopbackNet);
   }
   return ntohl(reinterpret_cast<const sockaddr_in*>(&storage_)->sin_addr.s_addr) >> 24 == loopbackNet;
}

Kiln::OwnedFd ListenAddress::listen() const {
   Kiln::OwnedFd made(socket(storage_.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
   // A restart need not wait until the last connections are forgotten.
   const int on = 1;
   setsockopt(made.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
   setsockopt(made.fd(), SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
   setsockopt(made.fd(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
   if (!made.isOpen() || bind(made.fd(), reinterpret_cast<const sockaddr*>(&storage_), length_) != 0 ||
       ::listen(made.fd(), backlog) != 0) {
      const int error = errno;
      throw std::runtime_error("cannot listen on " + text_ + ": " + std::strerror(error) + remedyFor(error));
   }
   return made;
}

Kiln::String placeOf(const Kiln::OwnedFd& listener) {
   sockaddr_storage bound{};
   socklen_t length = sizeof bound;
   char host[NI_MAXHOST] = "";
   char port[NI_MAXSERV] = "";
   getsockname(listener.fd(), reinterpret_cast<sockaddr*>(&bound), &length);
   getnameinfo(reinterpret_cast<const sockaddr*>(&bound), length, host, sizeof host, port, sizeof port,
               NI_NUMERICHOST | NI_NUMERICSERV);
   const Kiln::String name = host;
   return (bound.ss_family == AF_INET6 ? "[" + name + "]" : name) + ":" + port;
}

} // namespace ZelExporter
