// Reads the words of the command, and prints a scrape.
#include "apps/zelctl/views/MetricsView.h"

#include "apps/metrics/Exposition.h"
#include "kiln/Choices.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

const Words keywords{"openmetrics", "collect", "no-collect"};

bool takesList(const String& word) {
   return word != "openmetrics";
}

// The keyword that the word abbreviates.
String keywordNamed(const String& word) {
   const Words meant = Kiln::wordsMeant(word, keywords);
   if (meant.size() != 1) {
      throw std::runtime_error("unknown word " + Kiln::quoted(word) + ": " +
                               Kiln::meantOrExpected(word, keywords, Kiln::choices(keywords)));
   }
   return meant.front();
}

} // namespace

String viewMetrics(const Words& words, const Silo::Store& store) {
   ZelMetrics::Collectors collectors;
   auto format = ZelMetrics::Format::prometheusText;
   Words taken;
   std::optional<String> left; // out
   for (std::size_t i = 1; i < words.size(); ++i) {
      const String word = keywordNamed(words[i]);
      if (std::ranges::find(taken, word) != taken.end()) {
         throw std::runtime_error(Kiln::quoted(word) + " twice: once is enough");
      }
      taken.push_back(word);
      if (!takesList(word)) {
         format = ZelMetrics::Format::openMetrics;
         continue;
      }
      const String list = i + 1 < words.size() ? words[++i] : "";
      if (word == "collect") {
         collectors.are(list);
      } else {
         left = list;
      }
   }
   // In whatever order they were typed.
   if (left) {
      collectors.remove(*left);
   }
   String text;
   ZelMetrics::Exposition(store, collectors).scrape(format, &text);
   return text;
}

Words metricsCandidates(const Words& words, const String& begun) {
   Words candidates;
   if (words.size() > 1 && takesList(words.back()) &&
       std::ranges::find(keywords, words.back()) != keywords.end()) {
      // The next of a list.
      const String before = begun.substr(0, begun.rfind(',') + 1);
      for (const std::string_view name : ZelMetrics::collectorNames) {
         if (("," + before).find("," + String(name) + ",") == String::npos) {
            candidates.push_back(before + String(name));
         }
      }
      return candidates;
   }
   std::ranges::copy_if(keywords, std::back_inserter(candidates),
                        [&](const String& word) { return std::ranges::find(words, word) == words.end(); });
   return candidates;
}

} // namespace ZelCtl
