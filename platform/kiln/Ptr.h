// Reference-counted pointers. An object that is held by Kiln::Ptr derives from Kiln::PtrInterface and is made
// with Kiln::allocate; it dies with its last Ptr.
//
// Ownership runs downward by Ptr; back-pointers upward are raw. Counting uses plain loads and stores until the process
// switches thread-safe pointer mode on, and atomic read-modify-writes from then on: a single-threaded agent does not
// pay for locked instructions. Switch it on before a second thread can hold a Ptr, and never off while one does.
#pragma once

#include "kiln/Types.h"

#include <atomic>
#include <functional>
#include <utility>

namespace Kiln {

namespace detail {
extern std::atomic<bool> threadSafePointers;
extern std::atomic<U64> trackedObjects;
} // namespace detail

inline bool threadSafePtrMode() noexcept {
   return detail::threadSafePointers.load(std::memory_order_relaxed);
}
void threadSafePtrModeIs(bool on) noexcept;

// How many objects made by Kiln::allocate are alive in the process. Any thread.
U64 trackedObjectCount() noexcept;

class PtrInterface {
 public:
   PtrInterface() noexcept = default;
   PtrInterface(const PtrInterface&) = delete;
   PtrInterface& operator=(const PtrInterface&) = delete;

   void refInc() const noexcept {
      if (threadSafePtrMode()) {
         refs_.fetch_add(1, std::memory_order_relaxed);
      } else {
         refs_.store(refs_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
      }
   }

   void refDec() const noexcept {
      U32 before = 0;
      if (threadSafePtrMode()) {
         // Acquire and release: what the other holders did with the object happens before its end.
         before = refs_.fetch_sub(1, std::memory_order_acq_rel);
      } else {
         before = refs_.load(std::memory_order_relaxed);
         refs_.store(before - 1, std::memory_order_relaxed);
      }
      if (before == 1) {
         destroy();
      }
   }

   U32 refCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

 protected:
   virtual ~PtrInterface() = default;

 private:
   template <class T, class... Args>
   friend auto allocate(Args&&... args);

   void destroy() const noexcept;

   mutable std::atomic<U32> refs_{0};
   mutable bool tracked_ = false;
};

template <class T>
class Ptr {
 public:
   constexpr Ptr() noexcept = default;
   constexpr Ptr(std::nullptr_t) noexcept {}
   Ptr(T* object) noexcept : object_(object) { hold(); }
   Ptr(const Ptr& other) noexcept : object_(other.object_) { hold(); }
   Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
   template <class U>
   requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
   noexcept : object_(other.ptr()) { hold(); }
   ~Ptr() { release(); }

   Ptr& operator=(Ptr other) noexcept {
      std::swap(object_, other.object_);
      return *this;
   }

   T* ptr() const noexcept { return object_; }
   T* operator->() const noexcept { return object_; }
   T& operator*() const noexcept { return *object_; }
   explicit operator bool() const noexcept { return object_ != nullptr; }

   template <class U>
   bool operator==(const Ptr<U>& other) const noexcept {
      return object_ == other.ptr();
   }
   bool operator==(std::nullptr_t) const noexcept { return object_ == nullptr; }

 private:
   void hold() const noexcept {
      if (object_ != nullptr) {
         object_->refInc();
      }
   }
   void release() noexcept {
      if (object_ != nullptr) {
         std::exchange(object_, nullptr)->refDec();
      }
   }

   T* object_ = nullptr;
};

// Makes a tracked T on the heap and returns its first Ptr. T's constructor and destructor must not make a Ptr to the
// object itself: that one would also be the last, and destroy it.
template <class T, class... Args>
auto allocate(Args&&... args) {
   Ptr<T> made(new T(std::forward<Args>(args)...));
   made->tracked_ = true;
   detail::trackedObjects.fetch_add(1, std::memory_order_relaxed);
   return made;
}

} // namespace Kiln

template <class T>
struct std::hash<Kiln::Ptr<T>> {
   std::size_t operator()(const Kiln::Ptr<T>& p) const noexcept { return std::hash<T*>()(p.ptr()); }
};
