// Listens at the SDK's boundary: which requests the chips accepted, and when each is answered.
#pragma once

#include "kiln/Types.h"
#include "sdk/bf_rmon.h"

namespace Campaign {

// An accepted request. `life` is what the listener's lifeOf() said when it was made.
struct Request {
   enum class Kind : U8 { mac, tableSync, queueSync };
   Kind kind = Kind::mac;
   U8 device = 0;
   U16 place = 0; // a device port, or a pipe (65535 for all)
   U32 life = 0;
};

// All requests of the library that complete later go through the tap, which the linker puts before the SDK. One thread.
class SdkListener {
 public:
   SdkListener();
   SdkListener(const SdkListener&) = delete;
   SdkListener& operator=(const SdkListener&) = delete;
   virtual ~SdkListener();

   virtual U32 lifeOf(U8 device) const = 0;
   virtual void requested(const Request& request) = 0; // before an inline answer
   virtual void refused(const Request& request) = 0;
   virtual void accepted(const Request& request) = 0; // perhaps answered by now
   // Before and after the library is called back. `values` of MAC reads only.
   virtual void answering(const Request& request) = 0;
   virtual void answered(const Request& request, const bf_rmon_counter_array_t* values) = 0;
};

} // namespace Campaign
