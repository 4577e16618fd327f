// Counts frames in a port's RMON counters, by one set of rules for both directions.
#include "softchip/RmonCounters.h"

#include <array>
#include <string_view>

namespace SoftChip {

namespace {

constexpr U32 minFrameOctets = 64;
constexpr U32 maxUntaggedOctets = 1518;
constexpr U32 tagOctets = 4;
constexpr U32 headerAndFcsOctets = 18;
constexpr U32 minDataOctets = 46;
constexpr U16 maxLengthField = 1500;
constexpr U16 minTypeField = 1536;
constexpr unsigned pfcPriorityCount = 8;

constexpr bool tableIsInOrder() {
   constexpr std::size_t nameWidth = 40; // of the operator's table, at least one blank included
   for (std::size_t i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
      if (static_cast<std::size_t>(rmonCounters[i].index) != i) {
         return false;
      }
      if (std::string_view(rmonCounters[i].name).size() >= nameWidth) {
         return false;
      }
   }
   return true;
}
static_assert(tableIsInOrder(), "rmonCounters must be in the order of bf_rmon_counter_t, names below 40");

// The longest frame of each size bucket; the last bucket has no upper end.
constexpr std::array<U32, 10> bucketLimits = {64, 127, 255, 511, 1023, 1518, 2047, 4095, 8191, 9215};
static_assert(BF_RMON_FRAMES_RECEIVED_9216_OR_MORE_OCTETS - BF_RMON_FRAMES_RECEIVED_64_OCTETS ==
              bucketLimits.size());
static_assert(BF_RMON_FRAMES_TRANSMITTED_9216_OR_MORE_OCTETS - BF_RMON_FRAMES_TRANSMITTED_64_OCTETS ==
              bucketLimits.size());

// The indices of the counters that both directions have.
struct Direction {
   std::size_t framesOk, framesAll, fcsErrors, errors;
   std::size_t octetsGood, octetsAll, dataOctets;
   std::array<std::size_t, 3> byDestination; // indexed by Destination
   std::size_t tagged, doubleTagged;
   std::size_t macControl, pause, pfc, pfcPriority0;
   std::size_t undersize, oversize, fragments, jabbers;
   std::size_t firstBucket;
};

constexpr Direction received = {
     .framesOk = BF_RMON_FRAMES_RECEIVED_OK,
     .framesAll = BF_RMON_FRAMES_RECEIVED_ALL,
     .fcsErrors = BF_RMON_FRAME_CHECK_SEQUENCE_ERRORS,
     .errors = BF_RMON_FRAMES_RECEIVED_WITH_ERRORS,
     .octetsGood = BF_RMON_OCTETS_RECEIVED_GOOD,
     .octetsAll = BF_RMON_OCTETS_RECEIVED_ALL,
     .dataOctets = BF_RMON_DATA_OCTETS_RECEIVED_OK,
     .byDestination = {BF_RMON_UNICAST_FRAMES_RECEIVED_OK, BF_RMON_MULTICAST_FRAMES_RECEIVED_OK,
                       BF_RMON_BROADCAST_FRAMES_RECEIVED_OK},
     .tagged = BF_RMON_VLAN_TAGGED_FRAMES_RECEIVED_OK,
     .doubleTagged = BF_RMON_DOUBLE_TAGGED_FRAMES_RECEIVED_OK,
     .macControl = BF_RMON_MAC_CONTROL_FRAMES_RECEIVED,
     .pause = BF_RMON_PAUSE_FRAMES_RECEIVED,
     .pfc = BF_RMON_PFC_FRAMES_RECEIVED,
     .pfcPriority0 = BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_0,
     .undersize = BF_RMON_UNDERSIZE_FRAMES_RECEIVED,
     .oversize = BF_RMON_OVERSIZE_FRAMES_RECEIVED,
     .fragments = BF_RMON_FRAGMENTS_RECEIVED,
     .jabbers = BF_RMON_JABBERS_RECEIVED,
     .firstBucket = BF_RMON_FRAMES_RECEIVED_64_OCTETS,
};

constexpr Direction transmitted = {
     .framesOk = BF_RMON_FRAMES_TRANSMITTED_OK,
     .framesAll = BF_RMON_FRAMES_TRANSMITTED_ALL,
     .fcsErrors = BF_RMON_FRAMES_TRANSMITTED_WITH_FCS_ERROR,
     .errors = BF_RMON_FRAMES_TRANSMITTED_WITH_ERRORS,
     .octetsGood = BF_RMON_OCTETS_TRANSMITTED_GOOD,
     .octetsAll = BF_RMON_OCTETS_TRANSMITTED_ALL,
     .dataOctets = BF_RMON_DATA_OCTETS_TRANSMITTED_OK,
     .byDestination = {BF_RMON_UNICAST_FRAMES_TRANSMITTED_OK, BF_RMON_MULTICAST_FRAMES_TRANSMITTED_OK,
                       BF_RMON_BROADCAST_FRAMES_TRANSMITTED_OK},
     .tagged = BF_RMON_VLAN_TAGGED_FRAMES_TRANSMITTED_OK,
     .doubleTagged = BF_RMON_DOUBLE_TAGGED_FRAMES_TRANSMITTED_OK,
     .macControl = BF_RMON_MAC_CONTROL_FRAMES_TRANSMITTED,
     .pause = BF_RMON_PAUSE_FRAMES_TRANSMITTED,
     .pfc = BF_RMON_PFC_FRAMES_TRANSMITTED,
     .pfcPriority0 = BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_0,
     .undersize = BF_RMON_UNDERSIZE_FRAMES_TRANSMITTED,
     .oversize = BF_RMON_OVERSIZE_FRAMES_TRANSMITTED,
     .fragments = BF_RMON_FRAGMENTS_TRANSMITTED,
     .jabbers = BF_RMON_JABBERS_TRANSMITTED,
     .firstBucket = BF_RMON_FRAMES_TRANSMITTED_64_OCTETS,
};

std::size_t bucketOf(U32 wireLength) {
   std::size_t bucket = 0;
   while (bucket < bucketLimits.size() && wireLength > bucketLimits[bucket]) {
      ++bucket;
   }
   return bucket;
}

void countMacControl(const Direction& direction, const MacControl& control, U64* rmon, U64 repeat) {
   rmon[direction.macControl] += repeat;
   if (control.opcode == macControlPause) {
      rmon[direction.pause] += repeat;
   }
   if (control.opcode != macControlPfc) {
      return;
   }
   rmon[direction.pfc] += repeat;
   for (unsigned priority = 0; priority < pfcPriorityCount; ++priority) {
      if ((control.pfcPriorities >> priority & 1) != 0) {
         rmon[direction.pfcPriority0 + priority] += repeat;
      }
   }
}

void countGood(const Direction& direction, const FrameInfo& frame, U64* rmon, U64 repeat) {
   rmon[direction.framesOk] += repeat;
   rmon[direction.octetsGood] += repeat * frame.wireLength;
   if (frame.wireLength > headerAndFcsOctets) {
      rmon[direction.dataOctets] += repeat * (frame.wireLength - headerAndFcsOctets);
   }
   // MAC control frames too, so that each good frame is one of the three.
   rmon[direction.byDestination[static_cast<std::size_t>(frame.destination)]] += repeat;
   if (frame.tagged()) {
      rmon[direction.tagged] += repeat;
   }
   if (frame.tagCount > 1) {
      rmon[direction.doubleTagged] += repeat;
   }
   if (frame.macControl.present) {
      countMacControl(direction, frame.macControl, rmon, repeat);
   }
}

void count(const Direction& direction, const FrameInfo& frame, U64* rmon, U64 repeat) {
   rmon[direction.framesAll] += repeat;
   rmon[direction.octetsAll] += repeat * frame.wireLength;
   if (frame.wireLength < minFrameOctets) {
      rmon[frame.fcsError ? direction.fragments : direction.undersize] += repeat;
   } else {
      rmon[direction.firstBucket + bucketOf(frame.wireLength)] += repeat;
   }
   // Whatever the tags: only so do oversize frames and jabbers add up to the size buckets from 1519 octets.
   if (frame.wireLength > maxUntaggedOctets) {
      rmon[frame.fcsError ? direction.jabbers : direction.oversize] += repeat;
   }
   if (frame.fcsError) {
      rmon[direction.fcsErrors] += repeat;
      rmon[direction.errors] += repeat;
   } else {
      countGood(direction, frame, rmon, repeat);
   }
}

// Whether the length field disagrees with the frame. Data below the minimum is padded up to it; any other length must
// match exactly (IEEE 802.3, clause 30, aInRangeLengthErrors).
bool lengthFieldMismatches(const FrameInfo& frame) {
   if (!frame.hasEtherType || frame.etherType > maxLengthField) {
      return false;
   }
   U32 overhead = headerAndFcsOctets + tagOctets * frame.tagCount;
   U32 dataOctets = frame.wireLength > overhead ? frame.wireLength - overhead : 0;
   return frame.etherType < minDataOctets ? dataOctets > minDataOctets : dataOctets != frame.etherType;
}

} // namespace

void countReceived(const FrameInfo& frame, U64* rmon, U64 repeat) {
   count(received, frame, rmon, repeat);
   if (frame.fcsError) {
      // RFC 2819: a bad frame of another length is a fragment or a jabber instead.
      if (frame.wireLength >= minFrameOctets && frame.wireLength <= maxUntaggedOctets) {
         rmon[BF_RMON_CRC_ALIGN_ERRORS] += repeat;
      }
      return;
   }
   if (lengthFieldMismatches(frame)) {
      rmon[BF_RMON_IN_RANGE_LENGTH_ERRORS] += repeat;
   }
   // Between the two a field is neither a length nor a type (IEEE 802.3).
   if (frame.etherType > maxLengthField && frame.etherType < minTypeField) {
      rmon[BF_RMON_OUT_OF_RANGE_LENGTH_FIELDS] += repeat;
   }
   const MacControl& control = frame.macControl;
   if (control.present && control.opcode != macControlPause && control.opcode != macControlPfc) {
      rmon[BF_RMON_UNSUPPORTED_OPCODES_RECEIVED] += repeat;
   }
}

void countTransmitted(const FrameInfo& frame, U64* rmon, U64 repeat) {
   count(transmitted, frame, rmon, repeat);
}

} // namespace SoftChip
