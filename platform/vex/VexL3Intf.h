// The forwarding layer's L3 interfaces and the VLAN that carries each.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "kiln/Name.h"
#include "zel/Pelt.h"

namespace VexL3Intf {

// The low 16 bits of a nonzero value are the VLAN; zero stands for no interface.
class Table : public Kiln::Entity {
 public:
   class Notifiee : public Kiln::NotifieeOf<Table> {
    public:
      using NotifieeOf::NotifieeOf;
      // The interface was added, changed or deleted.
      virtual void onIntfL3Index(const Pelt::IntfId&) {}
   };
   KILN_NOTIFIER

   explicit Table(Kiln::Name name) : name_(name) {}
   const Kiln::Name& name() const { return name_; }

   KILN_HASH_MAP_NOTIFY(Pelt::IntfId, U32, intfIdToL3Id, onIntfL3Index)

 private:
   Kiln::Name name_;
};

} // namespace VexL3Intf

namespace Vex {

// Switches on the notifications of the L3 interface table, once all of its watchers exist.
class VexL3IntfSm : public Kiln::Entity {
 public:
   explicit VexL3IntfSm(Kiln::Ptr<VexL3Intf::Table> table) : table_(std::move(table)) {}
   void hasNotificationActiveIs(bool active) override {
      Entity::hasNotificationActiveIs(active);
      table_->hasNotificationActiveIs(active);
   }

 private:
   Kiln::Ptr<VexL3Intf::Table> table_;
};

class VexL3IntfData : public Kiln::PtrInterface {
 public:
   explicit VexL3IntfData(Kiln::Name name) : name_(name) {}
   const Kiln::Name& name() const { return name_; }

   KILN_POINTER(VexL3Intf::Table, vexL3IntfTable)

   const Kiln::Ptr<VexL3IntfSm>& vexL3IntfSm() const { return vexL3IntfSm_; }
   void vexL3IntfSmIs(Kiln::Ptr<VexL3Intf::Table> table, bool notificationActive) {
      vexL3IntfSm_ = Kiln::allocate<VexL3IntfSm>(std::move(table));
      vexL3IntfSm_->hasNotificationActiveIs(notificationActive);
   }

 private:
   Kiln::Name name_;
   Kiln::Ptr<VexL3IntfSm> vexL3IntfSm_;
};

} // namespace Vex
