// Interface identifiers.
#pragma once

#include "kiln/Name.h"

#include <iosfwd>

namespace Pelt {

// An interface by its name ("Ethernet1", "Ethernet3.100", "Vlan20", "Internal1"). Copies, compares for
// equality and hashes as an integer; orders naturally, Ethernet2 before Ethernet10. Default: the empty name,
// no interface.
class IntfId {
 public:
   IntfId() noexcept = default;
   explicit IntfId(Kiln::Name name) noexcept : name_(name) {}
   explicit IntfId(const char* name) : name_(name) {}

   const Kiln::Name& name() const noexcept { return name_; }
   const Kiln::String& text() const noexcept { return name_.text(); }
   bool empty() const noexcept { return name_.empty(); }

   bool operator==(const IntfId&) const noexcept = default;
   bool operator<(const IntfId& other) const noexcept {
      return name_ != other.name_ && Kiln::naturalCompare(text(), other.text()) < 0;
   }

 private:
   Kiln::Name name_;
};

// Interfaces that face the switch's own CPU: the letters "Internal" and a number.
class InternalIntfId {
 public:
   static bool isInternalIntfId(const IntfId& intf) noexcept;
};

std::ostream& operator<<(std::ostream& out, const IntfId& intf);

} // namespace Pelt

template <>
struct std::hash<Pelt::IntfId> {
   std::size_t operator()(const Pelt::IntfId& intf) const noexcept { return intf.name().hash(); }
};
