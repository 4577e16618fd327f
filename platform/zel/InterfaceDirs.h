// The interface directories that the platform mounts: which interfaces of each kind are configured, and which exist.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "zel/Pelt.h"

namespace Interface {

// Interfaces by name; the value of a listed one is true.
class IntfDir : public Kiln::Entity {
 public:
   class Notifiee : public Kiln::NotifieeOf<IntfDir> {
    public:
      using NotifieeOf::NotifieeOf;
      // The interface's entry came or went.
      virtual void onIntfStatus(const Pelt::IntfId&) {}
   };
   KILN_NOTIFIER

   KILN_HASH_MAP_NOTIFY(Pelt::IntfId, bool, intfStatus, onIntfStatus)
};

// The three ...ConfigDir are only carried among the mounts: an interface is counted while a status directory has it,
// whatever its configuration says.
class EthPhyIntfConfigDir : public IntfDir {};
class EthPhyIntfStatusDir : public IntfDir {
 public:
   static constexpr U64 defaultSpeed = 100'000'000'000;

   // A port's speed in bit/s; defaultSpeed if the platform does not say.
   U64 speedOrDefault(const Pelt::IntfId& intf) const {
      const U64* const told = speed().find(intf);
      return told != nullptr ? *told : defaultSpeed;
   }
   KILN_HASH_MAP(Pelt::IntfId, U64, speed)
};
class VlanIntfConfigDir : public IntfDir {};
class VlanIntfStatusDir : public IntfDir {};
class SubIntfConfigDir : public IntfDir {};
class SubIntfStatusDir : public IntfDir {};

// Settings that hold for every interface. Only carried among the mounts: nothing here reads them.
class GlobalIntfConfig : public Kiln::PtrInterface {};

} // namespace Interface

namespace Bridging {

// The bridging configuration. Only carried among the mounts: nothing here reads it.
class BridgingConfig : public Kiln::PtrInterface {};

} // namespace Bridging
