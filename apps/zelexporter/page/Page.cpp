// Serves the page's files, which are part of the program, and its data.
#include "apps/zelexporter/page/Page.h"

#include "apps/zelctl/views/TimeSpan.h"
#include "apps/zelexporter/page/PageData.h"
#include "apps/zelexporter/page/PageFiles.h"

#include <algorithm>
#include <cmath>
#include <httplib.h>
#include <initializer_list>
#include <regex>

namespace ZelExporter {

namespace {

using httplib::Request;
using httplib::Response;
using Kiln::String;

constexpr int badRequest = 400;
constexpr int notFound = 404;
constexpr int notModified = 304;
constexpr double leastSpan = 10; // seconds of a history
constexpr double longestSpan = 86'400;
constexpr const char* defaultSpan = "15m";

// A browser loads nothing from elsewhere, runs nothing but the page's own script, and puts the page into no other one.
void addHeaders(Response& response) {
   response.set_header("Content-Security-Policy",
                       "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
                       "img-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
   response.set_header("Referrer-Policy", "no-referrer");
   response.set_header("Cross-Origin-Resource-Policy", "same-origin");
   response.set_header("Cache-Control", "no-cache"); // ask each time whether it is another one
   response.set_header("Vary", "Accept-Encoding");
}

void refuse(Response& response, int status, const String& why) {
   response.status = status;
   response.set_content(why + "\n", "text/plain; charset=utf-8");
}

// Whether the browser has the text with this tag already, and was told so.
bool isKnown(const Request& request, Response& response, std::string_view tag) {
   String quoted = "\"";
   quoted += tag;
   quoted += '"';
   response.set_header("ETag", quoted);
   if (request.get_header_value("If-None-Match").find(quoted) == String::npos) {
      return false;
   }
   response.status = notModified;
   return true;
}

void answer(const Request& request, Response& response, const Document& document, const GiveText& give) {
   constexpr double milliseconds = 1000;
   if (!document.text) {
      refuse(response, notFound, "no such interface");
      return;
   }
   for (const auto& [name, seconds] : {std::pair("Zel-Next-Reading-Ms", document.untilNext),
                                       std::pair("Zel-Reading-Age-Ms", document.age)}) {
      response.set_header(name, std::to_string(std::llround(seconds * milliseconds)));
   }
   if (!isKnown(request, response, document.tag)) {
      give(request, response, document.text, "application/json");
   }
}

// The parameters of a request, all of which must be expected. Throws std::invalid_argument, saying what was expected.
class Parameters {
 public:
   Parameters(const Request& request, std::initializer_list<const char*> expected) : request_(request) {
      for (const auto& [name, value] : request.params) {
         if (std::ranges::find(expected, name) == expected.end()) {
            throw std::invalid_argument("unexpected parameter" + (expected.size() == 0
                                                                       ? ": expected none"
                                                                       : ": expected " + listed(expected)));
         }
         if (request.params.count(name) > 1) {
            throw std::invalid_argument("parameter " + name + " is there twice");
         }
      }
   }

   String interface() const {
      String name = request_.get_param_value("interface");
      if (name.empty() || name.size() > Silo::Key::maxLength) {
         throw std::invalid_argument("interface: expected a name of 1 to " +
                                     std::to_string(Silo::Key::maxLength) + " bytes");
      }
      return name;
   }

   // Seconds.
   double last() const {
      constexpr std::size_t longestText = 32;
      const String text = request_.has_param("last") ? request_.get_param_value("last") : defaultSpan;
      const auto seconds = text.size() <= longestText ? ZelCtl::parseDuration(text) : std::nullopt;
      if (!seconds || *seconds < leastSpan || *seconds > longestSpan) {
         throw std::invalid_argument("last: expected 10s to 1d, such as 90s, 15m or 1h30m");
      }
      return *seconds;
   }

 private:
   static String listed(std::initializer_list<const char*> names) {
      String text;
      for (const char* const name : names) {
         text += (text.empty() ? "" : " and ") + String(name);
      }
      return text;
   }

   const Request& request_;
};

// Serves what `make` makes of a request.
template <class Make>
void addDocument(httplib::Server& server, const char* path, const GiveText& give, Make make) {
   server.Get(path, [make, give](const Request& request, Response& response) {
      addHeaders(response);
      try {
         answer(request, response, make(request), give);
      } catch (const std::invalid_argument& error) {
         refuse(response, badRequest, error.what());
      }
   });
}

} // namespace

void addPage(httplib::Server& server, const Silo::Store& store, const String& problem, const GiveText& give) {
   for (const PageFile& file : pageFiles()) {
      const auto text = ZelExporter::packed(file.text);
      const String pattern = std::regex_replace(String(file.path), std::regex("[.]"), "[.]");
      server.Get(pattern, [&file, text, give](const Request& request, Response& response) {
         addHeaders(response);
         if (!isKnown(request, response, file.tag)) {
            give(request, response, text, file.contentType.data());
         }
      });
   }
   const auto data = std::make_shared<PageData>(store, problem);
   addDocument(server, "/api/ports", give,
               [data](const Request& request) { return Parameters(request, {}), data->ports(); });
   addDocument(server, "/api/drops", give,
               [data](const Request& request) { return Parameters(request, {}), data->drops(); });
   addDocument(server, "/api/events", give,
               [data](const Request& request) { return Parameters(request, {}), data->events(); });
   addDocument(server, "/api/port", give, [data](const Request& request) {
      return data->port(Parameters(request, {"interface"}).interface());
   });
   addDocument(server, "/api/history", give, [data](const Request& request) {
      const Parameters parameters(request, {"interface", "last"});
      return data->history(parameters.interface(), parameters.last());
   });
}

} // namespace ZelExporter
