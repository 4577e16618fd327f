// The statistics of an interface: its counters, their names, and how each is vetted.
//
// A statistics body is a plain record of 64-bit words. Its counted fields come first, in the order of its table of
// fields, so that field i is word i. Names are OpenConfig's, or formed like them.
#pragma once

#include "kiln/Types.h"
#include "sdk/bf_rmon.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace Interface {

// A counter's step is plausible only below this: at 800 Gbit/s, 2^48 octets take three quarters of an hour.
constexpr U64 wrapWindow = U64{1} << 48;
constexpr U64 topBit = U64{1} << 63; // a counter that has it set reads as negative

// An IEEE 802.1p priority: 0 to 7. Throws std::range_error for anything else.
class Dot1pIndex {
 public:
   static constexpr U8 max = 7;

   constexpr explicit Dot1pIndex(unsigned value) : value_(static_cast<U8>(value)) {
      if (value > max) {
         throw std::range_error("a priority is 0 to 7");
      }
   }
   constexpr U8 value() const { return value_; }

 private:
   U8 value_;
};

// One counter for each priority.
struct EthPerPrioStatistics {
   std::array<U64, Dot1pIndex::max + 1> counts;

   U64 count(Dot1pIndex priority) const { return counts[priority.value()]; }
   void countIs(Dot1pIndex priority, U64 value) { counts[priority.value()] = value; }
};

// One counter for each unicast queue.
struct EthPerQStatistics {
   std::array<U64, 8> counts;
};

// The statistics of an Ethernet interface. Octets include the FCS.
struct EthIntfStatistics {
   static constexpr std::size_t fieldCount = 69;

   // Checked for wraps and upsets.
   U64 inOctets;
   U64 inPkts;
   U64 inUnicastPkts;
   U64 inMulticastPkts;
   U64 inBroadcastPkts;
   U64 inDot1qFrames;
   U64 inMacControlFrames;
   U64 inFrames64Octets;
   U64 inFrames65To127Octets;
   U64 inFrames128To255Octets;
   U64 inFrames256To511Octets;
   U64 inFrames512To1023Octets;
   U64 inFrames1024To1518Octets;
   U64 inFrames1519To2047Octets;
   U64 inFrames2048To4095Octets;
   U64 inFrames4096To8191Octets;
   U64 inFrames8192To9215Octets;
   U64 inFrames9216OrMoreOctets;
   U64 outOctets;
   U64 outPkts;
   U64 outUnicastPkts;
   U64 outMulticastPkts;
   U64 outBroadcastPkts;
   U64 outDot1qFrames;
   U64 outMacControlFrames;
   U64 outFrames64Octets;
   U64 outFrames65To127Octets;
   U64 outFrames128To255Octets;
   U64 outFrames256To511Octets;
   U64 outFrames512To1023Octets;
   U64 outFrames1024To1518Octets;
   U64 outFrames1519To2047Octets;
   U64 outFrames2048To4095Octets;
   U64 outFrames4096To8191Octets;
   U64 outFrames8192To9215Octets;
   U64 outFrames9216OrMoreOctets;

   // Checked for upsets only.
   U64 inDiscards;
   U64 inErrors;
   U64 inFcsErrors;
   U64 inMacPauseFrames;
   U64 inMaxsizeExceeded;
   U64 inUndersizeFrames;
   U64 inOversizeFrames;
   U64 inFragmentFrames;
   U64 inJabberFrames;
   U64 inCrcErrors;
   U64 inAlignmentErrors;
   U64 inSymbolError;
   U64 inMacErrorsRx;
   U64 outDiscards;
   U64 outErrors;
   U64 outMacPauseFrames;
   U64 outMacErrorsTx;
   EthPerPrioStatistics inPfcFrames;
   EthPerPrioStatistics outPfcFrames;

   // The MAC does not count these, and no table of fields lists them: queues have records of their own.
   EthPerQStatistics outQueuePkts;
   EthPerQStatistics outQueueDiscards;
};

// The statistics of a VLAN interface or a subinterface.
struct L3IntfStatistics {
   static constexpr std::size_t fieldCount = 4;

   U64 inOctets;
   U64 inPkts;
   U64 outOctets;
   U64 outPkts;
};

enum class FieldGroup : U8 {
   wrapChecked, // traffic: may wrap
   upsetOnly,   // errors, discards, pause: any fall is an upset, and a negative value counts as 0
};

struct StatisticsField {
   const char* name;
   std::size_t offset; // in the body, bytes
   FieldGroup group;
   int rmonIndex; // of the MAC counter that fills it; -1 for none
};

// clang-format off
inline constexpr std::array<StatisticsField, EthIntfStatistics::fieldCount> ethIntfFields{{
   {"in-octets", offsetof(EthIntfStatistics, inOctets), FieldGroup::wrapChecked, BF_RMON_OCTETS_RECEIVED_GOOD},
   {"in-pkts", offsetof(EthIntfStatistics, inPkts), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_ALL},
   {"in-unicast-pkts", offsetof(EthIntfStatistics, inUnicastPkts), FieldGroup::wrapChecked, BF_RMON_UNICAST_FRAMES_RECEIVED_OK},
   {"in-multicast-pkts", offsetof(EthIntfStatistics, inMulticastPkts), FieldGroup::wrapChecked, BF_RMON_MULTICAST_FRAMES_RECEIVED_OK},
   {"in-broadcast-pkts", offsetof(EthIntfStatistics, inBroadcastPkts), FieldGroup::wrapChecked, BF_RMON_BROADCAST_FRAMES_RECEIVED_OK},
   {"in-8021q-frames", offsetof(EthIntfStatistics, inDot1qFrames), FieldGroup::wrapChecked, BF_RMON_VLAN_TAGGED_FRAMES_RECEIVED_OK},
   {"in-mac-control-frames", offsetof(EthIntfStatistics, inMacControlFrames), FieldGroup::wrapChecked, BF_RMON_MAC_CONTROL_FRAMES_RECEIVED},
   {"in-frames-64-octets", offsetof(EthIntfStatistics, inFrames64Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_64_OCTETS},
   {"in-frames-65-127-octets", offsetof(EthIntfStatistics, inFrames65To127Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_65_TO_127_OCTETS},
   {"in-frames-128-255-octets", offsetof(EthIntfStatistics, inFrames128To255Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_128_TO_255_OCTETS},
   {"in-frames-256-511-octets", offsetof(EthIntfStatistics, inFrames256To511Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_256_TO_511_OCTETS},
   {"in-frames-512-1023-octets", offsetof(EthIntfStatistics, inFrames512To1023Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_512_TO_1023_OCTETS},
   {"in-frames-1024-1518-octets", offsetof(EthIntfStatistics, inFrames1024To1518Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_1024_TO_1518_OCTETS},
   {"in-frames-1519-2047-octets", offsetof(EthIntfStatistics, inFrames1519To2047Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_1519_TO_2047_OCTETS},
   {"in-frames-2048-4095-octets", offsetof(EthIntfStatistics, inFrames2048To4095Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_2048_TO_4095_OCTETS},
   {"in-frames-4096-8191-octets", offsetof(EthIntfStatistics, inFrames4096To8191Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_4096_TO_8191_OCTETS},
   {"in-frames-8192-9215-octets", offsetof(EthIntfStatistics, inFrames8192To9215Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_8192_TO_9215_OCTETS},
   {"in-frames-9216-or-more-octets", offsetof(EthIntfStatistics, inFrames9216OrMoreOctets), FieldGroup::wrapChecked, BF_RMON_FRAMES_RECEIVED_9216_OR_MORE_OCTETS},
   {"out-octets", offsetof(EthIntfStatistics, outOctets), FieldGroup::wrapChecked, BF_RMON_OCTETS_TRANSMITTED_GOOD},
   {"out-pkts", offsetof(EthIntfStatistics, outPkts), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_ALL},
   {"out-unicast-pkts", offsetof(EthIntfStatistics, outUnicastPkts), FieldGroup::wrapChecked, BF_RMON_UNICAST_FRAMES_TRANSMITTED_OK},
   {"out-multicast-pkts", offsetof(EthIntfStatistics, outMulticastPkts), FieldGroup::wrapChecked, BF_RMON_MULTICAST_FRAMES_TRANSMITTED_OK},
   {"out-broadcast-pkts", offsetof(EthIntfStatistics, outBroadcastPkts), FieldGroup::wrapChecked, BF_RMON_BROADCAST_FRAMES_TRANSMITTED_OK},
   {"out-8021q-frames", offsetof(EthIntfStatistics, outDot1qFrames), FieldGroup::wrapChecked, BF_RMON_VLAN_TAGGED_FRAMES_TRANSMITTED_OK},
   {"out-mac-control-frames", offsetof(EthIntfStatistics, outMacControlFrames), FieldGroup::wrapChecked, BF_RMON_MAC_CONTROL_FRAMES_TRANSMITTED},
   {"out-frames-64-octets", offsetof(EthIntfStatistics, outFrames64Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_64_OCTETS},
   {"out-frames-65-127-octets", offsetof(EthIntfStatistics, outFrames65To127Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_65_TO_127_OCTETS},
   {"out-frames-128-255-octets", offsetof(EthIntfStatistics, outFrames128To255Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_128_TO_255_OCTETS},
   {"out-frames-256-511-octets", offsetof(EthIntfStatistics, outFrames256To511Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_256_TO_511_OCTETS},
   {"out-frames-512-1023-octets", offsetof(EthIntfStatistics, outFrames512To1023Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_512_TO_1023_OCTETS},
   {"out-frames-1024-1518-octets", offsetof(EthIntfStatistics, outFrames1024To1518Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_1024_TO_1518_OCTETS},
   {"out-frames-1519-2047-octets", offsetof(EthIntfStatistics, outFrames1519To2047Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_1519_TO_2047_OCTETS},
   {"out-frames-2048-4095-octets", offsetof(EthIntfStatistics, outFrames2048To4095Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_2048_TO_4095_OCTETS},
   {"out-frames-4096-8191-octets", offsetof(EthIntfStatistics, outFrames4096To8191Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_4096_TO_8191_OCTETS},
   {"out-frames-8192-9215-octets", offsetof(EthIntfStatistics, outFrames8192To9215Octets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_8192_TO_9215_OCTETS},
   {"out-frames-9216-or-more-octets", offsetof(EthIntfStatistics, outFrames9216OrMoreOctets), FieldGroup::wrapChecked, BF_RMON_FRAMES_TRANSMITTED_9216_OR_MORE_OCTETS},
   {"in-discards", offsetof(EthIntfStatistics, inDiscards), FieldGroup::upsetOnly, BF_RMON_FRAMES_DROPPED_ON_RECEIVE},
   {"in-errors", offsetof(EthIntfStatistics, inErrors), FieldGroup::upsetOnly, BF_RMON_FRAMES_RECEIVED_WITH_ERRORS},
   {"in-fcs-errors", offsetof(EthIntfStatistics, inFcsErrors), FieldGroup::upsetOnly, BF_RMON_FRAME_CHECK_SEQUENCE_ERRORS},
   {"in-mac-pause-frames", offsetof(EthIntfStatistics, inMacPauseFrames), FieldGroup::upsetOnly, BF_RMON_PAUSE_FRAMES_RECEIVED},
   {"in-maxsize-exceeded", offsetof(EthIntfStatistics, inMaxsizeExceeded), FieldGroup::upsetOnly, BF_RMON_FRAME_TOO_LONG_ERRORS},
   {"in-undersize-frames", offsetof(EthIntfStatistics, inUndersizeFrames), FieldGroup::upsetOnly, BF_RMON_UNDERSIZE_FRAMES_RECEIVED},
   {"in-oversize-frames", offsetof(EthIntfStatistics, inOversizeFrames), FieldGroup::upsetOnly, BF_RMON_OVERSIZE_FRAMES_RECEIVED},
   {"in-fragment-frames", offsetof(EthIntfStatistics, inFragmentFrames), FieldGroup::upsetOnly, BF_RMON_FRAGMENTS_RECEIVED},
   {"in-jabber-frames", offsetof(EthIntfStatistics, inJabberFrames), FieldGroup::upsetOnly, BF_RMON_JABBERS_RECEIVED},
   {"in-crc-errors", offsetof(EthIntfStatistics, inCrcErrors), FieldGroup::upsetOnly, BF_RMON_CRC_ALIGN_ERRORS},
   {"in-alignment-errors", offsetof(EthIntfStatistics, inAlignmentErrors), FieldGroup::upsetOnly, BF_RMON_ALIGNMENT_ERRORS},
   {"in-symbol-error", offsetof(EthIntfStatistics, inSymbolError), FieldGroup::upsetOnly, BF_RMON_SYMBOL_ERRORS},
   {"in-mac-errors-rx", offsetof(EthIntfStatistics, inMacErrorsRx), FieldGroup::upsetOnly, BF_RMON_INTERNAL_MAC_RECEIVE_ERRORS},
   {"out-discards", offsetof(EthIntfStatistics, outDiscards), FieldGroup::upsetOnly, BF_RMON_FRAMES_DROPPED_ON_TRANSMIT},
   {"out-errors", offsetof(EthIntfStatistics, outErrors), FieldGroup::upsetOnly, BF_RMON_FRAMES_TRANSMITTED_WITH_ERRORS},
   {"out-mac-pause-frames", offsetof(EthIntfStatistics, outMacPauseFrames), FieldGroup::upsetOnly, BF_RMON_PAUSE_FRAMES_TRANSMITTED},
   {"out-mac-errors-tx", offsetof(EthIntfStatistics, outMacErrorsTx), FieldGroup::upsetOnly, BF_RMON_INTERNAL_MAC_TRANSMIT_ERRORS},
   {"priority.0.in-pfc-frames", offsetof(EthIntfStatistics, inPfcFrames) + 0 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_0},
   {"priority.1.in-pfc-frames", offsetof(EthIntfStatistics, inPfcFrames) + 1 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_1},
   {"priority.2.in-pfc-frames", offsetof(EthIntfStatistics, inPfcFrames) + 2 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_2},
   {"priority.3.in-pfc-frames", offsetof(EthIntfStatistics, inPfcFrames) + 3 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_3},
   {"priority.4.in-pfc-frames", offsetof(EthIntfStatistics, inPfcFrames) + 4 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_4},
   {"priority.5.in-pfc-frames", offsetof(EthIntfStatistics, inPfcFrames) + 5 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_5},
   {"priority.6.in-pfc-frames", offsetof(EthIntfStatistics, inPfcFrames) + 6 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_6},
   {"priority.7.in-pfc-frames", offsetof(EthIntfStatistics, inPfcFrames) + 7 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_7},
   {"priority.0.out-pfc-frames", offsetof(EthIntfStatistics, outPfcFrames) + 0 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_0},
   {"priority.1.out-pfc-frames", offsetof(EthIntfStatistics, outPfcFrames) + 1 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_1},
   {"priority.2.out-pfc-frames", offsetof(EthIntfStatistics, outPfcFrames) + 2 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_2},
   {"priority.3.out-pfc-frames", offsetof(EthIntfStatistics, outPfcFrames) + 3 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_3},
   {"priority.4.out-pfc-frames", offsetof(EthIntfStatistics, outPfcFrames) + 4 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_4},
   {"priority.5.out-pfc-frames", offsetof(EthIntfStatistics, outPfcFrames) + 5 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_5},
   {"priority.6.out-pfc-frames", offsetof(EthIntfStatistics, outPfcFrames) + 6 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_6},
   {"priority.7.out-pfc-frames", offsetof(EthIntfStatistics, outPfcFrames) + 7 * sizeof(U64), FieldGroup::upsetOnly, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_7},
}};
// clang-format on

inline constexpr std::array<StatisticsField, L3IntfStatistics::fieldCount> l3IntfFields{{
     {"in-octets", offsetof(L3IntfStatistics, inOctets), FieldGroup::wrapChecked, -1},
     {"in-pkts", offsetof(L3IntfStatistics, inPkts), FieldGroup::wrapChecked, -1},
     {"out-octets", offsetof(L3IntfStatistics, outOctets), FieldGroup::wrapChecked, -1},
     {"out-pkts", offsetof(L3IntfStatistics, outPkts), FieldGroup::wrapChecked, -1},
}};

// The fields of a kind of statistics, by word.
template <class Statistics>
constexpr const auto& fieldsOf() {
   if constexpr (Statistics::fieldCount == EthIntfStatistics::fieldCount) {
      return ethIntfFields;
   } else {
      return l3IntfFields;
   }
}

template <std::size_t count>
constexpr bool areFieldsInOrder(const std::array<StatisticsField, count>& fields) {
   for (std::size_t i = 0; i < count; ++i) {
      const bool isGroupLeft = i > 0 && fields[i].group < fields[i - 1].group;
      if (fields[i].offset != i * sizeof(U64) || isGroupLeft) {
         return false;
      }
   }
   return true;
}
static_assert(areFieldsInOrder(ethIntfFields) && areFieldsInOrder(l3IntfFields),
              "field i is word i, and the wrap-checked fields come first");

template <class Statistics>
U64 word(const Statistics& statistics, std::size_t index) {
   U64 value = 0;
   std::memcpy(&value, reinterpret_cast<const std::byte*>(&statistics) + index * sizeof value, sizeof value);
   return value;
}

template <class Statistics>
void wordIs(Statistics& statistics, std::size_t index, U64 value) {
   std::memcpy(reinterpret_cast<std::byte*>(&statistics) + index * sizeof value, &value, sizeof value);
}

} // namespace Interface
