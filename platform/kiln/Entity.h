// Entities and their watchers.
//
// An Entity is an object with attributes that others may watch. Its class declares a nested
//
//    class Notifiee : public Kiln::NotifieeOf<Port> {
//     public:
//       using NotifieeOf::NotifieeOf;
//       virtual void onSpeed() {}
//    };
//    KILN_NOTIFIER
//
// and a reactor (a class whose name ends in Sm) watches it through a nested notifiee of one line an event:
//
//    struct KilnPort : Port::Notifiee {
//       explicit KilnPort(PortSm* owner) : Notifiee(owner), sm(owner) {}
//       void onSpeed() override { sm->handleSpeed(); }
//       PortSm* sm;
//    };
//
// An event passes only when both the entity's and the reactor's hasNotificationActive are true; it is false until the
// factory that made the object has wired it. Everything here belongs to the activity thread.
#pragma once

#include "kiln/Ptr.h"

#include <exception>
#include <memory>
#include <vector>

namespace Kiln {

class Entity : public PtrInterface {
 public:
   bool hasNotificationActive() const noexcept { return hasNotificationActive_; }
   virtual void hasNotificationActiveIs(bool active) { hasNotificationActive_ = active; }

 protected:
   // Keeps the entity alive while it works. Null when no pointer holds it (yet), since this one would be the last.
   Ptr<const Entity> heldSelf() const noexcept { return refCount() != 0 ? this : nullptr; }

 private:
   bool hasNotificationActive_ = false;
};

// The watchers of one entity. During a notification watchers may come, go and throw, and the entity itself may end.
// When one throws, the others are still notified; then the first exception goes on to the caller. A watcher that comes
// during a notification does not get that one.
template <class N>
class NotifieeList {
 public:
   void attach(N* notifiee) const { state_->slots.push_back(notifiee); }

   void detach(const void* notifiee) const {
      for (N*& slot : state_->slots) {
         if (slot == notifiee) {
            slot = nullptr;
         }
      }
      if (state_->depth == 0) {
         std::erase(state_->slots, nullptr);
      }
   }

   // Arguments by value: one may live in what a watcher deletes.
   template <class Event, class... Args>
   void notify(Event event, const Args... args) const {
      const std::shared_ptr<State> state = state_; // the entity may die while it notifies
      const Depth depth(*state);
      std::exception_ptr first;
      const std::size_t count = state->slots.size();
      for (std::size_t i = 0; i < count; ++i) {
         N* const notifiee = state->slots[i];
         if (notifiee == nullptr || !notifiee->isActive()) {
            continue;
         }
         try {
            (notifiee->*event)(args...);
         } catch (...) {
            if (!first) {
               first = std::current_exception();
            }
         }
      }
      if (first) {
         std::rethrow_exception(first);
      }
   }

 private:
   struct State {
      std::vector<N*> slots; // null: the watcher went during a notification
      unsigned depth = 0;    // of nested notifications; slots move only at 0
   };
   struct Depth {
      explicit Depth(State& of) : state(of) { ++state.depth; }
      Depth(const Depth&) = delete;
      Depth& operator=(const Depth&) = delete;
      ~Depth() {
         if (--state.depth == 0) {
            std::erase(state.slots, nullptr);
         }
      }
      State& state;
   };

   std::shared_ptr<State> state_ = std::make_shared<State>();
};

// The base of every E::Notifiee: holds the watched entity and attaches to it. The reactor, when given, has it as a
// member and so outlives it; the reactor's hasNotificationActive gates the events.
template <class E>
class NotifieeOf {
 public:
   explicit NotifieeOf(const Entity* reactor = nullptr) : reactor_(reactor) {}
   NotifieeOf(const NotifieeOf&) = delete;
   NotifieeOf& operator=(const NotifieeOf&) = delete;
   virtual ~NotifieeOf() { detach(); }

   const Ptr<const E>& notifier() const { return notifier_; }

   // Watches another entity, or none.
   void notifierIs(Ptr<const E> notifier) {
      detach();
      notifier_ = std::move(notifier);
      if (notifier_) {
         auto* const self = static_cast<typename E::Notifiee*>(this);
         notifier_->notifiees().attach(self);
         attached_ = self;
      }
   }

   bool isActive() const { return reactor_ == nullptr || reactor_->hasNotificationActive(); }

 private:
   void detach() {
      if (notifier_) {
         notifier_->notifiees().detach(attached_);
      }
   }

   const Entity* reactor_;
   Ptr<const E> notifier_;
   // The address under which this object is in the list: in the destructor it can no longer be cast to E::Notifiee.
   const void* attached_ = nullptr;
};

} // namespace Kiln

// Declares in an entity class, after its Notifiee: notifiees(), the list that notifiees attach to, and
// notify(event, args...), which tells them while hasNotificationActive.
#define KILN_NOTIFIER                                                                                        \
 public:                                                                                                     \
   const ::Kiln::NotifieeList<Notifiee>& notifiees() const {                                                 \
      return notifiees_;                                                                                     \
   }                                                                                                         \
                                                                                                             \
 protected:                                                                                                  \
   template <class Event, class... Args>                                                                     \
   void notify(Event event, const Args&... args) const {                                                     \
      if (hasNotificationActive()) {                                                                         \
         notifiees_.notify(event, args...);                                                                  \
      }                                                                                                      \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   ::Kiln::NotifieeList<Notifiee> notifiees_;                                                                \
                                                                                                             \
 public:
