// Counted pointers, intrusive and not atomic: everything runs on one activity loop.
//
// Life cycle of a counted object:
//  1. make() creates it on the heap. The object is born with one reference, which belongs to its
//     maker and is the returned Ptr's in the end. So a constructor, and each hook or handler that it
//     calls, may take and drop references. A constructor that throws while another holder keeps one
//     is an assertion. An object with static, automatic or member storage keeps the reference of
//     its maker as long as it exists, so that no Ptr deletes it.
//  2. When the last reference goes, its zero-references handler runs, once, synchronously inside
//     the operation that dropped it, with the count held at one: the handler may take and drop
//     references without starting itself again.
//  3. If a reference survives the handler (the handler may store one), the object lives on, and the
//     handler may run again later. If instead heldByNotifiees() says so, the object lives on
//     unreferenced until its last notifiee leaves, which runs the handler again.
//  4. Otherwise the object is deleted, with the count still held: references taken and dropped
//     while it dies change nothing, and one that is left over is an assertion. Chains of objects
//     that own one another are deleted in bounded stack: past a fixed nesting depth a deletion
//     waits until the outermost one is through.
//
// An operation that may drop the last reference to its object holds a reference during the call:
//
//    auto const self = hold();
//
// A hook or a listener may do that, so an operation that calls one and then goes on to use its
// object begins so. Holding is harmless in a constructor and in a destructor.
#pragma once

#include <compare>
#include <cstddef>
#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "Qor/Assert.h"
#include "Qor/Exception.h"
#include "Qor/Export.h"
#include "Qor/Types.h"

namespace Qor {

template <class T>
class Ptr;

class QOR_PUBLIC RefCounted {
 public:
   RefCounted(RefCounted const&) = delete;
   RefCounted& operator=(RefCounted const&) = delete;
   // By make() alone, which adopts the reference that the object is born with.
   static void* operator new(std::size_t) = delete;

   void referenceInc() const { ++references_; }
   void referenceDec() const {
      if (--references_ == 0) const_cast<RefCounted*>(this)->lastReferenceGone();
   }
   U32 references() const { return references_; }

   // True while the object lives on without references because a notifiee is bound to it.
   bool livesUnreferenced() const { return unreferenced_ && references_ == 0; }

 protected:
   RefCounted() = default;
   virtual ~RefCounted();

   // A reference to this object for the time of an operation.
   [[nodiscard]] Ptr<RefCounted const> hold() const;

   // The zero-references handler; the argument is always true. The default does nothing, and the
   // object is deleted.
   virtual void zeroReferencesIs(bool);

   // Whether the object is to live on unreferenced, asked after the handler. False unless
   // overridden.
   virtual bool heldByNotifiees() const;

 private:
   void lastReferenceGone();

   mutable U32 references_ = 1;
   bool unreferenced_ = false;
};

// A counted object of type T in memory of its own; its constructor gets the arguments.
template <class T, class... Args>
Ptr<T> make(Args&&... args);

template <class T>
class Ptr {
 public:
   using element_type = T;

   Ptr() = default;
   Ptr(std::nullptr_t) {}
   Ptr(T* object) : object_(object) { inc(); }
   Ptr(Ptr const& other) : object_(other.object_) { inc(); }
   Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
   template <class U>
   requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other) : object_(other.get()) { inc(); }
   template <class U>
   requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
   noexcept : object_(other.release()) {}
   ~Ptr() {
      if (object_) object_->referenceDec();
   }

   // The new object is held, and stored, before the old one is let go: letting go may run code that
   // comes back here.
   Ptr& operator=(Ptr other) noexcept {
      swap(other);
      return *this;
   }

   T* get() const { return object_; }
   T* operator->() const {
      QOR_ASSERT(object_ != nullptr);
      return object_;
   }
   T& operator*() const {
      QOR_ASSERT(object_ != nullptr);
      return *object_;
   }
   explicit operator bool() const { return object_ != nullptr; }
   void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

   // Gives up the reference without dropping it: the caller owns it from now on.
   T* release() { return std::exchange(object_, nullptr); }

   // Identity, not value; ordered by address, so never iterate in this order.
   template <class U>
   friend bool operator==(Ptr const& a, Ptr<U> const& b) {
      return a.get() == b.get();
   }
   friend bool operator==(Ptr const& a, std::nullptr_t) { return a.get() == nullptr; }
   friend auto operator<=>(Ptr const& a, Ptr const& b) {
      return std::compare_three_way()(a.get(), b.get());
   }

 private:
   template <class U, class... Args>
   friend Ptr<U> make(Args&&... args);

   void inc() const {
      if (object_) object_->referenceInc();
   }

   T* object_ = nullptr;
};

inline Ptr<RefCounted const> RefCounted::hold() const {
   return this;
}

// A pointer that is never null: making one of null raises RangeException "null ValidPtr". Moving
// from it copies.
template <class T>
class ValidPtr : public Ptr<T> {
 public:
   ValidPtr(ValidPtr const&) = default;
   ValidPtr& operator=(ValidPtr const&) = default;
   ValidPtr(Ptr<T> object) : Ptr<T>(std::move(object)) {
      if (!*this) throwRange("null ValidPtr");
   }
};

// Classes with pools of their own (Qor/Pool.h) say so by allocatePooled().
template <class T, class... Args>
Ptr<T> make(Args&&... args) {
   constexpr bool pooled = requires {
      T::allocatePooled(sizeof(T));
   };
   static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
   void* memory;
   if constexpr (pooled) {
      memory = T::allocatePooled(sizeof(T));
   } else {
      memory = ::operator new(sizeof(T));
   }
   Ptr<T> made;
   try {
      made.object_ = ::new (memory) T(std::forward<Args>(args)...);
   } catch (...) {
      if constexpr (pooled) {
         T::operator delete(memory, sizeof(T));
      } else {
         ::operator delete(memory);
      }
      throw;
   }
   return made;
}

// The object as a derived type; null if it is not one. A final type has no others below it, so that
// a comparison with the type is enough.
template <class T, class U>
T* objectCast(U* object) {
   if constexpr (std::is_final_v<T>) {
      return object && typeid(*object) == typeid(T) ? static_cast<T*>(object) : nullptr;
   } else {
      return dynamic_cast<T*>(object);
   }
}
template <class T, class U>
Ptr<T> ptrCast(Ptr<U> const& object) {
   return objectCast<T>(object.get());
}

}  // namespace Qor
