// Looks at lines of a head only as far as its bounds and its framing go; the rest is the library's.
#include "apps/zelexporter/RequestHead.h"

#include <algorithm>
#include <strings.h>

namespace ZelExporter {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view scheme = "http://";
constexpr const char* badRequest = "Bad Request";

// Takes the first line, with its end, off the text.
std::string_view takeLine(std::string_view* text) {
   const std::size_t end = text->find(lineEnd);
   const std::string_view line =
        text->substr(0, end == std::string_view::npos ? text->size() : end + lineEnd.size());
   text->remove_prefix(line.size());
   return line;
}

// Half a line end ends a line for some, and not for others; so does a zero end a text.
bool hasOddByte(std::string_view line) {
   constexpr std::string_view odd("\r\n\0", 3);
   return line.substr(0, line.size() - lineEnd.size()).find_first_of(odd) != std::string_view::npos;
}

bool isSame(std::string_view a, std::string_view b) {
   return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// A line of a head: "name: value".
class Field {
 public:
   explicit Field(std::string_view line)
        : name_(line.substr(0, line.find(':'))), value_(line.substr(name_.size())) {}

   // Not one that begins with a blank, or has one before its colon: some would join it to the line before it, or take
   // the blank off.
   bool hasName() const {
      constexpr std::string_view token = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                         "!#$%&'*+-.^_`|~";
      return !name_.empty() && !value_.empty() && name_.find_first_not_of(token) == std::string_view::npos;
   }
   bool isNamed(std::string_view name) const { return isSame(name_, name); }
   // Of a field that has a name.
   std::string_view value() const {
      constexpr std::string_view blanks = " \t\r\n";
      const std::size_t begin = std::min(value_.find_first_not_of(blanks, 1), value_.size());
      return value_.substr(begin, std::max(value_.find_last_not_of(blanks) + 1, begin) - begin);
   }

 private:
   std::string_view name_;
   std::string_view value_; // from the colon on
};

bool announcesBody(const Field& field) {
   const std::string_view value = field.value();
   return field.isNamed("Transfer-Encoding") ||
          (field.isNamed("Content-Length") &&
           (value.empty() || value.find_first_not_of('0') != std::string_view::npos));
}

// Of the lines after the first one, up to the empty one.
Refusal refusalOfFields(std::string_view lines, bool needsHost) {
   std::size_t hosts = 0;
   bool isHostEmpty = false;
   while (lines != lineEnd) {
      const Field field(takeLine(&lines));
      if (!field.hasName()) {
         return {400, badRequest, "each header is a line of its own: its name, a colon, its value"};
      }
      if (announcesBody(field)) {
         return {413, "Content Too Large", "a request has no body here"};
      }
      if (field.isNamed("Host")) {
         ++hosts;
         isHostEmpty = field.value().empty();
      }
   }
   if (hosts > 1 || (needsHost && (hosts == 0 || isHostEmpty))) {
      return {400, badRequest, "a request names one host"};
   }
   return {};
}

// The host that stands in the target of the request line; empty if there is none.
std::string_view hostInTarget(std::string_view requestLine) {
   const std::size_t target = requestLine.find(' ') + 1;
   if (!isSame(requestLine.substr(target, scheme.size()), scheme)) {
      return {};
   }
   const std::string_view rest = requestLine.substr(target + scheme.size());
   return rest.substr(0, rest.find_first_of("/?# "));
}

} // namespace

std::size_t headLength(std::string_view text, std::size_t searched) {
   constexpr std::string_view headEnd = "\r\n\r\n";
   const std::size_t begin = std::max(searched, headEnd.size()) - headEnd.size(); // it may have been cut
   const std::size_t end = text.substr(0, longestHead).find(headEnd, begin);
   return end == std::string_view::npos ? 0 : end + headEnd.size();
}

Refusal refusalOf(std::string_view text, bool isComplete) {
   const std::string_view head = text;
   const std::string_view requestLine = takeLine(&text);
   if (requestLine.size() > longestRequestLine) {
      return {414, "URI Too Long", "the request line is too long"};
   }
   if (!isComplete) {
      return {431, "Request Header Fields Too Large", "the head of the request is too long"};
   }
   if (!requestLine.starts_with("GET ") && !requestLine.starts_with("HEAD ")) {
      return {405, "Method Not Allowed", "only GET and HEAD: nothing can be changed here"};
   }
   for (std::string_view rest = head; !rest.empty();) {
      if (hasOddByte(takeLine(&rest))) {
         return {400, badRequest, "each line ends with a carriage return and a line feed, and has no zeros"};
      }
   }
   return refusalOfFields(text, requestLine.ends_with(" HTTP/1.1\r\n"));
}

Kiln::String obeyedHead(std::string_view head) {
   const std::string_view requestLine = takeLine(&head);
   const std::string_view host = hostInTarget(requestLine);
   Kiln::String kept(requestLine);
   if (!host.empty()) {
      const std::size_t target = requestLine.find(' ') + 1;
      const std::string_view path = requestLine.substr(target + scheme.size() + host.size());
      kept = requestLine.substr(0, target);
      kept += path.starts_with('/') ? "" : "/";
      kept += path;
      kept += "Host: ";
      kept += host;
      kept += lineEnd;
   }
   while (!head.empty()) {
      const std::string_view line = takeLine(&head);
      const Field field(line);
      if (!field.isNamed("Range") && (host.empty() || !field.isNamed("Host"))) {
         kept += line;
      }
   }
   return kept;
}

} // namespace ZelExporter
