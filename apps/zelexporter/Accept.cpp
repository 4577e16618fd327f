// Reads lists of choices with qualities (RFC 9110, 12.4.2 and 12.5).
#include "apps/zelexporter/Accept.h"

#include "kiln/Numbers.h"

#include <algorithm>
#include <strings.h>

namespace ZelExporter {

namespace {

std::string_view trimmed(std::string_view text) {
   constexpr std::string_view blanks = " \t";
   const std::size_t begin = text.find_first_not_of(blanks);
   if (begin == std::string_view::npos) {
      return {};
   }
   return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

bool isSame(std::string_view a, std::string_view b) {
   return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Takes what is before the separator off the list.
std::string_view takePart(std::string_view* list, char separator) {
   const std::size_t end = std::min(list->find(separator), list->size());
   const std::string_view part = list->substr(0, end);
   list->remove_prefix(std::min(end + 1, list->size()));
   return trimmed(part);
}

struct Choice {
   std::string_view name;
   std::string_view version; // empty if none is named
   double quality = 1;       // 0 refuses; also that of a quality that is none
};

Choice choiceOf(std::string_view item) {
   Choice choice;
   choice.name = takePart(&item, ';');
   while (!item.empty()) {
      std::string_view value = takePart(&item, ';');
      const std::string_view name = takePart(&value, '=');
      if (isSame(name, "q")) {
         choice.quality = Kiln::parseDecimal(value, 1).value_or(0);
      } else if (isSame(name, "version")) {
         if (value.size() > 1 && value.starts_with('"') && value.ends_with('"')) {
            value = value.substr(1, value.size() - 2);
         }
         choice.version = value;
      }
   }
   return choice;
}

// The quality of the first of the names that the list has, the most exact one first; `none` if it has none of them.
double qualityOf(std::string_view list, std::initializer_list<std::string_view> names,
                 std::string_view version, double none) {
   for (const std::string_view name : names) {
      double best = -1;
      for (std::string_view rest = list; !rest.empty();) {
         const Choice choice = choiceOf(takePart(&rest, ','));
         if (isSame(choice.name, name) && (choice.version.empty() || choice.version == version)) {
            best = std::max(best, choice.quality);
         }
      }
      if (best >= 0) {
         return best;
      }
   }
   return none;
}

} // namespace

ZelMetrics::Format formatFor(std::string_view accept) {
   const double openMetrics = qualityOf(accept, {"application/openmetrics-text"}, "1.0.0", 0);
   const double text = qualityOf(accept, {"text/plain", "text/*", "*/*"}, "0.0.4", 0);
   return openMetrics > 0 && openMetrics >= text ? ZelMetrics::Format::openMetrics
                                                 : ZelMetrics::Format::prometheusText;
}

bool takesGzip(std::string_view acceptEncoding) {
   return qualityOf(acceptEncoding, {"gzip", "x-gzip", "*"}, "", 0) > 0;
}

} // namespace ZelExporter
