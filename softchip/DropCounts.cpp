// Counts each drop in its port's table and in the stage that decided it.
#include "softchip/DropCounts.h"

namespace SoftChip {

namespace {

using ZlDrop::EgressReason;
using ZlDrop::FinalReason;
using ZlDrop::IngressReason;
using ZlDrop::Point;

bf_pipe_mau_stage_t mauStageOf(IngressReason reason) {
   switch (reason) {
   case IngressReason::qosPolicy:
      return BF_PIPE_MAU_QOS_POLICY;
   case IngressReason::aclDeny:
      return BF_PIPE_MAU_INGRESS_ACL;
   case IngressReason::samePort:
   case IngressReason::unknownUnicast:
      return BF_PIPE_MAU_FORWARDING;
   default:
      return BF_PIPE_MAU_INGRESS_PORT_CHECK;
   }
}

} // namespace

DropCounts::DropCounts(PipeManager& tables, PathCounters& path) : tables_(), path_(path) {
   for (std::size_t point = 0; point < tables_.size(); ++point) {
      tables_[point] = tables.counterTable(ZlDrop::tables[point].name);
   }
}

void DropCounts::count(Point point, U16 devicePort, U32 reason, U64 packets) {
   CounterTable* const table = tables_[static_cast<std::size_t>(point)];
   const U32 slot = ZlDrop::entryIndex(ZlPort::slotOf(devicePort), reason);
   if (table != nullptr && slot < table->slots()) {
      // Without bytes, which the drop tables do not count.
      table->count(ZlPort::pipeOf(devicePort), slot, packets, 0);
   }
}

void DropCounts::ingress(U16 devicePort, IngressReason reason, U64 packets) {
   const unsigned pipe = ZlPort::pipeOf(devicePort);
   count(Point::ingress, devicePort, static_cast<U32>(reason), packets);
   // No copy was made yet, so the frame as a whole is lost.
   lost(devicePort, reason == IngressReason::badFcs ? FinalReason::port : FinalReason::ingress, packets);
   if (reason == IngressReason::badFcs) {
      path_.dropped(pipe, BF_PIPE_PATH_PORT_RX, packets);
   } else if (reason == IngressReason::noEgressPort) {
      path_.passed(pipe, BF_PIPE_PATH_INGRESS, packets);
      path_.dropped(pipe, BF_PIPE_PATH_INGRESS_DEPARSER, packets);
      // Not by a match-action stage as well, so that the two counts can be added.
      path_.deparserDrops(pipe, BF_PIPE_INGRESS) += packets;
   } else {
      path_.dropped(pipe, BF_PIPE_PATH_INGRESS, packets);
      path_.mauDrops(pipe, mauStageOf(reason)) += packets;
   }
}

void DropCounts::egress(U16 devicePort, EgressReason reason, U64 packets) {
   const unsigned pipe = ZlPort::pipeOf(devicePort);
   count(Point::egress, devicePort, static_cast<U32>(reason), packets);
   if (reason == EgressReason::queueCongested) {
      path_.count(pipe, BF_PIPE_PATH_TRAFFIC_MANAGER, 0, 0, packets);
   } else if (reason == EgressReason::mtuExceeded) {
      path_.passed(pipe, BF_PIPE_PATH_EGRESS, packets);
      path_.dropped(pipe, BF_PIPE_PATH_EGRESS_DEPARSER, packets);
      path_.deparserDrops(pipe, BF_PIPE_EGRESS) += packets;
   } else {
      path_.dropped(pipe, BF_PIPE_PATH_EGRESS, packets);
      path_.mauDrops(pipe, reason == EgressReason::vlanNotAllowed ? BF_PIPE_MAU_EGRESS_PORT_CHECK
                                                                  : BF_PIPE_MAU_EGRESS_ACL) += packets;
   }
}

void DropCounts::lost(U16 devicePort, FinalReason reason, U64 packets) {
   if (packets > 0) {
      count(Point::final, devicePort, static_cast<U32>(reason), packets);
   }
}

} // namespace SoftChip
