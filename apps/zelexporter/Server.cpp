// The loop over all connections.
#include "apps/zelexporter/Server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <set>
#include <sys/resource.h>
#include <sys/socket.h>
#include <vector>

namespace ZelExporter {

namespace {

// Places are in quarters. Those who read their answers slowly may keep three of them; the last is for those whose
// request comes, and more are not accepted at once: all get their turn before their place may be taken from them.
constexpr std::size_t quarters = 4;
constexpr std::chrono::milliseconds acceptPause{100}; // while the system has no descriptor for one more

// For the tables of all kinds, while they are read and while they are looked for.
constexpr rlim_t otherDescriptors = 64;

std::size_t descriptorsForClients() {
   rlimit limit{};
   if (getrlimit(RLIMIT_NOFILE, &limit) != 0 ||
       limit.rlim_cur >= otherDescriptors + Server::mostConnections) {
      return Server::mostConnections;
   }
   return std::max<rlim_t>(limit.rlim_cur, otherDescriptors + 1) - otherDescriptors;
}

} // namespace

Server::Server(Kiln::OwnedFd listener, Site& site)
     : listener_(std::move(listener)), site_(&site), places_(descriptorsForClients()) {}

int Server::pollTimeout(Clock::time_point now) const {
   auto until = now + std::chrono::hours(1);
   for (const Connection& client : clients_) {
      until = std::min(until, client.hasRequest() ? now : client.deadline());
   }
   if (acceptsFrom_ > now) {
      until = std::min(until, acceptsFrom_);
   }
   // Rounded up: it would otherwise be too early by less than a millisecond, again and again.
   const auto wait = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
   return static_cast<int>(std::max<decltype(wait)>(wait, 0));
}

void Server::runUntil(int endFd) {
   std::vector<pollfd> polled;
   while (true) {
      const auto before = Clock::now();
      polled.assign({{endFd, POLLIN, 0}, {before < acceptsFrom_ ? -1 : listener_.fd(), POLLIN, 0}});
      for (const Connection& client : clients_) {
         polled.push_back({client.fd(), client.events(), 0});
      }
      poll(polled.data(), polled.size(), pollTimeout(before));
      if (polled[0].revents != 0) {
         return;
      }
      std::size_t i = 2;
      for (Connection& client : clients_) {
         serve(client, polled[i++].revents);
      }
      boundAnswers();
      clients_.remove_if([](const Connection& client) { return client.isOver(); });
      if (polled[1].revents != 0) {
         accept();
      }
   }
}

void Server::serve(Connection& client, short events) {
   const auto now = Clock::now();
   if (events != 0 && client.isSending()) {
      client.send(now);
   } else if (events != 0 && !client.hasRequest()) {
      client.receive(now);
   }
   // One at a time: the others get their turn before the next.
   if (client.hasRequest()) {
      answer(client);
   }
   if (now >= client.deadline()) {
      client.close();
   }
}

void Server::answer(Connection& client) {
   const Connection::Request request = client.takeRequest();
   client.answerIs(request.refusal.status != 0
                        ? refused(request.head, request.refusal)
                        : site_->answer(request.head, client.answered() + 1 >= mostRequests),
                   Clock::now());
   client.send(Clock::now());
}

// Takes answers back that wait for their readers, the oldest first, until what is left is within bounds.
void Server::boundAnswers() {
   std::size_t held = 0;
   std::set<const PackedText*> texts;
   std::vector<Connection*> sending;
   for (Connection& client : clients_) {
      if (client.isSending()) {
         sending.push_back(&client);
      }
   }
   std::ranges::sort(sending, std::greater{}, &Connection::since);
   for (Connection* const client : sending) { // the newest first: they stay
      held += client->heldBytes();
      const PackedText* const text = client->text();
      if (text != nullptr && texts.insert(text).second) {
         held += text->packed.size();
      }
      if (held > mostHeldBytes) {
         client->close();
      }
   }
}

void Server::accept() {
   std::size_t newOnes = 0; // at the end of the list
   for (std::size_t n = 0; n < std::max<std::size_t>(places_ / quarters, 1); ++n) {
      Kiln::OwnedFd made(accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (!made.isOpen()) {
         const bool isShort = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
         if (!isShort) {
            return; // nobody else is there, or somebody has left again
         }
         if (!evict(newOnes)) {
            acceptsFrom_ = Clock::now() + acceptPause;
            return;
         }
         continue;
      }
      if (clients_.size() >= places_) {
         evict(newOnes);
      }
      const int on = 1;
      setsockopt(made.fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      clients_.emplace_back(std::move(made), Clock::now());
      // Its request mostly came with it, and is then answered before anybody else can take its place.
      serve(clients_.back(), POLLIN);
      if (clients_.back().isOver()) {
         clients_.pop_back();
      } else {
         ++newOnes;
      }
   }
}

// Takes a place from one who is none of the newest; false if there is nobody else.
bool Server::evict(std::size_t newOnes) {
   const auto sending = static_cast<std::size_t>(std::ranges::count_if(clients_, &Connection::isSending));
   const bool readersFirst = sending > places_ - std::max<std::size_t>(places_ / quarters, 1);
   const auto end = std::prev(clients_.end(), static_cast<std::ptrdiff_t>(newOnes));
   const auto one = std::min_element(clients_.begin(), end, [=](const Connection& a, const Connection& b) {
      return std::pair(a.isSending() != readersFirst, a.since()) <
             std::pair(b.isSending() != readersFirst, b.since());
   });
   if (one == end) {
      return false;
   }
   clients_.erase(one);
   return true;
}

} // namespace ZelExporter
