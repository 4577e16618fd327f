// The forwarding layer's messages for the operator.
#pragma once

#include "kiln/Collections.h"
#include "kiln/OperatorLog.h"
#include "silo/Errors.h"
#include "zel/Pelt.h"

#include <exception>
#include <string_view>

namespace Vex {

extern const Kiln::LogMessage VEX_COUNTERS_PUBLISH_ERROR;
extern const Kiln::LogMessage VEX_COUNTERS_HISTORY_ERROR;
extern const Kiln::LogMessage VEX_COUNTERS_TABLE_CORRUPT;
extern const Kiln::LogMessage VEX_COUNTERS_TABLE_LOST;
extern const Kiln::LogMessage VEX_COUNTERS_TABLE_TAKEN_OVER;

// The corruption handler of the shared tables.
void logCorruption(const Silo::Corruption& corruption);

// An interface's published counters, or those of "all", were cleared: that is an event, with who did it. Its text begins so.
inline constexpr std::string_view publishedClear = "published counters of ";
void tellPublishedClear(const Kiln::String& name);

// Tells the operator, once per interface, that its counters cannot be published and why. That its name is no key of a
// table is told once for all tables. Activity thread.
class PublishErrors {
 public:
   PublishErrors() = default;
   PublishErrors(const PublishErrors&) = delete;
   PublishErrors& operator=(const PublishErrors&) = delete;
   ~PublishErrors();

   void log(const Pelt::IntfId& intf, const std::exception& error);
   // The interface's counters were published, or it is gone: its next error is logged again.
   void forget(const Pelt::IntfId& intf);

 private:
   Kiln::HashMap<Pelt::IntfId, bool> logged_;
};

} // namespace Vex
