// Protocol data (PDP) classes: the kinds of packets that an ingress port counts apart, and their names.
#pragma once

#include "kiln/Accessors.h"
#include "zl/ZlPortLayout.h"

#include <array>

namespace ZelQos {

// A class of the chip's PDP policy: 0 to 31. Throws std::range_error for anything else.
class PdpClassId {
 public:
   static constexpr U8 max = ZlPort::pdpClassesPerSlot - 1;

   constexpr PdpClassId() noexcept = default; // class 0
   explicit PdpClassId(U32 value);
   constexpr U8 value() const noexcept { return value_; }
   bool operator==(const PdpClassId&) const noexcept = default;

 private:
   U8 value_ = 0;
};

// The packets that one interface received, by class.
class PdpIntfCounter : public Kiln::PtrInterface {
 public:
   static constexpr std::size_t classes = PdpClassId::max + 1;

   // A class that was never written counts 0.
   U64 classCount(PdpClassId pdpClass) const { return classCount_[pdpClass.value()]; }
   void classCountIs(PdpClassId pdpClass, U64 packets) { classCount_[pdpClass.value()] = packets; }
   const std::array<U64, classes>& classCount() const { return classCount_; }
   void classCountsAre(const std::array<U64, classes>& counts) { classCount_ = counts; }

 private:
   std::array<U64, classes> classCount_{};
};

// The QoS configuration's class names, in the order in which they are shown. "default" need not be among them.
class QosToZelPdpClassMapping : public Kiln::PtrInterface {
 public:
   // Class 0 for an unknown name.
   KILN_HASH_MAP(Kiln::String, PdpClassId, zelPdpClass)
};

} // namespace ZelQos
