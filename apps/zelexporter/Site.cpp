// Routes by the HTTP library, which gets whole heads and gives whole answers; it never sees a socket.
#include "apps/zelexporter/Site.h"

#include "apps/zelexporter/Accept.h"
#include "apps/zelexporter/AgentSigns.h"
#include "apps/zelexporter/MetricsTexts.h"
#include "apps/zelexporter/Server.h"
#include "apps/zelexporter/page/Page.h"
#include "kiln/LogOutput.h"
#include "kiln/Utf8.h"
#include "silo/Errors.h"
#include "vex/PublishedRecords.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <strings.h>

namespace ZelExporter {

namespace {

using httplib::Request;
using httplib::Response;

constexpr const char* plainText = "text/plain; charset=utf-8";
// Of one answer that is made in memory. Texts of metrics are not: see PackedText.
constexpr std::size_t longestAnswer = 8388608;

// A head to read, and memory to write an answer to.
class Exchange : public httplib::Stream {
 public:
   Exchange(std::string_view head, Kiln::String* answer) : head_(head), answer_(answer) {}

   bool is_readable() const override { return !head_.empty(); }
   bool is_writable() const override { return answer_->size() < longestAnswer; }
   ssize_t read(char* to, std::size_t size) override {
      const std::size_t n = head_.copy(to, size);
      head_.remove_prefix(n);
      return static_cast<ssize_t>(n);
   }
   ssize_t write(const char* from, std::size_t size) override {
      if (size > longestAnswer - answer_->size()) {
         return -1;
      }
      answer_->append(from, size);
      return static_cast<ssize_t>(size);
   }
   void get_remote_ip_and_port(std::string& ip, int& port) const override { nobody(ip, port); }
   void get_local_ip_and_port(std::string& ip, int& port) const override { nobody(ip, port); }
   socket_t socket() const override { return 0; } // only compared with what select() can take

 private:
   static void nobody(std::string& ip, int& port) {
      ip.clear();
      port = 0;
   }

   std::string_view head_;
   Kiln::String* answer_;
};

// The library's server without its sockets and threads.
class Routes : public httplib::Server {
 public:
   using httplib::Server::process_request;
};

// All values of the header, as one list.
Kiln::String listOf(const Request& request, const char* name) {
   Kiln::String list;
   const auto [begin, end] = request.headers.equal_range(name);
   for (auto one = begin; one != end; ++one) {
      list += (list.empty() ? "" : ",") + one->second;
   }
   return list;
}

// The page of a site elsewhere can make a browser ask here under that site's name, and would then read the answer. No
// such name is an IP address, or localhost.
bool isNameOfHere(const Kiln::String& host) {
   in6_addr address{};
   const bool isBracketed = host.starts_with('[');
   const std::size_t end = isBracketed ? host.find(']') : host.find(':');
   if (isBracketed) {
      const bool isWhole = end != Kiln::String::npos && (end + 1 == host.size() || host[end + 1] == ':');
      return isWhole && inet_pton(AF_INET6, host.substr(1, end - 1).c_str(), &address) == 1;
   }
   const Kiln::String name = host.substr(0, end);
   return strcasecmp(name.c_str(), "localhost") == 0 || inet_pton(AF_INET, name.c_str(), &address) == 1;
}

Answer failed(std::string_view head, const Kiln::String& reason) {
   Kiln::LogOutput::standardError().write("% a request failed: " + Kiln::printable(reason) + "\n");
   return refused(head, {500, "Internal Server Error", "this request failed: the exporter's log says why"});
}

} // namespace

// The tables of one place, and all that reads them.
class Site::Tables {
 public:
   Tables(Silo::Store store, const Kiln::String& problem, const Options& options)
        : store_(std::move(store)), problem_(problem), texts_(store_, options.collectors) {
      routes_.set_keep_alive_max_count(Server::mostRequests);
      routes_.set_keep_alive_timeout(Server::idlePatience.count());
      routes_.set_default_headers({{"X-Content-Type-Options", "nosniff"}, {"Accept-Ranges", "none"}});
      routes_.set_error_handler([this](const Request&, Response& a) { explainError(a); });
      // The library would tell the client what the exception says.
      routes_.set_exception_handler([](const Request&, Response&, std::exception_ptr thrown) {
         std::rethrow_exception(std::move(thrown));
      });
      if (options.listen.isLoopback()) {
         routes_.set_pre_routing_handler(checkHost);
      }
      routes_.Get("/metrics", [this](const Request& q, Response& a) { giveMetrics(q, a); });
      routes_.Get("/healthz", [this](const Request&, Response& a) { giveHealth(a); });
      addPage(routes_, store_, problem_,
              [this](const Request& q, Response& a, std::shared_ptr<const PackedText> text,
                     const char* contentType) { give(q, a, std::move(text), contentType); });
   }

   Kiln::String place() const { return store_.describe(Silo::Interface::TableName::intfCounters); }
   const Kiln::String& problem() const { return problem_; }

   Answer answer(std::string_view head, bool isLast) {
      answer_ = {};
      isUnderstood_ = true;
      const Kiln::String obeyed = obeyedHead(head);
      Exchange exchange(obeyed, &answer_.bytes);
      bool isClosing = false;
      const bool isAnswered = routes_.process_request(exchange, isLast, isClosing, [](Request& request) {
         // The library prefers another way of packing, which takes many times as long.
         const bool isPacked = takesGzip(listOf(request, "Accept-Encoding"));
         request.headers.erase("Accept-Encoding");
         if (isPacked) {
            request.headers.emplace("Accept-Encoding", "gzip");
         }
      });
      if (!isAnswered) {
         return failed(head, "its answer is too long");
      }
      if (!isUnderstood_) { // nor is it known what the bytes after it are
         return refused(head, {400, "Bad Request", "this request cannot be understood"});
      }
      answer_.closes = isLast || isClosing;
      if (head.starts_with("HEAD ")) {
         answer_.text.reset();
         // The library does not know the method of a request line that it cannot read, and gives a body.
         constexpr std::string_view headEnd = "\r\n\r\n";
         answer_.bytes.resize(answer_.bytes.find(headEnd) + headEnd.size());
      }
      return std::move(answer_);
   }

 private:
   static Routes::HandlerResponse checkHost(const Request& request, Response& response) {
      if (!request.has_header("Host") || isNameOfHere(request.get_header_value("Host"))) {
         return Routes::HandlerResponse::Unhandled;
      }
      constexpr int misdirected = 421;
      response.status = misdirected;
      response.set_content("this exporter is asked as localhost or by its IP address: it listens for this "
                           "machine only\n",
                           plainText);
      return Routes::HandlerResponse::Handled;
   }

   // What the library answers by itself has no text.
   void explainError(Response& response) {
      constexpr int notFound = 404;
      if (response.status == notFound && response.body.empty()) {
         response.set_content("not found: /metrics, /healthz and / are here\n", plainText);
      }
      isUnderstood_ = !response.body.empty();
   }

   // The text itself does not pass through the library, which would copy it for each reader.
   void give(const Request& request, Response& response, std::shared_ptr<const PackedText> text,
             const char* contentType) {
      answer_.isUnpacked = !request.has_header("Accept-Encoding");
      response.set_header("Content-Type", contentType);
      if (!answer_.isUnpacked) {
         response.set_header("Content-Encoding", "gzip");
      }
      response.set_header("Content-Length",
                          std::to_string(answer_.isUnpacked ? text->unpackedSize : text->packed.size()));
      answer_.text = std::move(text);
   }

   void giveMetrics(const Request& request, Response& response) {
      const auto format = formatFor(listOf(request, "Accept"));
      response.set_header("Cache-Control", "no-store");
      response.set_header("Vary", "Accept, Accept-Encoding");
      give(request, response, texts_.text(format), ZelMetrics::contentType(format));
   }

   void giveHealth(Response& response) const {
      constexpr int unavailable = 503;
      const Kiln::String problem = problem_.empty() ? agentProblem(store_) : problem_;
      response.set_header("Cache-Control", "no-store");
      if (!problem.empty()) {
         response.status = unavailable;
      }
      response.set_content(problem.empty() ? "ok\n" : Kiln::printable(problem) + "\n", plainText);
   }

   const Silo::Store store_;
   const Kiln::String problem_; // why there is no such place; empty if there is
   MetricsTexts texts_;
   Routes routes_;
   Answer answer_;            // to the present request
   bool isUnderstood_ = true; // by the library
};

Site::Site(const Options& options) : options_(options) {}
Site::~Site() = default;

void Site::choose() {
   namespace Published = Silo::Interface;
   // A folder that is not there yet is as good as one without tables.
   Silo::Store store = Silo::Store::temporary();
   Kiln::String problem;
   try {
      store = options_.siloFolder.empty()
                   ? Silo::Store::sharedMemoryOfUserOrRoot(Published::defaultTablePrefix,
                                                           Published::TableName::intfCounters)
                   : Silo::Store::directory(options_.siloFolder);
   } catch (const Silo::TableError& error) {
      problem = error.what();
   }
   if (!tables_ || tables_->problem() != problem ||
       tables_->place() != store.describe(Published::TableName::intfCounters)) {
      tables_.reset(); // before the next are mapped
      tables_ = std::make_unique<Tables>(std::move(store), problem, options_);
   }
}

Answer Site::answer(std::string_view head, bool isLast) {
   try {
      choose();
      return tables_->answer(head, isLast);
   } catch (const std::exception& error) {
      return failed(head, error.what());
   }
}

Answer refused(std::string_view head, const Refusal& refusal) {
   constexpr unsigned wrongMethod = 405;
   const Kiln::String text = Kiln::String(refusal.explanation) + "\n";
   Answer answer;
   answer.bytes = "HTTP/1.1 " + std::to_string(refusal.status) + " " + refusal.reason +
                  "\r\nConnection: close\r\nContent-Type: " + plainText +
                  "\r\nX-Content-Type-Options: nosniff\r\n" +
                  (refusal.status == wrongMethod ? "Allow: GET, HEAD\r\n" : "") +
                  "Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" +
                  (head.starts_with("HEAD ") ? "" : text);
   answer.closes = true;
   return answer;
}

} // namespace ZelExporter
