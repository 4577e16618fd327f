// The shared tables that the agent mounts for the counters library.
#pragma once

#include "kiln/Ptr.h"

namespace Silo {

namespace Interface {

// Interface counters as published now, and as they stood at the last clear.
class AllIntfCounters : public Kiln::PtrInterface {};
class AllIntfClearCounters : public Kiln::PtrInterface {};
class AllIntfQueueCounters : public Kiln::PtrInterface {};
class AllIntfClearQueueCounters : public Kiln::PtrInterface {};
class AllVlanIntfCounters : public Kiln::PtrInterface {};
class SubIntfCountersDir : public Kiln::PtrInterface {};
class SubIntfCountersSnapshotDir : public Kiln::PtrInterface {};
class AllNatCounterDir : public Kiln::PtrInterface {};

} // namespace Interface

namespace ZelSystem {

class P4CounterTable : public Kiln::PtrInterface {};
class AclCounterTable : public Kiln::PtrInterface {};

} // namespace ZelSystem

} // namespace Silo

namespace ZelAclCounter {

class AclCounterClearRequest : public Kiln::PtrInterface {};
class AclCounterClearResponse : public Kiln::PtrInterface {};

} // namespace ZelAclCounter
