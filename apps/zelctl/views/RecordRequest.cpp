// The views, and how the words of a command choose what they show.
#include "apps/zelctl/views/RecordRequest.h"

#include "apps/zelctl/views/TimeWords.h"
#include "kiln/Choices.h"
#include "kiln/NameChoice.h"

namespace ZelCtl {

namespace {

using Kiln::String;
namespace Tables = Silo::Interface;

constexpr std::array keywordNames{std::pair{nonzero, "nonzero"}, std::pair{rates, "rates"},
                                  std::pair{errors, "errors"},   std::pair{raw, "raw"},
                                  std::pair{exact, "exact"},     std::pair{json, "json"},
                                  std::pair{since, "since"}};

using enum Column::Shows;

constexpr Column intfColumns[] = {
     {"in-octets", "In use", "In use", 8, use},
     {"out-octets", "Out use", "Out use", 8, use},
     {"in-octets", "In bit/s", "In bit/s", 8, rate},
     {"out-octets", "Out bit/s", "Out bit/s", 8, rate},
     {"in-octets", "In octets", "In bit/s", 8},
     {"out-octets", "Out octets", "Out bit/s", 8},
     {"in-pkts", "In pkts", "In pkts/s"},
     {"out-pkts", "Out pkts", "Out pkts/s"},
     {"in-errors", "In errs", "In errs/s"},
     {"out-errors", "Out errs", "Out errs/s"},
     {"in-discards", "In disc", "In disc/s"},
     {"out-discards", "Out disc", "Out disc/s"},
};
constexpr Column intfErrorColumns[] = {
     {"in-errors", "In errs", "In errs/s"},
     {"in-fcs-errors", "FCS", "FCS/s"},
     {"in-alignment-errors", "Align", "Align/s"},
     {"in-symbol-error", "Symbol", "Symbol/s"},
     {"in-undersize-frames", "Undersz", "Undersz/s"},
     {"in-fragment-frames", "Frags", "Frags/s"},
     {"in-jabber-frames", "Jabber", "Jabber/s"},
     {"in-discards", "MAC in disc", "MAC in disc/s"},
     {"out-errors", "Out errs", "Out errs/s"},
     {"out-discards", "MAC out disc", "MAC out disc/s"},
     {"out-queue-drops", "Queue drops", "Queue drops/s"},
};
constexpr Column queueColumns[] = {
     {"packets", "Packets", "Packets/s"}, {"bytes", "Bytes", "Bit/s", 8}, {"drops", "Drops", "Drops/s"}};
constexpr Column l3Columns[] = {{"in-octets", "In octets", "In bit/s", 8},
                                {"in-pkts", "In pkts", "In pkts/s"},
                                {"out-octets", "Out octets", "Out bit/s", 8},
                                {"out-pkts", "Out pkts", "Out pkts/s"}};
constexpr Column natColumns[] = {{"packets", "Packets", ""}, {"bytes", "Bytes", ""}};
constexpr Column packetColumns[] = {{"packets", "Packets", ""}};
constexpr Column stageColumns[] = {{"in", "In", ""}, {"out", "Out", ""}, {"dropped", "Dropped", ""}};
constexpr Column tmColumns[] = {{"packets", "Packets", ""}, {"bytes", "Bytes", ""}, {"cells", "Cells", ""}};
constexpr Column healthColumns[] = {
     {"verdict", "Verdict", "", 1, word},
     {"up", "Up", "", 1, age},
     {"mac-read", "MAC read", "", 1, age},
     {"tables-read", "Tables", "", 1, age},
     {"queues-read", "Queues", "", 1, age},
     {"traffic-manager-read", "Traffic manager", "", 1, age},
     {"outstanding", "Outstanding", ""},
     {"refused", "Refused", ""},
     {"unanswered", "Unanswered", ""},
     {"late", "Late", ""},
     {"wraps", "Wraps", ""},
     {"upsets", "Upsets", ""},
     {"pending-vlans", "VLANs pending", ""},
};

constexpr TimeColumn lastBreak{"discontinuity", "Discont"};
constexpr Places noPlaces{};

template <class Record>
constexpr View placesView(std::string_view command, std::string_view help, const char* table,
                          std::span<const Column> columns, const Places& places,
                          const Subject& subject = ofInterfaces) {
   return {command,
           help,
           nonzero | exact | json,
           readPublished<Record>,
           table,
           columns,
           {},
           lastBreak,
           places,
           false,
           nullptr,
           {},
           subject};
}

constexpr View allViews[] = {
     {"interfaces", "counters of ports", nonzero | rates | errors | raw | exact | json | since, readPorts,
      Tables::TableName::intfCounters, intfColumns, intfErrorColumns, lastBreak, noPlaces, true,
      Tables::TableName::intfClearCounters, PastTable::Kind::ports},
     {"queues",
      "counters of egress queues",
      nonzero | rates | exact | json | since,
      readPublished<Tables::IntfQueueCounters>,
      Tables::TableName::intfQueueCounters,
      queueColumns,
      {},
      lastBreak,
      {"queue.", "Queue", "queue-activity"},
      false,
      Tables::TableName::intfClearQueueCounters,
      PastTable::Kind::queues},
     {"vlans",
      "counters of VLAN interfaces",
      nonzero | rates | raw | exact | json | since,
      readPublished<Tables::L3IntfCounters>,
      Tables::TableName::vlanIntfCounters,
      l3Columns,
      {},
      lastBreak,
      noPlaces,
      false,
      Tables::TableName::vlanIntfClearCounters},
     {"subinterfaces",
      "counters of subinterfaces",
      nonzero | rates | raw | exact | json | since,
      readPublished<Tables::L3IntfCounters>,
      Tables::TableName::subIntfCounters,
      l3Columns,
      {},
      lastBreak,
      noPlaces,
      false,
      Tables::TableName::subIntfClearCounters},
     {"nat",
      "what source NAT translated",
      nonzero | raw | exact | json,
      readPublished<Tables::NatCounter>,
      Tables::TableName::intfNatCounters,
      natColumns,
      {},
      {"creation", "Created"},
      noPlaces,
      false},
     placesView<Tables::IntfDropCounters>("drops", "drops of ports, by reason",
                                          Tables::TableName::intfDropCounters, packetColumns,
                                          {"drops.", "Reason", "activities"}),
     placesView<Tables::IntfPdpCounters>("classes", "packets that ports received, by class",
                                         Tables::TableName::intfPdpCounters, packetColumns,
                                         {"class.", "Class", "activities"}),
     placesView<Tables::PipeStageCounters>("pipeline", "packets by stage of a pipe",
                                           Tables::TableName::pipeStageCounters, stageColumns,
                                           {"stage.", "Stage", "activities"}, ofPipes),
     placesView<Tables::PipeDropCounters>("mau-drops", "drops of match-action stages and deparsers",
                                          Tables::TableName::pipeDropCounters, packetColumns,
                                          {"drops.", "Place", "activities"}, ofPipes),
     placesView<Tables::PipeTmCounters>("traffic-manager", "what the traffic manager counts of a pipe",
                                        Tables::TableName::pipeTmCounters, tmColumns,
                                        {"tm.", "Counter", "activities"}, ofPipes),
     placesView<Tables::ChipHealth>("health", "how the reads of chips fare", Tables::TableName::chipHealth,
                                    healthColumns, noPlaces, ofChips),
};

} // namespace

std::span<const View> views() {
   return allViews;
}

const View* viewNamed(std::string_view command) {
   const auto* const found = std::ranges::find(allViews, command, &View::command);
   return found == std::end(allViews) ? nullptr : found;
}

std::vector<String> keywordsOf(const View& view) {
   std::vector<String> all;
   for (const auto& [keyword, name] : keywordNames) {
      if ((view.takes & keyword) != 0) {
         all.emplace_back(name);
      }
   }
   return all;
}

namespace {

std::vector<String> namesIn(const PublishedTable& table) {
   std::vector<String> names;
   for (const PublishedRow& row : table.rows) {
      if (!row.name.empty()) {
         names.push_back(row.name);
      }
   }
   return names;
}

// The keyword that the word names or abbreviates; 0 if none. Throws std::runtime_error if the word is ambiguous.
unsigned keywordMeant(const View& view, const String& word) {
   const std::vector<String> meant = Kiln::wordsMeant(word, keywordsOf(view));
   if (meant.size() > 1) {
      throw std::runtime_error(Kiln::quoted(word) + " is ambiguous: expected " + Kiln::choices(meant));
   }
   for (const auto& [keyword, name] : keywordNames) {
      if (!meant.empty() && meant.front() == name) {
         return keyword;
      }
   }
   return 0;
}

String nameOf(unsigned keyword) {
   const auto* const found =
        std::ranges::find(keywordNames, keyword, [](const auto& one) { return unsigned{one.first}; });
   return found == keywordNames.end() ? "" : found->second;
}

[[noreturn]] void refuseWord(const View& view, const String& word, const String& error) {
   if (word == "since") {
      throw std::runtime_error("only interfaces and queues have a history, and " + String(view.command) +
                               " has no clear either: leave out since");
   }
   const String near = Kiln::nearest(word, keywordsOf(view));
   if (!near.empty()) {
      throw std::runtime_error("unexpected " + Kiln::quoted(word) + ": did you mean " + near + "?");
   }
   const bool isAsked = error.ends_with('?');
   throw std::runtime_error(error +
                            (isAsked ? "" : "; keywords are " + Kiln::joined(keywordsOf(view), ", ")));
}

} // namespace

bool isInterfaceWord(const String& word, const std::vector<String>& known) {
   return (word == "intf" || word == "interface") && std::ranges::find(known, word) == known.end();
}

RecordRequest parseRecordRequest(const std::vector<String>& words, const PublishedTable& table) {
   RecordRequest request;
   request.view = viewNamed(words.front());
   const std::vector<String> known = namesIn(table);
   const auto isKnown = [&](const String& word) { return std::ranges::find(known, word) != known.end(); };
   for (std::size_t i = 1; i < words.size(); ++i) {
      const bool isNamed = isInterfaceWord(words[i], known);
      if (isNamed && ++i == words.size()) {
         throw std::runtime_error(words.back() + " needs an interface: expected " +
                                  (known.empty() ? "none, as none is published" : Kiln::nameRanges(known)));
      }
      const unsigned keyword = isNamed || isKnown(words[i]) ? 0 : keywordMeant(*request.view, words[i]);
      refuseAgain((request.keywords & keyword) != 0, nameOf(keyword));
      request.keywords |= keyword;
      if (keyword == since) {
         request.span = takeSince(words, &i, table.clock);
      } else if (keyword == 0) {
         const Kiln::NameChoice choice = Kiln::chooseNames(words[i], known);
         if (!choice.error.empty()) {
            refuseWord(*request.view, words[i], choice.error);
         }
         request.names.insert(request.names.end(), choice.names.begin(), choice.names.end());
      }
   }
   if (request.has(since) && request.has(raw)) {
      throw std::runtime_error("the chip's own counts have no past: leave out raw, or since");
   }
   return request;
}

std::vector<const PublishedRow*> selectRows(const RecordRequest& request, const PublishedTable& table) {
   std::vector<const PublishedRow*> rows;
   for (const PublishedRow& row : table.rows) {
      if (request.names.empty() || std::ranges::find(request.names, row.name) != request.names.end()) {
         rows.push_back(&row);
      }
   }
   return rows;
}

} // namespace ZelCtl
