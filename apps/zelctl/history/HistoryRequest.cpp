// Tells interfaces, counters, times and keywords apart.
#include "apps/zelctl/history/HistoryRequest.h"

#include "apps/zelctl/views/RecordRequest.h"
#include "kiln/Choices.h"
#include "kiln/Name.h"
#include "kiln/NameChoice.h"
#include "vex/PublishedRecords.h"
#include "vex/RecordText.h"

#include <algorithm>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Silo::Interface::IntfHistory;
using Silo::Interface::IntfQueueHistory;
using Words = std::vector<String>;

const Words keywords{"last", "from", "to", "totals", "json", "csv"};

bool isIn(const Words& words, const String& word) {
   return std::ranges::find(words, word) != words.end();
}

void addNew(Words* all, const Words& more) {
   std::ranges::copy_if(more, std::back_inserter(*all), [&](const String& one) { return !isIn(*all, one); });
}

bool isQueueWord(const String& word) {
   return word.starts_with("queue");
}

class Parser {
 public:
   Parser(const Words& words, PastTables& past, const TableClock& clock)
        : words_(words), past_(past), clock_(clock) {}

   HistoryRequest parse() {
      const Words& known = past_.ports().interfaces();
      for (at_ = 1; at_ < words_.size(); ++at_) {
         const String& word = words_[at_];
         if (isInterfaceWord(word, known)) {
            nameIs(known, operandOf(word, "an interface", expectedNames(known)));
         } else if (isIn(known, word) || !(takesKeyword(word) || takesCounter(word))) {
            nameIs(known, word);
         }
      }
      finish(known);
      return request_;
   }

 private:
   static String expectedNames(const Words& known) {
      return known.empty() ? "none, as none has a history" : Kiln::nameRanges(known);
   }

   const String& operandOf(const String& word, const char* what, const String& expected) {
      if (++at_ == words_.size()) {
         throw std::runtime_error(word + " needs " + what + ": expected " + expected);
      }
      return words_[at_];
   }

   bool takesKeyword(const String& word) {
      const Words meant = Kiln::wordsMeant(word, keywords);
      // "to" is a whole word, and the beginning of another.
      const String keyword = meant.size() == 1 ? meant.front() : "";
      if (request_.span.take(keyword, words_, &at_, clock_)) {
         return true;
      }
      if (keyword == "totals") {
         refuseAgain(request_.values == HistorySeries::Values::counts, keyword);
         request_.values = HistorySeries::Values::counts;
      } else if (keyword == "json" || keyword == "csv") {
         refuseAgain(isFormat(keyword), keyword);
         if (request_.format != HistoryRequest::Format::plot) {
            throw std::runtime_error("json and csv are two formats: leave out one of them");
         }
         request_.format = keyword == "json" ? HistoryRequest::Format::json : HistoryRequest::Format::csv;
      }
      return !keyword.empty();
   }

   bool isFormat(const String& keyword) const {
      return request_.format ==
             (keyword == "json" ? HistoryRequest::Format::json : HistoryRequest::Format::csv);
   }

   bool takesCounter(const String& word) {
      if (isQueueWord(word)) {
         queueWords_.push_back(word); // which queues there are is known when the interfaces are
         return true;
      }
      const Words meant = Kiln::wordsMeant(word, past_.portCounters());
      if (meant.size() > 1) {
         throw std::runtime_error(Kiln::quoted(word) + " is ambiguous: expected " + Kiln::choices(meant));
      }
      addNew(&request_.counters, meant);
      return !meant.empty();
   }

   static bool isPublished(const String& word) {
      const auto counters = Vex::textOf(Silo::Interface::IntfCounters()).counters;
      return std::ranges::find(counters, word, &Vex::NamedCounter::name) != counters.end();
   }

   void nameIs(const Words& known, const String& word) {
      const Kiln::NameChoice choice = Kiln::chooseNames(word, known);
      if (!choice.error.empty()) {
         Words counters = past_.portCounters();
         if (isPublished(word)) {
            throw std::runtime_error(word +
                                     " has no history: these have one: " + Kiln::joined(counters, ", ") +
                                     ", queue.N.drops; 'interfaces INTF' shows all as they are now");
         }
         Words all = keywords;
         addNew(&all, counters);
         const String near = Kiln::nearest(word, all);
         counters.emplace_back("queue.N.drops");
         throw std::runtime_error(
              near.empty() ? choice.error + (choice.error.ends_with('?')
                                                  ? ""
                                                  : "; counters are " + Kiln::joined(counters, ", ") +
                                                         "; keywords are " + Kiln::joined(keywords, ", "))
                           : "unexpected " + Kiln::quoted(word) + ": did you mean " + near + "?");
      }
      addNew(&request_.intfs, choice.names);
   }

   void addQueues() {
      const Words known = past_.queueCounters(request_.intfs);
      for (const String& word : queueWords_) {
         Words meant;
         // "queue.3" is all of that queue, "queue" all of all.
         std::ranges::copy_if(known, std::back_inserter(meant),
                              [&](const String& one) { return one == word || one.starts_with(word + "."); });
         if (meant.empty()) {
            meant = Kiln::wordsMeant(word, known);
            meant.resize(meant.size() == 1 ? 1 : 0);
         }
         if (meant.empty()) {
            throw std::runtime_error("no counter " + Kiln::quoted(word) + ": " + expectedQueues(known));
         }
         addNew(&request_.counters, meant);
      }
   }

   static String expectedQueues(const Words& known) {
      if (known.empty()) {
         return "no queue of these interfaces has a history";
      }
      const std::size_t count = known.size() / IntfQueueHistory::fieldNames.size();
      return "expected queue.N, queue.N.packets, queue.N.bytes or queue.N.drops, with N from 0 to " +
             std::to_string(count - 1);
   }

   void finish(const Words& known) {
      if (request_.intfs.empty()) {
         throw std::runtime_error("history needs an interface: expected " + expectedNames(known));
      }
      std::ranges::sort(request_.intfs,
                        [](const String& a, const String& b) { return Kiln::naturalCompare(a, b) < 0; });
      if (!queueWords_.empty()) {
         addQueues();
      }
      if (request_.counters.empty()) {
         request_.counters = past_.portCounters();
      }
      request_.span.finish(clock_);
      if ((request_.span.from || request_.span.to) && !clock_.isOfHere) {
         throw std::runtime_error("the history is from before the machine was started, when nobody knows: "
                                  "expected no times, or 'last 5m', which counts from its end");
      }
   }

   const Words& words_;
   PastTables& past_;
   const TableClock& clock_;
   std::size_t at_ = 0;
   Words queueWords_;
   HistoryRequest request_;
};

} // namespace

PastTable& PastTables::queues() {
   if (!queues_) {
      queues_.emplace(store_, PastTable::Kind::queues);
   }
   return *queues_;
}

Words PastTables::portCounters() const {
   return {IntfHistory::fieldNames.begin(), IntfHistory::fieldNames.end()};
}

Words PastTables::queueCounters(const Words& intfs) {
   std::size_t count = 0;
   for (const String& intf : intfs) {
      count = std::max(count, queues().queueCount(intf));
   }
   Words names;
   for (std::size_t queue = 0; queue < count; ++queue) {
      for (const std::string_view field : IntfQueueHistory::fieldNames) {
         names.push_back("queue." + std::to_string(queue) + "." + String(field));
      }
   }
   return names;
}

HistoryRequest parseHistoryRequest(const Words& words, PastTables& past, const TableClock& clock) {
   return Parser(words, past, clock).parse();
}

Words historyCandidates(const Words& words, const String& begun, const Silo::Store& store) {
   if (words.size() > 1 && isTimeWord(words.back())) {
      return timeCandidates(words.back());
   }
   Words candidates;
   try {
      PastTables past(store);
      const Words& known = past.ports().interfaces();
      candidates = known;
      addNew(&candidates, Kiln::continuedNames(begun, known));
      if (!isInterfaceWord(words.back(), known)) {
         addNew(&candidates, keywords);
         addNew(&candidates, past.portCounters());
         // There are too many to be listed with the others.
         if (!begun.empty() && (isQueueWord(begun) || String("queue").starts_with(begun))) {
            Words named;
            for (const String& word : words) {
               addNew(&named, Kiln::chooseNames(word, known).names);
            }
            addNew(&candidates, past.queueCounters(named));
         }
      }
   } catch (const std::exception&) { // nothing is published: keywords only
      candidates = keywords;
   }
   std::erase_if(candidates, [&](const String& one) {
      const bool isOtherFormat =
           (one == "json" && isIn(words, "csv")) || (one == "csv" && isIn(words, "json"));
      return isIn(words, one) || isOtherFormat || isRefusedAfter(one, words);
   });
   return candidates;
}

} // namespace ZelCtl
