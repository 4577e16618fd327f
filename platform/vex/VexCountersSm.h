// The forwarding layer's interface counters reactor.
#pragma once

#include "kiln/Accessors.h"
#include "vex/SharedTables.h"
#include "vex/VexCommonSmData.h"
#include "vex/VexHelper.h"
#include "vex/VexTypes.h"
#include "zel/InterfaceDirs.h"

namespace Vex::Counters {

// Who writes the interface counters, and whether it does.
class WriterConfig : public Kiln::PtrInterface {};
class WriterStatus : public Kiln::PtrInterface {};
class CliConfig : public Kiln::PtrInterface {};

class CountersSm : public Kiln::Entity {
 public:
   explicit CountersSm(Kiln::Ptr<VexHelper::VexHelperCountersSm> helper) : helper_(std::move(helper)) {}
   virtual ~CountersSm() override = default;

   // New raw counters of an interface are there. An empty or unknown interface is ignored.
   virtual void updateCounters(VexTypes::CounterType, const Pelt::IntfId&) {}

   KILN_POINTER(WriterStatus, ethIntfCounterWriterStatus)
   KILN_POINTER(WriterConfig, writerConfig)

 private:
   Kiln::Ptr<VexHelper::VexHelperCountersSm> helper_;
};

} // namespace Vex::Counters
