// A keyed collection of an entity: a map and the two handlers its changes raise. The entity spells
// the collection's operations as one-line members, so that grep finds each:
//
//    class Switch : public Qor::Entity<Switch> {
//     public:
//       class Notifiee : public Qor::NotifieeOf<Switch> {
//        public:
//          virtual void onZombie(ZombieKey const&) {}    // added, changed or removed
//          virtual void onZombieImmediate() {}           // bring yourself in step with the whole
//        protected:
//          void onImmediate() override { onZombieImmediate(); }    // of each collection
//       };
//       using ZombieColl =
//             Qor::Collection<Qor::OrderedMap<ZombieKey, RecordPtr>, &Notifiee::onZombie,
//                             &Notifiee::onZombieImmediate>;
//       ZombieColl::Map const& zombie() const { return zombie_.map(); }
//       RecordPtr zombie(ZombieKey const& key) const { return zombie_.value(key); }
//       void zombieIs(ZombieKey key, RecordPtr value) { zombie_.is(*this, key, value); }
//       void zombieDel(ZombieKey key) { zombie_.del(*this, key); }
//       ZombieColl::Iterator zombieDel(ZombieColl::Iterator it) { return zombie_.del(*this, it); }
//       void zombieDelAll() { zombie_.delAll(*this); }
//       void zombieNotify(ZombieKey key) { zombie_.notify(*this, key); }
//
// The members of the entity take keys by value, since a key often lives in the value that dies; the
// operations refer to the caller's key until they return. An operation releases a removed value
// after the notification and then touches neither the entity nor the collection, so handlers may
// destroy the entity. The iterator form is the exception: it reads the next entry, and
// its caller keeps the entity alive.
#pragma once

#include <optional>
#include <utility>

#include "Qor/HashMap.h"
#include "Qor/Map.h"
#include "Qor/NumberMap.h"
#include "Qor/OrderedMap.h"

namespace Qor {

template <Map M, auto Each, auto Immediate>
class Collection {
 public:
   using Map = M;
   using Key = typename M::Key;
   using Value = typename M::Value;
   using Iterator = typename M::ConstIterator;

   // The handlers, as the type's description names them.
   static constexpr auto each = Each;
   static constexpr auto immediate = Immediate;

   Collection() = default;
   // Takes a map that refers to another map (Qor/RecordIndex.h, Qor/RecordTable.h).
   explicit Collection(Map map) : map_(std::move(map)) {}

   Map const& map() const { return map_; }
   // For the owner, which may rearrange the storage of the map, but not its entries.
   Map& storage() { return map_; }

   // The member under `key`, or a default value.
   Value value(Key const& key) const {
      auto const entry = map_.find(key);
      return entry ? entry->second : Value();
   }

   // Inserts or replaces the value and notifies of the key; an equal value does nothing.
   template <class E>
   void is(E& entity, Key const& key, Value value) {
      if (map_.assign(key, value)) entity.template notify<Each>(key);
   }

   // Removes the member under the key, if there is one, and notifies of the key.
   template <class E>
   void del(E& entity, Key const& key) {
      std::optional<Value> const removed = map_.take(key);
      if (removed) entity.template notify<Each>(key);
   }

   // As del(key). `likely` is the value that the member most likely has, which spares a map that
   // finds its members by value too (Qor/RecordIndex.h) the look-up.
   template <class E>
   void del(E& entity, Key const& key, Value likely) {
      std::optional<Value> const removed = map_.take(key, likely);
      if (removed) entity.template notify<Each>(key);
   }

   // Removes the member at `it` and returns the entry at which the walk continues. Handlers may
   // change the collection in between.
   template <class E>
   Iterator del(E& entity, Iterator it) {
      Key const key = it->first;
      del(entity, key);
      return map_.resume(it, key);
   }

   // Removes everything and raises the immediate form, once, unless it was empty.
   template <class E>
   void delAll(E& entity) {
      if (map_.empty()) return;
      [[maybe_unused]] auto const removed = map_.takeAll();
      entity.template notify<Immediate>();
   }

   // Raises the notification of one key; nothing changes.
   template <class E>
   void notify(E& entity, Key const& key) {
      entity.template notify<Each>(key);
   }

   // For destructors: releases all members without a notification.
   void clear() { map_.takeAll(); }

   // For `new<Name>(key, ...)`: the member under `key`, made by `create()` if there was none.
   template <class E, class Create>
   Value instantiate(E& entity, Key const& key, Create const& create) {
      if constexpr (requires { map_.findOrMake(key, create); }) {
         auto const [entry, made] = map_.findOrMake(key, create);
         Value const value = entry;
         if (made) entity.template notify<Each>(key);
         return value;
      } else {
         if (auto const entry = map_.find(key)) return entry->second;
         Value const value = create();
         is(entity, key, value);
         return value;
      }
   }

 private:
   Map map_;
};

}  // namespace Qor
