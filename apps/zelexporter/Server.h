// Connections: who may have one, and for how long.
#pragma once

#include "apps/zelexporter/Connection.h"
#include "apps/zelexporter/Site.h"

#include <list>

namespace ZelExporter {

// Serves all clients on one thread, which never waits for any of them. A request is answered at once when it is
// complete; so the slow ones take a place, and nothing else. When places or descriptors get scarce, one loses his who
// has kept it for longest without a complete request, or, once three quarters are theirs, of those whose answers wait
// to be read. So a quarter of the places is always for requests, and a client that sends its own at once gets its
// answer, unless as many others connect before it does.
class Server {
 public:
   static constexpr std::chrono::seconds idlePatience{
        120}; // between two requests; collectors mostly come each minute
   static constexpr std::size_t mostRequests = 1000; // of a connection
   static constexpr std::size_t mostConnections = 256;
   static constexpr std::size_t mostHeldBytes =
        16777216; // of answers that wait for their readers, each text once

   // The site must outlive the server.
   Server(Kiln::OwnedFd listener, Site& site);

   // Until the descriptor becomes readable.
   void runUntil(int endFd);

 private:
   using Clock = Connection::Clock;

   int pollTimeout(Clock::time_point now) const;
   void serve(Connection& client, short events);
   void answer(Connection& client);
   void boundAnswers();
   void accept();
   bool evict(std::size_t newOnes);

   Kiln::OwnedFd listener_;
   Site* site_;
   std::size_t places_;            // mostConnections, or as many as the process may have descriptors for
   std::list<Connection> clients_; // as they came
   Clock::time_point acceptsFrom_{};
};

} // namespace ZelExporter
