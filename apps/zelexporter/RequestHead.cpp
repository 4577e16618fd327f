// Looks at lines of a head only as far as its bounds and its framing go; the rest is the library's.
#include "apps/zelexporter/RequestHead.h"

#include <strings.h>

namespace ZelExporter {

namespace {

constexpr std::string_view lineEnd = "\r\n";

// A line feed on its own ends a line for some, and not for others: they would see different requests.
bool hasStrayEnd(std::string_view text) {
   for (std::size_t at = text.find('\n'); at != text.npos; at = text.find('\n', at + 1)) {
      if (at == 0 || text[at - 1] != '\r') {
         return true;
      }
   }
   return false;
}

// Takes the first line, with its end, off the text.
std::string_view takeLine(std::string_view* text) {
   const std::size_t end = text->find(lineEnd);
   const std::string_view line =
        text->substr(0, end == std::string_view::npos ? text->size() : end + lineEnd.size());
   text->remove_prefix(line.size());
   return line;
}

bool isNamed(std::string_view line, std::string_view name) {
   return line.size() > name.size() && line[name.size()] == ':' &&
          strncasecmp(line.data(), name.data(), name.size()) == 0;
}

bool announcesBody(std::string_view line) {
   if (isNamed(line, "Transfer-Encoding")) {
      return true;
   }
   constexpr std::string_view length = "Content-Length";
   return isNamed(line, length) && line.find_first_not_of(" \t0\r\n", length.size() + 1) != line.npos;
}

} // namespace

std::size_t headLength(std::string_view text) {
   constexpr std::string_view headEnd = "\r\n\r\n";
   const std::size_t end = text.substr(0, longestHead).find(headEnd);
   return end == std::string_view::npos ? 0 : end + headEnd.size();
}

Refusal refusalOf(std::string_view text, bool isComplete) {
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
   if (hasStrayEnd(requestLine) || hasStrayEnd(text)) {
      return {400, "Bad Request", "each line ends with a carriage return and a line feed"};
   }
   while (!text.empty()) {
      if (announcesBody(takeLine(&text))) {
         return {413, "Content Too Large", "a request has no body here"};
      }
   }
   return {};
}

Kiln::String withoutRanges(std::string_view head) {
   Kiln::String kept;
   while (!head.empty()) {
      const std::string_view line = takeLine(&head);
      if (!isNamed(line, "Range")) {
         kept += line;
      }
   }
   return kept;
}

} // namespace ZelExporter
