// Peers of the table programmer: plain programmers with the maps of the standard library and the
// hooks of the asynchronous path. A peer does what the library does for its
// caller: it finds the group of a set or makes it, counts the users of a group, keeps a group
// without users for a while, and finds a route by key and by handle. It has no notifications, no
// traces, and no records that a caller may hold.
#pragma once

#include <functional>
#include <map>
#include <memory_resource>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "RouteSides.h"

namespace Bench {

// The maps of a peer: `Map<K, V>`, and whether its nodes come from a pool.
struct HashPeer {
   template <class K>
   struct Hash {
      std::size_t operator()(K const& key) const { return Qor::hashOf(key); }
   };
   template <class K, class V>
   using Map = std::pmr::unordered_map<K, V, Hash<K>>;
   static constexpr char const* name = "std::unordered_map";
   static constexpr bool pool = false;
};
struct PooledHashPeer : HashPeer {
   static constexpr char const* name = "std::unordered_map with a pool";
   static constexpr bool pool = true;
};
struct OrderedPeer {
   template <class K>
   struct Less {
      bool operator()(K const& a, K const& b) const {
         if constexpr (requires { a.routeKey(); }) {
            return std::tuple(a.routeKey(), a.vlan().value(), a.vrfId().value()) <
                   std::tuple(b.routeKey(), b.vlan().value(), b.vrfId().value());
         } else {
            return std::less<K>()(a, b);
         }
      }
   };
   template <class K, class V>
   using Map = std::pmr::map<K, V, Less<K>>;
   static constexpr char const* name = "std::map";
   static constexpr bool pool = false;
};

template <class Maps>
class PeerSide {
 public:
   explicit PeerSide(Plan const& plan) : plan_(plan), handles_(plan.routes()) {
      hooks->tables.reserve(plan.routes());
      vrfs_.emplace("default", vrfId);
   }

   void add(std::size_t n) {
      Group& group = use(plan_.setOf(n));
      auto const vrf = vrfs_.find("default");
      auto const handle = hooks->doAllocateRoute(plan_.keys[n], vlan_, false, rpa_, vrf->second);
      Key const key(plan_.keys[n], vlan_, Vel::VrfId(vrf->second));
      Route& route = routes_.emplace(key, Route{handle, nullptr}).first->second;
      byHandle_.emplace(handle.value(), std::pair(key, &route));
      handles_[n] = handle;
      point(route, group);
   }
   void change(std::size_t n) {
      Group& group = use(plan_.nextSetOf(n));
      Route& route = *byHandle_.find(handles_[n].value())->second.second;
      Group& before = *route.group;
      point(route, group);
      now_ += changeTime;
      leave(before);
   }
   void del(std::size_t n) {
      auto const at = byHandle_.find(handles_[n].value());
      Group& group = *at->second.second->group;
      routes_.erase(at->second.first);
      byHandle_.erase(at);
      hooks->doDeleteRoute(handles_[n]);
      hooks->doScheduleVerify();
      now_ += changeTime;
      leave(group);
   }
   void purge() {
      for (auto const& [expiry, group] : zombies_) {
         hooks->doDeleteOifSet(group->id);
         groups_.erase(group->set.get());
      }
      zombies_.clear();
   }
   void reset() { hooks->tables.reset(); }

 private:
   using Key = Vel::Mroute::InUseRouteHandleKey;
   struct Group {
      MrouteLib::OifSetPtr set;
      U32 id;
      U32 users = 0;
      std::pair<Qor::Seconds, U32> zombie = {};
   };
   struct Route {
      MrouteLib::RouteHandle handle;
      Group* group;
   };

   Group& use(MrouteLib::OifSetPtr const& set) {
      auto const [at, made] = groups_.try_emplace(set.get());
      Group& group = at->second;
      if (made) {
         group = {set, hooks->doAllocateSharableMulticastGroup(info_, set, nullptr, false)};
      } else if (hooks->mcastIdReusable(group.id) && group.users == 0) {
         zombies_.erase(group.zombie);
      }
      ++group.users;
      hooks->doScheduleVerify();
      auto const xact = hooks->doGetXactForOifSet(group.id);
      return group;
   }
   void point(Route& route, Group& group) {
      hooks->doSetMtableOifSet(route.handle, group.id, nullptr);
      route.group = &group;
      hooks->doScheduleVerify();
      auto const xact = hooks->doGetXactForIngress(route.handle);
   }
   void leave(Group& group) {
      if (--group.users != 0) return;
      group.zombie = {now_ + zombieTime, group.id};
      zombies_.emplace(group.zombie, &group);
      hooks->doScheduleVerify();
   }

   // Declared first, since the maps use it to the end.
   std::pmr::unsynchronized_pool_resource pool_;
   std::pmr::memory_resource* const memory_ =
         Maps::pool ? static_cast<std::pmr::memory_resource*>(&pool_)
                    : std::pmr::new_delete_resource();
   Qor::Ptr<AsyncHooks> const hooks = Qor::make<AsyncHooks>();

   Plan const& plan_;
   Bridging::VlanIdOrNone const vlan_{U64{acceptingVlan}};
   Wisp::Multicast::Fib::RpaIndex const rpa_ = Wisp::Multicast::Fib::RpaIndex::none();
   MrouteLib::RouteKeyInfo const info_;
   std::map<std::string, U32> vrfs_;
   typename Maps::template Map<Key, Route> routes_{memory_};
   typename Maps::template Map<U32, std::pair<Key, Route*>> byHandle_{memory_};
   typename Maps::template Map<MrouteLib::OifSet const*, Group> groups_{memory_};
   std::pmr::map<std::pair<Qor::Seconds, U32>, Group*> zombies_{memory_};
   Qor::Seconds now_ = 0;
   std::vector<MrouteLib::RouteHandle> handles_;
};

}  // namespace Bench
