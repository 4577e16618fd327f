// How the name of a counted field becomes that of a family of metrics: "in-octets" that of bytes received, and
// "in-frames-64-octets" one size of frames received.
#pragma once

#include "vex/Statistics.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace ZelMetrics {

// A text that is put together while compiling. One that does not fit does not compile.
template <std::size_t room>
class FixedText {
 public:
   constexpr void add(std::string_view text) {
      for (const char c : text) {
         chars_[size_++] = c;
      }
   }
   constexpr std::string_view view() const { return {chars_.data(), size_}; }
   constexpr bool operator==(const FixedText& other) const { return view() == other.view(); }

 private:
   std::array<char, room> chars_{};
   std::size_t size_ = 0;
};

struct FieldForm {
   FixedText<64> name;       // "in_unicast_packets"
   std::string_view label;   // what tells it from others of the same name; empty: there are no others
   FixedText<16> value;      // of the label
   FixedText<64> help;       // "Received: unicast packets"
   FixedText<64> openConfig; // its path below the interface's; empty: OpenConfig has no such counter
};

namespace Forming {

struct Word {
   std::string_view field;
   std::string_view name;
   std::string_view help;
};
inline constexpr std::array words{Word{"octets", "bytes", "bytes"}, Word{"pkts", "packets", "packets"},
                                  Word{"8021q", "8021q", "802.1Q"}, Word{"mac", "mac", "MAC"},
                                  Word{"fcs", "fcs", "FCS"},        Word{"crc", "crc", "CRC"},
                                  Word{"pfc", "pfc", "PFC"}};

// The word as it stands in names and in help.
constexpr Word wordOf(std::string_view field) {
   const auto* const found = std::ranges::find(words, field, &Word::field);
   return found == words.end() ? Word{field, field, field} : *found;
}

// Where OpenConfig's model has the fields that it has. The rest are formed like them.
inline constexpr std::string_view ofInterface[] = {
     "in-octets",          "in-pkts",      "in-unicast-pkts",  "in-multicast-pkts",
     "in-broadcast-pkts",  "in-discards",  "in-errors",        "in-fcs-errors",
     "out-octets",         "out-pkts",     "out-unicast-pkts", "out-multicast-pkts",
     "out-broadcast-pkts", "out-discards", "out-errors"};
inline constexpr std::string_view ofEthernet[] = {
     "in-8021q-frames",        "in-mac-control-frames", "in-mac-pause-frames", "in-maxsize-exceeded",
     "in-undersize-frames",    "in-oversize-frames",    "in-fragment-frames",  "in-jabber-frames",
     "in-crc-errors",          "in-symbol-error",       "in-mac-errors-rx",    "out-8021q-frames",
     "out-mac-control-frames", "out-mac-pause-frames",  "out-mac-errors-tx"};

constexpr bool areFields(std::span<const std::string_view> names) {
   return std::ranges::all_of(names, [](std::string_view name) {
      return std::ranges::any_of(Interface::ethIntfFields,
                                 [&](const Interface::StatisticsField& field) { return name == field.name; });
   });
}
static_assert(areFields(ofInterface) && areFields(ofEthernet));

} // namespace Forming

constexpr FieldForm formOf(std::string_view field) {
   constexpr std::string_view priority = "priority.";
   constexpr std::string_view frames = "-frames-";
   constexpr std::string_view orMore = "-or-more";
   FieldForm form;
   std::string_view rest = field; // direction and words
   if (field.starts_with(priority)) {
      form.label = "priority";
      form.value.add(field.substr(priority.size(), 1));
      rest.remove_prefix(priority.size() + 2);
   } else if (const std::size_t size = field.find(frames); size != std::string_view::npos) {
      form.label = "size";
      std::string_view range = field.substr(size + frames.size());
      range.remove_suffix(std::string_view("-octets").size());
      const bool isOpen = range.ends_with(orMore);
      range.remove_suffix(isOpen ? orMore.size() : 0);
      form.value.add(range);
      form.value.add(isOpen ? "-" : "");
      rest = field.substr(0, size + frames.size() - 1);
   }
   const bool isIn = rest.starts_with("in-");
   form.help.add(isIn ? "Received:" : "Transmitted:");
   for (bool isFirst = true; !rest.empty(); isFirst = false) {
      const Forming::Word word = Forming::wordOf(rest.substr(0, rest.find('-')));
      rest.remove_prefix(std::min(rest.size(), word.field.size() + 1));
      form.name.add(isFirst ? "" : "_");
      form.name.add(word.name);
      form.help.add(isFirst ? "" : " ");
      form.help.add(isFirst ? "" : word.help);
   }
   if (form.label == "size") {
      form.name.add("_by_size");
      form.help.add(" by size in bytes");
      form.openConfig.add(isIn ? "/ethernet/state/counters/in-distribution, up to 1518" : "");
   } else if (form.label == "priority") {
      form.help.add(" by priority");
   } else if (std::ranges::find(Forming::ofInterface, field) != std::end(Forming::ofInterface)) {
      form.openConfig.add("/state/counters/");
      form.openConfig.add(field);
   } else if (std::ranges::find(Forming::ofEthernet, field) != std::end(Forming::ofEthernet)) {
      form.openConfig.add("/ethernet/state/counters/");
      form.openConfig.add(field);
   }
   return form;
}

} // namespace ZelMetrics
