// The views, and how the words of a command choose what they show.
#include "apps/zelctl/views/RecordRequest.h"

#include "kiln/Choices.h"

namespace ZelCtl {

namespace {

using Kiln::String;
namespace Tables = Silo::Interface;

constexpr std::array keywordNames{std::pair{nonzero, "nonzero"}, std::pair{rates, "rates"},
                                  std::pair{errors, "errors"}, std::pair{raw, "raw"},
                                  std::pair{json, "json"}};

constexpr Column intfColumns[] = {
     {"in-octets", "In octets", "In bit/s", 8},    {"in-pkts", "In pkts", "In pkts/s"},
     {"in-errors", "In errs", "In errs/s"},        {"in-discards", "In disc", "In disc/s"},
     {"out-octets", "Out octets", "Out bit/s", 8}, {"out-pkts", "Out pkts", "Out pkts/s"},
     {"out-errors", "Out errs", "Out errs/s"},     {"out-discards", "Out disc", "Out disc/s"},
};
constexpr Column intfErrorColumns[] = {
     {"in-errors", "In errs", "In errs/s"},           {"in-fcs-errors", "FCS", "FCS/s"},
     {"in-alignment-errors", "Align", "Align/s"},     {"in-symbol-error", "Symbol", "Symbol/s"},
     {"in-undersize-frames", "Undersz", "Undersz/s"}, {"in-oversize-frames", "Oversz", "Oversz/s"},
     {"in-fragment-frames", "Frags", "Frags/s"},      {"in-jabber-frames", "Jabber", "Jabber/s"},
     {"in-discards", "In disc", "In disc/s"},         {"out-errors", "Out errs", "Out errs/s"},
     {"out-discards", "Out disc", "Out disc/s"},
};
constexpr Column queueColumns[] = {
     {"packets", "Packets", "Packets/s"}, {"bytes", "Bytes", "Bit/s", 8}, {"drops", "Drops", "Drops/s"}};
constexpr Column l3Columns[] = {{"in-octets", "In octets", "In bit/s", 8},
                                {"in-pkts", "In pkts", "In pkts/s"},
                                {"out-octets", "Out octets", "Out bit/s", 8},
                                {"out-pkts", "Out pkts", "Out pkts/s"}};
constexpr Column natColumns[] = {{"packets", "Packets", ""}, {"bytes", "Bytes", ""}};

constexpr View allViews[] = {
     {"interfaces",
      "counters of ports",
      nonzero | rates | errors | raw | json,
      readPublished<Tables::IntfCounters>,
      Tables::TableName::intfCounters,
      intfColumns,
      intfErrorColumns,
      {"discontinuity", "Discont"},
      false,
      true},
     {"queues",
      "counters of egress queues",
      nonzero | rates | json,
      readPublished<Tables::IntfQueueCounters>,
      Tables::TableName::intfQueueCounters,
      queueColumns,
      {},
      {"discontinuity", "Discont"},
      true,
      false},
     {"vlans",
      "counters of VLAN interfaces",
      nonzero | rates | raw | json,
      readPublished<Tables::L3IntfCounters>,
      Tables::TableName::vlanIntfCounters,
      l3Columns,
      {},
      {"discontinuity", "Discont"},
      false,
      false},
     {"subinterfaces",
      "counters of subinterfaces",
      nonzero | rates | raw | json,
      readPublished<Tables::L3IntfCounters>,
      Tables::TableName::subIntfCounters,
      l3Columns,
      {},
      {"discontinuity", "Discont"},
      false,
      false},
     {"nat",
      "what source NAT translated",
      nonzero | raw | json,
      readPublished<Tables::NatCounter>,
      Tables::TableName::intfNatCounters,
      natColumns,
      {},
      {"creation", "Created"},
      false,
      false},
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
   unsigned meant = 0;
   std::vector<String> candidates;
   for (const auto& [keyword, name] : keywordNames) {
      if ((view.takes & keyword) != 0 && std::string_view(name).starts_with(word)) {
         meant = keyword;
         candidates.emplace_back(name);
      }
   }
   if (candidates.size() > 1) {
      throw std::runtime_error(Kiln::quoted(word) + " is ambiguous: expected " + Kiln::choices(candidates));
   }
   return meant;
}

[[noreturn]] void refuseName(const View& view, const String& word, const std::vector<String>& known) {
   throw std::runtime_error(Kiln::unknownInterface(word, known) + "; keywords are " +
                            Kiln::joined(keywordsOf(view), ", "));
}

} // namespace

RecordRequest parseRecordRequest(const std::vector<String>& words, const PublishedTable& table) {
   RecordRequest request;
   request.view = viewNamed(words.front());
   const std::vector<String> known = namesIn(table);
   for (std::size_t i = 1; i < words.size(); ++i) {
      const bool isName = std::ranges::find(known, words[i]) != known.end();
      const unsigned keyword = isName ? 0 : keywordMeant(*request.view, words[i]);
      if (!isName && keyword == 0) {
         refuseName(*request.view, words[i], known);
      }
      request.keywords |= keyword;
      if (isName) {
         request.names.push_back(words[i]);
      }
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
