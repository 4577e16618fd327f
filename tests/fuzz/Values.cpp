// Texts of values, as people type them: whatever is accepted is in its bounds and prints back to itself, and what is
// refused is refused with a text.
#include "agent/CommandRunner.h"
#include "apps/metrics/Collectors.h"
#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/TimeWords.h"
#include "apps/zelexporter/Accept.h"
#include "apps/zelexporter/ListenAddress.h"
#include "kiln/Name.h"
#include "kiln/Numbers.h"
#include "tests/fuzz/Fuzz.h"
#include "zel/VlanId.h"

#include <algorithm>

using Kiln::String;
using ZelFuzz::isTaken;
using ZelFuzz::must;

namespace {

// The one that the number has without zeros in front.
String plain(String digits, std::size_t from) {
   const std::size_t first = std::min(digits.find_first_not_of('0', from), digits.size() - 1);
   return digits.erase(from, first - from);
}

void tryNumbers(const String& text) {
   if (const auto number = Kiln::parseNumber<U64>(text)) {
      must(std::to_string(*number) == plain(text, 0), "a number prints back");
      must(Kiln::parseValue(text) == number, "a number is a value");
      const bool isVlan = isTaken<std::range_error>(
           [&] { Bridging::VlanId(static_cast<U32>(std::min<U64>(*number, 1U << 31))); });
      must(isVlan == (*number >= Bridging::VlanId::min && *number <= Bridging::VlanId::max),
           "a VLAN is in its bounds");
   }
   if (const auto number = Kiln::parseNumber<S64>(text); number && *number != 0) {
      must(std::to_string(*number) == plain(text, *number < 0 ? 1 : 0), "a signed number prints back");
   }
   must(Kiln::parseNumber<U8>(text).has_value() == Kiln::parseNumber<U64>(text, 0, 255).has_value(),
        "a bound of the type is a bound");
   if (const auto value = Kiln::parseValue(text)) {
      must(Kiln::parseValue(std::to_string(*value)) == value, "a value prints back");
   }
   constexpr double most = 1e6;
   if (const auto decimal = Kiln::parseDecimal(text, most)) {
      must(*decimal >= 0 && *decimal <= most, "a decimal is in its bounds");
   }
}

void tryTimes(const String& text) {
   constexpr double now = 1e6 + 0.5;
   ZelCtl::TableClock clock;
   clock.now = now;
   clock.isSimulated = true;
   constexpr double longest = 4e9 * 3600; // of each unit as many as a day has seconds
   if (const auto duration = ZelCtl::parseDuration(text)) {
      must(*duration > 0 && *duration < longest, "a duration is finite and above 0");
   }
   constexpr double year10000 = 253402300800; // whose second 60 of the year before is no date any more
   if (const auto time = ZelCtl::parseTime(text, clock); time && *time < year10000) {
      must(ZelCtl::parseTime(clock.dateAndTimeText(*time), clock) == time, "a time prints back");
   }
   std::vector<String> words = Agent::splitWords(text);
   isTaken<std::runtime_error>([&] {
      ZelCtl::AskedSpan span;
      for (std::size_t at = 0; at < words.size(); ++at) {
         span.take(words[at], words, &at, clock);
         must(at < words.size(), "a span's words are those of the line");
      }
      span.finish(clock);
      must(!span.from || (*span.from <= clock.now && (!span.to || *span.from <= *span.to)),
           "a span does not end before it begins");
      must(!span.to || *span.to <= clock.now, "a span has passed");
   });
}

void tryLists(const String& text) {
   isTaken<std::invalid_argument>([&] { ZelExporter::ListenAddress(text).isLoopback(); });
   ZelMetrics::Collectors chosen;
   if (isTaken<std::invalid_argument>([&] { chosen.are(text); })) {
      ZelMetrics::Collectors rest;
      rest.remove(text);
      for (std::size_t i = 0; i < ZelMetrics::collectorNames.size(); ++i) {
         const auto one = static_cast<ZelMetrics::Collector>(i);
         must(chosen.has(one) != rest.has(one), "what is named is chosen, or else left");
         must(!chosen.has(one) || text.find(ZelMetrics::collectorNames[i]) != String::npos,
              "what is chosen is named");
      }
   }
   ZelExporter::formatFor(text);
   must(!ZelExporter::takesGzip(text) || text.find_first_of("gG*") != String::npos, "gzip is named");
}

void tryTexts(const String& text) {
   const String line = Kiln::printable(text);
   must(Kiln::printable(line) == line, "printable text is printable");
   must(line.find('\n') == String::npos, "printable text is one line");
   constexpr std::size_t width = 11;
   must(ZelCtl::columnsIn(ZelCtl::cutTo(line, width)) <= width, "what is cut fits");
   must(ZelCtl::cutTo(line, ZelCtl::columnsIn(line)) == line, "what fits is not cut");
   for (const String& each : ZelCtl::wrapped(line, width)) {
      must(ZelCtl::columnsIn(each) <= width || each.find(' ', each.find_first_not_of(' ')) == String::npos,
           "only long words are longer");
   }
   const std::vector<String> words = Agent::splitWords(text);
   if (words.size() > 2) {
      const auto sign = [&](std::size_t a, std::size_t b) {
         const int order = Kiln::naturalCompare(words[a], words[b]);
         return (order > 0) - (order < 0);
      };
      must(sign(0, 1) == -sign(1, 0) && (sign(0, 1) == 0) == (words[0] == words[1]), "an order is one way");
      must(sign(0, 1) > 0 || sign(1, 2) > 0 || sign(0, 2) <= 0, "an order is transitive");
   }
}

} // namespace

int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   const String text(ZelFuzz::textOf(data, size));
   if (text.find('\0') != String::npos) { // no argument or line has one
      return 0;
   }
   tryNumbers(text);
   tryTimes(text);
   tryLists(text);
   tryTexts(text);
   return 0;
}
