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
// Events are given only by an entity, and only to a reactor, whose hasNotificationActive is true; it is false
// until the factory that made the object has wired it. Everything here belongs to the activity thread.
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
   // Keeps an entity that is held by pointers alive for a while; null for one that is not (yet).
   Ptr<const Entity> heldSelf() const noexcept { return refCount() != 0 ? this : nullptr; }

 private:
   bool hasNotificationActive_ = false;
};

// The watchers of one entity. A notification survives a watcher that comes or goes, that throws (the others
// are still told, then the first exception goes on to the caller), and the end of the entity itself. A
// watcher that comes during a notification is not told of it.
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

   // By value: an argument may live in what a watcher deletes.
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
      std::vector<N*> slots;
      unsigned depth = 0;
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

// The base of every E::Notifiee: holds the watched entity and attaches to it. The reactor that it belongs to,
// when given, must outlive it (it is a member of the reactor) and gates the events.
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
   // This object as the list knows it: its destructor is past being an E::Notifiee.
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
