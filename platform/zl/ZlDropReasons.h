// The drop tables of the switch's program: which entry counts what, and the texts of the reasons. The ingress table
// counts frames dropped at ingress, by the port of arrival; the egress table counts dropped copies, by the port that
// they would have left by; the final table counts frames that lost every copy, by the port of arrival.
#pragma once

#include "kiln/Types.h"
#include "zl/ZlPortLayout.h"

#include <array>
#include <span>

namespace ZlDrop {

// A pipe's block of a table: an entry for each reason of each port slot.
constexpr U32 reasonsPerPort = 16;
constexpr U32 tableSize = ZlPort::slotsPerPipe * reasonsPerPort;
static_assert(tableSize == 2048);

constexpr U32 entryIndex(U32 slot, U32 reason) {
   return slot * reasonsPerPort + reason;
}

enum class IngressReason : U8 {
   badFcs,
   vlanInvalid,
   vlanNotAllowed,
   groupSource,
   qosPolicy,
   aclDeny,
   samePort,
   unknownUnicast,
   noEgressPort
};

enum class EgressReason : U8 { queueCongested, vlanNotAllowed, aclDeny, mtuExceeded };

// How far the copy that got furthest came.
enum class FinalReason : U8 { port, ingress, queue, egress };

// In the order of the reasons' numbers, which is also the order in which the chip decides.
inline constexpr std::array ingressReasons = {
     "bad FCS",    "invalid VLAN id", "VLAN not allowed",         "group source address", "QoS policy",
     "ACL denied", "same port",       "unknown unicast filtered", "no egress port",
};
inline constexpr std::array egressReasons = {"queue congested", "VLAN not allowed", "ACL denied",
                                             "MTU exceeded"};
inline constexpr std::array finalReasons = {"lost at the port", "lost at ingress", "lost in the queues",
                                            "lost at egress"};
static_assert(ingressReasons.size() == static_cast<std::size_t>(IngressReason::noEgressPort) + 1);
static_assert(egressReasons.size() == static_cast<std::size_t>(EgressReason::mtuExceeded) + 1);
static_assert(finalReasons.size() == static_cast<std::size_t>(FinalReason::egress) + 1);

struct Table {
   const char* name; // of the counter table
   const char* point;
   std::span<const char* const> reasons;
};

enum class Point : U8 { ingress, egress, final };

// Indexed by Point.
inline constexpr std::array tables = {
     Table{"ingressPortDropCount", "ingress", ingressReasons},
     Table{"egressPortDropCount", "egress", egressReasons},
     Table{"finalDropControlCount", "final", finalReasons},
};

} // namespace ZlDrop
