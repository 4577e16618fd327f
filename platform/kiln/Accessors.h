// The macros that declare attributes. A class that says
//
//    class Port : public Kiln::Entity {
//       class Notifiee : ... { virtual void onSpeed() {}  virtual void onVlan(Bridging::VlanId) {} };
//       KILN_NOTIFIER
//       KILN_ATTRIBUTE(Kiln::String, description)
//       KILN_ATTRIBUTE_NOTIFY(U64, speed, onSpeed)
//       KILN_COUNTER(U32, errors)
//       KILN_POINTER(Owner, owner)
//       KILN_HASH_MAP_NOTIFY(Bridging::VlanId, bool, vlan, onVlan)
//       KILN_COLLECTION(Net::Port, U8, Lane, laneId, lane)
//    };
//
// gets, with the private members description_, speed_, ... behind them:
//
//    KILN_ATTRIBUTE      const T& x() const;  void xIs(T)
//                        Further arguments are the initial value: KILN_ATTRIBUTE(double, delay, 2.0).
//    KILN_SECONDS        an interval that can be set: KILN_SECONDS(retryDelay, 1.0). xIs throws std::range_error,
//                        naming x, unless the value is positive and finite.
//    ..._NOTIFY          the same, and xIs compares, stores, then notifies; an equal value does nothing
//    KILN_COUNTER        x(), xIs(v), xInc(n), xDec(n)
//    KILN_POINTER        const Kiln::Ptr<T>& x() const;  xIs(Kiln::Ptr<T>);  xDel()
//    KILN_HASH_MAP       the collection x();  x(key): the value, or V() when absent, and never an insertion;
//    KILN_ORDERED_MAP    xIs(key, value);  xDel(key), of an absent key nothing;
//                        xDelAll(), a snapshot of the keys one by one
//    ..._NOTIFY          the same, and a change of a key's value, its coming and its going notify with the
//                        key
//    KILN_COLLECTION     a hash map of Kiln::Ptr<T> keyed by the element's own attribute: xIs(ptr), which
//                        throws std::invalid_argument, naming Class::x, for a null pointer; the rest as
//                        above. KILN_COLLECTION(QualifiedClass, K, T, keyAttribute, x); K is the type
//                        of the key attribute, and T must be complete.
//
//    KILN_POINTER_TO     as KILN_POINTER, of a T that is declared only: KILN_POINTER_TO_DEFINE(Class, T, x) goes
//                        into the class's source, where T is complete. A third argument, override or final, goes
//                        to x().
//    KILN_FORWARDED_MAP  KILN_FORWARDED_MAP(part_, K, V, x): what KILN_HASH_MAP declares, passed on to the part's
//                        map of that name.
//
// A type with a comma in it needs a name of its own first. A scalar is returned by value. When a watcher throws, the
// exception reaches the caller of the mutator, and the change is made all the same; xDelAll ends at the first one.
//
// The macros only declare; the templates above them do the work, so that a debugger can step into it.
#pragma once

#include "kiln/Collections.h"
#include "kiln/Ptr.h"
#include "kiln/Time.h"

#include <stdexcept>
#include <type_traits>

namespace Kiln {

template <class V>
using ReadAs = std::conditional_t<std::is_scalar_v<V>, V, const V&>;

// True when the stored value changed.
template <class T>
bool assignIfDifferent(T& stored, T value) {
   if (stored == value) {
      return false;
   }
   stored = std::move(value);
   return true;
}

template <class Map>
ReadAs<typename Map::mapped_type> valueOrDefault(const Map& map, const typename Map::key_type& key) {
   static const typename Map::mapped_type absent{};
   const auto* found = map.find(key);
   return found != nullptr ? *found : absent;
}

// True when the map changed.
template <class Map>
bool mapAssign(Map& map, const typename Map::key_type& key, typename Map::mapped_type value) {
   if (auto* present = map.find(key)) {
      return assignIfDifferent(*present, std::move(value));
   }
   return map.set(key, std::move(value));
}

template <class Map, class Erase>
void forEachKey(const Map& map, Erase erase) {
   for (const auto& key : map.keys()) {
      erase(key);
   }
}

[[noreturn]] inline void throwNullParameter(const char* attribute, const char* qualifiedClass) {
   throw std::invalid_argument(String("null _") + attribute + " parameter to mutator for " + qualifiedClass +
                               "::" + attribute + " not allowed");
}

} // namespace Kiln

#define KILN_ATTRIBUTE(Type, x, ...)                                                                         \
 public:                                                                                                     \
   ::Kiln::ReadAs<Type> x() const {                                                                          \
      return x##_;                                                                                           \
   }                                                                                                         \
   void x##Is(Type value) {                                                                                  \
      ::Kiln::assignIfDifferent<Type>(x##_, std::move(value));                                               \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   Type x##_{__VA_ARGS__};                                                                                   \
                                                                                                             \
 public:

#define KILN_SECONDS(x, ...)                                                                                 \
 public:                                                                                                     \
   double x() const {                                                                                        \
      return x##_;                                                                                           \
   }                                                                                                         \
   void x##Is(double seconds) {                                                                              \
      ::Kiln::requirePositiveSeconds(#x, seconds);                                                           \
      x##_ = seconds;                                                                                        \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   double x##_{__VA_ARGS__};                                                                                 \
                                                                                                             \
 public:

#define KILN_ATTRIBUTE_NOTIFY(Type, x, onX, ...)                                                             \
 public:                                                                                                     \
   ::Kiln::ReadAs<Type> x() const {                                                                          \
      return x##_;                                                                                           \
   }                                                                                                         \
   void x##Is(Type value) {                                                                                  \
      if (::Kiln::assignIfDifferent<Type>(x##_, std::move(value))) {                                         \
         notify(&Notifiee::onX);                                                                             \
      }                                                                                                      \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   Type x##_{__VA_ARGS__};                                                                                   \
                                                                                                             \
 public:

#define KILN_COUNTER(Type, x)                                                                                \
   KILN_ATTRIBUTE(Type, x)                                                                                   \
   void x##Inc(Type n) {                                                                                     \
      x##_ = static_cast<Type>(x##_ + n);                                                                    \
   }                                                                                                         \
   void x##Dec(Type n) {                                                                                     \
      x##_ = static_cast<Type>(x##_ - n);                                                                    \
   }

#define KILN_POINTER(T, x)                                                                                   \
 public:                                                                                                     \
   const ::Kiln::Ptr<T>& x() const {                                                                         \
      return x##_;                                                                                           \
   }                                                                                                         \
   void x##Is(::Kiln::Ptr<T> value) {                                                                        \
      x##_ = std::move(value);                                                                               \
   }                                                                                                         \
   void x##Del() {                                                                                           \
      x##_ = nullptr;                                                                                        \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   ::Kiln::Ptr<T> x##_;                                                                                      \
                                                                                                             \
 public:

#define KILN_POINTER_TO(T, x, ...)                                                                           \
 public:                                                                                                     \
   const ::Kiln::Ptr<T>& x() const __VA_ARGS__ {                                                             \
      return x##_;                                                                                           \
   }                                                                                                         \
   void x##Is(::Kiln::Ptr<T> value);                                                                         \
   void x##Del();                                                                                            \
                                                                                                             \
 private:                                                                                                    \
   ::Kiln::Ptr<T> x##_;                                                                                      \
                                                                                                             \
 public:

#define KILN_POINTER_TO_DEFINE(Class, T, x)                                                                  \
   void Class::x##Is(::Kiln::Ptr<T> value) {                                                                 \
      x##_ = std::move(value);                                                                               \
   }                                                                                                         \
   void Class::x##Del() {                                                                                    \
      x##_ = nullptr;                                                                                        \
   }

#define KILN_FORWARDED_MAP(part, K, V, x)                                                                    \
   const auto& x() const {                                                                                   \
      return part.x();                                                                                       \
   }                                                                                                         \
   ::Kiln::ReadAs<V> x(const K& key) const {                                                                 \
      return part.x(key);                                                                                    \
   }                                                                                                         \
   void x##Is(const K& key, V value) {                                                                       \
      part.x##Is(key, std::move(value));                                                                     \
   }                                                                                                         \
   void x##Del(const K& key) {                                                                               \
      part.x##Del(key);                                                                                      \
   }                                                                                                         \
   void x##DelAll() {                                                                                        \
      part.x##DelAll();                                                                                      \
   }

#define KILN_MAP_OF_KIND(MapKind, K, V, x, changed, keepSelf)                                                \
 public:                                                                                                     \
   const MapKind<K, V>& x() const {                                                                          \
      return x##_;                                                                                           \
   }                                                                                                         \
   ::Kiln::ReadAs<V> x(const K& key) const {                                                                 \
      return ::Kiln::valueOrDefault(x##_, key);                                                              \
   }                                                                                                         \
   void x##Is(const K& key, V value) {                                                                       \
      if (::Kiln::mapAssign(x##_, key, std::move(value))) {                                                  \
         changed;                                                                                            \
      }                                                                                                      \
   }                                                                                                         \
   void x##Del(const K& keyToDelete) {                                                                       \
      const K key = keyToDelete; /* may live in the entry itself */                                          \
      if (x##_.erase(key)) {                                                                                 \
         changed;                                                                                            \
      }                                                                                                      \
   }                                                                                                         \
   void x##DelAll() {                                                                                        \
      keepSelf;                                                                                              \
      ::Kiln::forEachKey(x##_, [this](const K& key) { x##Del(key); });                                       \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   MapKind<K, V> x##_;                                                                                       \
                                                                                                             \
 public:

// Between two keys a watcher may drop the last pointer to the entity.
#define KILN_KEEP_SELF const auto self = this->heldSelf()
#define KILN_HASH_MAP(K, V, x)                                                                               \
   KILN_MAP_OF_KIND(::Kiln::HashMap, K, V, x, static_cast<void>(0), static_cast<void>(0))
#define KILN_ORDERED_MAP(K, V, x)                                                                            \
   KILN_MAP_OF_KIND(::Kiln::OrderedMap, K, V, x, static_cast<void>(0), static_cast<void>(0))
#define KILN_HASH_MAP_NOTIFY(K, V, x, onX)                                                                   \
   KILN_MAP_OF_KIND(::Kiln::HashMap, K, V, x, notify(&Notifiee::onX, key), KILN_KEEP_SELF)
#define KILN_ORDERED_MAP_NOTIFY(K, V, x, onX)                                                                \
   KILN_MAP_OF_KIND(::Kiln::OrderedMap, K, V, x, notify(&Notifiee::onX, key), KILN_KEEP_SELF)

#define KILN_COLLECTION(QualifiedClass, K, T, keyAttribute, x)                                               \
 public:                                                                                                     \
   const ::Kiln::HashMap<K, ::Kiln::Ptr<T>>& x() const {                                                     \
      return x##_;                                                                                           \
   }                                                                                                         \
   const ::Kiln::Ptr<T>& x(const K& key) const {                                                             \
      return ::Kiln::valueOrDefault(x##_, key);                                                              \
   }                                                                                                         \
   void x##Is(::Kiln::Ptr<T> value) {                                                                        \
      if (!value) {                                                                                          \
         ::Kiln::throwNullParameter(#x, #QualifiedClass);                                                    \
      }                                                                                                      \
      const K key = value->keyAttribute();                                                                   \
      x##_.set(key, std::move(value));                                                                       \
   }                                                                                                         \
   void x##Del(const K& key) {                                                                               \
      x##_.erase(K(key));                                                                                    \
   }                                                                                                         \
   void x##DelAll() {                                                                                        \
      ::Kiln::forEachKey(x##_, [this](const K& key) { x##Del(key); });                                       \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   ::Kiln::HashMap<K, ::Kiln::Ptr<T>> x##_;                                                                  \
                                                                                                             \
 public:
