// Ranks the rates of published records.
#include "apps/zelctl/views/TopView.h"

#include "apps/zelctl/views/Place.h"
#include "apps/zelctl/views/Readable.h"
#include "apps/zelctl/views/RecordRequest.h"
#include "apps/zelctl/views/TextTable.h"
#include "apps/zelctl/views/TimeWords.h"
#include "kiln/Choices.h"
#include "kiln/JsonWriter.h"
#include "vex/PublishedRecords.h"

#include <array>
#include <numeric>
#include <tuple>

namespace ZelCtl {

namespace {

using Kiln::String;
using Value = Place::Value;
using Kind = ShownColumn::Kind;
using Words = std::vector<String>;

struct ValueColumn {
   const char* heading;
   const char* member; // in JSON
   bool isOfQueues;
};
constexpr std::array<ValueColumn, Place::valueCount> valueColumns{{{"In use", "in-use-per-mille", false},
                                                                   {"Out use", "out-use-per-mille", false},
                                                                   {"In bit/s", "in-bits-per-second", false},
                                                                   {"Out bit/s", "out-bits-per-second", true},
                                                                   {"Pkts/s", "packets-per-second", true},
                                                                   {"Drops/s", "drops-per-second", true},
                                                                   {"Drops", "drops", true},
                                                                   {"Errs/s", "errors-per-second", false},
                                                                   {"Errs", "errors", false}}};

// What `by` may be followed by. A use is that of the direction that is used more.
struct Order {
   const char* word;
   Value first;
   Value second;
   bool isHigherOfBoth; // else the second decides between equal firsts
   bool isOfQueues;
};
constexpr std::array orders{Order{"use", Place::inUse, Place::outUse, true, false},
                            Order{"in", Place::inBits, Place::inBits, false, false},
                            Order{"out", Place::outBits, Place::outBits, false, true},
                            Order{"packets", Place::packets, Place::packets, false, true},
                            Order{"drops", Place::drops, Place::dropTotal, false, true},
                            Order{"errors", Place::errors, Place::errorTotal, false, false}};

struct Ranking {
   const char* title;
   const Order* order;
   bool isOfQueues;
   std::size_t rows;
};

struct Request {
   const Order* by = nullptr;
   bool json = false;
   std::optional<double> last{}; // seconds; none for the last polling interval
};

// What is shown: rankings, each with its places.
struct Shown {
   std::vector<std::pair<Ranking, std::vector<Place>>> rankings;
   Words notes;
   String portSpan; // for the titles
   String queueSpan;

   String title(const Ranking& ranking) const {
      return String(ranking.title) + ", by " + ranking.order->word +
             (ranking.isOfQueues ? queueSpan : portSpan);
   }
};

Words orderWords() {
   Words words;
   for (const Order& order : orders) {
      words.emplace_back(order.word);
   }
   return words;
}

// The one of the choices that the word is, begins or was meant to be.
String choose(const String& word, const Words& all) {
   const Words meant = Kiln::wordsMeant(word, all);
   if (meant.size() == 1) {
      return meant.front();
   }
   throw std::runtime_error(meant.empty()
                                 ? "unexpected " + Kiln::quoted(word) + ": " +
                                        Kiln::meantOrExpected(word, all, Kiln::choices(all))
                                 : Kiln::quoted(word) + " is ambiguous: expected " + Kiln::choices(meant));
}

Request parse(const Words& words) {
   Request request;
   for (std::size_t i = 1; i < words.size(); ++i) {
      const String option = choose(words[i], {"by", "last", "json"});
      const bool isThere = option == "json"   ? request.json
                           : option == "last" ? request.last.has_value()
                                              : request.by != nullptr;
      refuseAgain(isThere, option);
      if (option == "json") {
         request.json = true;
      } else if (option == "last") {
         request.last = takeDuration(words, ++i);
      } else if (++i == words.size()) {
         throw std::runtime_error("by needs a column: expected " + Kiln::choices(orderWords()));
      } else {
         request.by = std::ranges::find(orders, choose(words[i], orderWords()), &Order::word);
      }
   }
   return request;
}

std::vector<Place> portsIn(const PublishedTable& table) {
   std::vector<Place> ports;
   for (const PublishedRow& row : table.rows) {
      if (row.result == Silo::ReadResult::ok) {
         ports.push_back(Place::ofPort(table, row));
      }
   }
   return ports;
}

// Has the rows count what they counted in the span, if one is asked for.
void countLast(const Request& request, const char* view, PublishedTable* table, const Silo::Store& store) {
   if (request.last) {
      countSince({.time = table->clock.now - *request.last, .isStrict = true}, *viewNamed(view), {}, table,
                 store);
   }
}

std::vector<Place> queuesIn(const PublishedTable& table) {
   std::vector<Place> queues;
   for (const PublishedRow& row : table.rows) {
      const std::vector<Place> ofPort = Place::ofQueues(table, row);
      queues.insert(queues.end(), ofPort.begin(), ofPort.end());
   }
   return queues;
}

// None if no agent has published queues. What is to be said of their span goes into the notes.
std::vector<Place> readQueues(const Request& request, const Silo::Store& store, Shown* shown) {
   PublishedTable table;
   try {
      table = readPublished<Silo::Interface::IntfQueueCounters>(
           store, Silo::Interface::TableName::intfQueueCounters);
   } catch (const std::exception&) {
      return {};
   }
   try {
      countLast(request, "queues", &table, store);
   } catch (const std::exception& error) { // their samples are fewer than those of ports
      shown->notes.push_back(String("No queues: ") + error.what() + ".");
      return {};
   }
   shown->notes.insert(shown->notes.end(), table.spanNotes.begin(), table.spanNotes.end());
   if (request.last) {
      shown->queueSpan = lastText(table, *request.last,
                                  table.pollingInterval * Silo::Interface::IntfQueueHistory::intervals);
   }
   return queuesIn(table);
}

double rank(const Place& place, const Order& order) {
   return order.isHigherOfBoth ? std::max(place.value(order.first), place.value(order.second))
                               : place.value(order.first);
}

std::vector<Place> ranked(std::vector<Place> places, const Ranking& ranking) {
   const Order& order = *ranking.order;
   std::erase_if(places,
                 [&](const Place& one) { return rank(one, order) == 0 && one.value(order.second) == 0; });
   // Of those that rank alike, the first in the table comes first.
   std::vector<std::size_t> worst(places.size());
   std::iota(worst.begin(), worst.end(), std::size_t{0});
   std::ranges::sort(worst, [&](std::size_t a, std::size_t b) {
      return std::tuple(rank(places[a], order), places[a].value(order.second), b) >
             std::tuple(rank(places[b], order), places[b].value(order.second), a);
   });
   std::vector<Place> shown;
   for (std::size_t i = 0; i < worst.size() && i < ranking.rows; ++i) {
      shown.push_back(std::move(places[worst[i]]));
   }
   return shown;
}

String cellText(const Place& place, std::size_t value) {
   if (place.totals[value]) {
      return countText(*place.totals[value]);
   }
   const std::optional<double>& rate = place.rates[value];
   if (!rate) {
      return "-";
   }
   return value == Place::inUse || value == Place::outUse ? perMilleText(Vex::wholeRate(*rate), *rate == 0)
                                                          : rateText(*rate);
}

Shown shownOf(const Request& request, const Silo::Store& store) {
   constexpr std::size_t few = 5;
   constexpr std::size_t many = 20;
   const Order* const use = &orders[0];
   const Order* const out = &orders[2];
   const Order* const dropping = &orders[4];
   const Order* const erring = &orders[5];
   std::vector<Ranking> rankings;
   if (request.by == nullptr) {
      rankings = {{"Busiest ports", use, false, few},
                  {"Ports that drop most", dropping, false, few},
                  {"Ports that err most", erring, false, few},
                  {"Busiest queues", out, true, few},
                  {"Queues that drop most", dropping, true, few}};
   } else {
      rankings.push_back({"Ports", request.by, false, many});
      if (request.by->isOfQueues) {
         rankings.push_back({"Queues", request.by, true, many});
      }
   }
   PublishedTable table = readPorts(store, Silo::Interface::TableName::intfCounters);
   countLast(request, "interfaces", &table, store);
   const std::vector<Place> ports = portsIn(table);
   Shown shown;
   shown.notes = table.notes();
   if (request.last) {
      shown.portSpan = shown.queueSpan = lastText(table, *request.last, table.pollingInterval);
   }
   const std::vector<Place> queues = readQueues(request, store, &shown);
   for (const Ranking& ranking : rankings) {
      shown.rankings.emplace_back(ranking, ranked(ranking.isOfQueues ? queues : ports, ranking));
   }
   return shown;
}

std::vector<ShownTable> tablesOf(const Shown& shown) {
   std::vector<ShownTable> tables;
   for (const auto& [ranking, places] : shown.rankings) {
      ShownTable table{shown.title(ranking), {{"Interface", Kind::key}}, {}};
      table.isRanking = true;
      if (ranking.isOfQueues) {
         table.columns.push_back({"Queue", Kind::key});
      }
      table.columns.push_back({"State", Kind::other});
      for (const ValueColumn& column : valueColumns) {
         if (!ranking.isOfQueues || column.isOfQueues) {
            table.columns.push_back({column.heading, Kind::other});
         }
      }
      for (const Place& place : places) {
         ShownRow row{{{place.intf}}};
         if (ranking.isOfQueues) {
            row.cells.push_back({place.queue});
         }
         row.cells.push_back({text(place.activity)});
         for (std::size_t i = 0; i < Place::valueCount; ++i) {
            if (!ranking.isOfQueues || valueColumns[i].isOfQueues) {
               row.cells.push_back({cellText(place, i)});
            }
         }
         table.rows.push_back(std::move(row));
      }
      if (places.empty()) {
         table.columns.clear();
         table.notes.emplace_back("  none");
      }
      tables.push_back(std::move(table));
   }
   tables.back().notes.insert(tables.back().notes.end(), shown.notes.begin(), shown.notes.end());
   return tables;
}

String jsonOf(const Shown& shown) {
   Kiln::JsonWriter out;
   out.begin("", '{');
   out.begin("rankings", '[');
   for (const auto& [ranking, places] : shown.rankings) {
      out.begin("", '{');
      out.value("title", shown.portSpan.empty() ? String(ranking.title) : shown.title(ranking));
      out.value("by", std::string_view(ranking.order->word));
      out.begin("rows", '[');
      for (const Place& place : places) {
         out.begin("", '{');
         out.value("name", std::string_view(place.intf));
         if (ranking.isOfQueues) {
            out.value("queue", std::string_view(place.queue));
         }
         out.value("activity", std::string_view(text(place.activity)));
         for (std::size_t i = 0; i < Place::valueCount; ++i) {
            if (ranking.isOfQueues && !valueColumns[i].isOfQueues) {
               continue;
            }
            if (place.totals[i]) {
               out.value(valueColumns[i].member, *place.totals[i]);
            } else if (place.rates[i]) {
               out.value(valueColumns[i].member, Vex::wholeRate(*place.rates[i]));
            } else {
               out.null(valueColumns[i].member);
            }
         }
         out.end('}');
      }
      out.end(']');
      out.end('}');
   }
   out.end(']');
   out.begin("notes", '[');
   for (const String& note : shown.notes) {
      out.value("", std::string_view(note));
   }
   out.end(']');
   out.end('}');
   return out.text();
}

} // namespace

bool isTopJson(const Words& words) {
   return parse(words).json;
}

std::vector<ShownTable> showTop(const Words& words, const Silo::Store& store) {
   const Request request = parse(words);
   if (request.json) {
      throw std::runtime_error("watch shows tables: leave out 'json'");
   }
   return tablesOf(shownOf(request, store));
}

String viewTop(const Words& words, const Silo::Store& store, std::size_t width) {
   const Request request = parse(words);
   const Shown shown = shownOf(request, store);
   if (request.json) {
      return jsonOf(shown);
   }
   String text;
   for (const ShownTable& table : tablesOf(shown)) {
      text += text.empty() ? "" : "\n";
      text += tableText(table, width);
   }
   return text;
}

Words topCandidates(const Words& words) {
   if (words.back() == "by") {
      return orderWords();
   }
   if (words.back() == "last") {
      return timeCandidates("last");
   }
   Words candidates{"by", "last", "json"};
   std::erase_if(candidates, [&](const String& one) { return std::ranges::find(words, one) != words.end(); });
   return candidates;
}

} // namespace ZelCtl
