// Peers of the table programmers: plain programmers with the maps of the standard library and the
// hooks of one path. A peer does what the library does for its caller: it finds the group of a set
// or makes it, counts the users of a group, keeps a group without users for a while, and finds a
// route by key and by handle. It has no notifications and no traces. On the asynchronous path it has
// no records that a caller may hold; on the synchronous path the hooks demand such records.
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
         } else if constexpr (requires { a.route(); }) {
            return a < b;
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

// The calls of the hooks of a path. `Group` and `Route` are the data of a group and of a route that
// the calls need.
class AsyncPeerHooks {
 public:
   using Key = Vel::Mroute::InUseRouteHandleKey;
   struct Group {
      MrouteLib::OifSetPtr set;
      U32 id = 0;
   };
   struct Route {
      MrouteLib::RouteHandle handle;
   };

   Tables& tables() { return hooks_->tables; }
   static Key keyOf(IpGenRouteKey const& key, U32 vrf) { return {key, vlan, Vel::VrfId(vrf)}; }
   Group allocateGroup(MrouteLib::OifSetPtr const& set) {
      return {set, hooks_->doAllocateSharableMulticastGroup(info_, set, nullptr, false)};
   }
   bool reusable(Group const& group) { return hooks_->mcastIdReusable(group.id); }
   void allocated(Group const& group) {
      hooks_->doScheduleVerify();
      auto const xact = hooks_->doGetXactForOifSet(group.id);
   }
   void freeGroup(Group const& group) { hooks_->doDeleteOifSet(group.id); }
   Route allocateRoute(IpGenRouteKey const& key, Group const&, U32 vrf) {
      return {hooks_->doAllocateRoute(key, vlan, false, rpa_, vrf)};
   }
   static U32 handleOf(Route const& route) { return route.handle.value(); }
   void point(Route const& route, Group const& group) {
      hooks_->doSetMtableOifSet(route.handle, group.id, nullptr);
      hooks_->doScheduleVerify();
      auto const xact = hooks_->doGetXactForIngress(route.handle);
   }
   void deleteRoute(Route const& route) {
      hooks_->doDeleteRoute(route.handle);
      hooks_->doScheduleVerify();
   }
   void left(Group const&) { hooks_->doScheduleVerify(); }

 private:
   static inline Bridging::VlanIdOrNone const vlan{U64{acceptingVlan}};
   Qor::Ptr<AsyncHooks> const hooks_ = Qor::make<AsyncHooks>();
   Wisp::Multicast::Fib::RpaIndex const rpa_ = Wisp::Multicast::Fib::RpaIndex::none();
   MrouteLib::RouteKeyInfo const info_;
};

class SyncPeerHooks {
 public:
   using Key = Vel::RouteKeyVlanId;
   // The hooks get counted records.
   struct Group {
      Qor::Ptr<Vel::MtableOifSet> record;
   };
   struct Route {
      Qor::Ptr<Vel::Route> record;
   };

   Tables& tables() { return hooks_->tables; }
   static Key keyOf(IpGenRouteKey const& key, U32) { return {key, vlan}; }
   Group allocateGroup(MrouteLib::OifSetPtr const& set) {
      bool const full = hooks_->mtableFull(switchId);
      U32 const index = full ? 0 : hooks_->doAllocateMtableOifSet(switchId, 0, set);
      Group const group{Qor::make<Vel::MtableOifSet>(set, set->portVlanSet().toCpu(), nullptr)};
      group.record->oifSetIndexIs(index);
      return group;
   }
   bool reusable(Group const& group) { return !group.record->dirty(); }
   void allocated(Group const&) {}
   void freeGroup(Group const& group) { hooks_->handleFreeMtableOifSet(switchId, group.record); }
   Route allocateRoute(IpGenRouteKey const& key, Group const& group, U32 vrf) {
      auto const handle = hooks_->doAllocateMroute(switchId, static_cast<U16>(vrf), key, vlan,
                                                   false, group.record->oifSetIndex(), false, 0);
      Route const route{Qor::make<Vel::Route>(handle, key, vlan)};
      route.record->vrfIdIs(static_cast<U16>(vrf));
      return route;
   }
   static U32 handleOf(Route const& route) { return route.record->handle().value(); }
   void point(Route const& route, Group const& group) {
      hooks_->doSetMtableOifSet(switchId, route.record->vrfId(), route.record->handle(),
                                route.record, group.record->oifSetIndex());
      route.record->mtableOifSetIs(group.record);
   }
   void deleteRoute(Route const& route) {
      hooks_->doDeleteMroute(switchId, route.record->vrfId(), route.record->handle(), route.record);
   }
   void left(Group const&) {}

 private:
   static constexpr U32 switchId = 1;
   static inline Bridging::VlanIdOrNone const vlan{U64{acceptingVlan}};
   Qor::Ptr<SyncHooks> const hooks_ = Qor::make<SyncHooks>();
};

template <class Maps, class Hooks>
class PeerSide {
 public:
   explicit PeerSide(Plan const& plan) : plan_(plan), handles_(plan.routes()) {
      hooks_.tables().reserve(plan.routes());
      vrfs_.emplace("default", vrfId);
   }

   void add(std::size_t n) {
      Group& group = use(plan_.setOf(n));
      auto const vrf = vrfs_.find("default");
      auto const data = hooks_.allocateRoute(plan_.keys[n], group.data, vrf->second);
      Key const key = Hooks::keyOf(plan_.keys[n], vrf->second);
      Route& route = routes_.emplace(key, Route{data, nullptr}).first->second;
      handles_[n] = Hooks::handleOf(data);
      byHandle_.emplace(handles_[n], std::pair(key, &route));
      point(route, group);
   }
   void change(std::size_t n) {
      Group& group = use(plan_.nextSetOf(n));
      Route& route = *byHandle_.find(handles_[n])->second.second;
      Group& before = *route.group;
      point(route, group);
      now_ += changeTime;
      leave(before);
   }
   void del(std::size_t n) {
      auto const at = byHandle_.find(handles_[n]);
      Route const& route = *at->second.second;
      Group& group = *route.group;
      hooks_.deleteRoute(route.data);
      routes_.erase(at->second.first);
      byHandle_.erase(at);
      now_ += changeTime;
      leave(group);
   }
   void purge() {
      for (auto const& [expiry, group] : zombies_) {
         hooks_.freeGroup(group->data);
         groups_.erase(group->set.get());
      }
      zombies_.clear();
   }
   void reset() { hooks_.tables().reset(); }

 private:
   using Key = typename Hooks::Key;
   struct Group {
      MrouteLib::OifSetPtr set;
      typename Hooks::Group data;
      U32 users = 0;
      std::pair<Qor::Seconds, U32> zombie = {};
   };
   struct Route {
      typename Hooks::Route data;
      Group* group;
   };

   Group& use(MrouteLib::OifSetPtr const& set) {
      auto const [at, made] = groups_.try_emplace(set.get());
      Group& group = at->second;
      if (made) {
         group = {set, hooks_.allocateGroup(set)};
      } else if (hooks_.reusable(group.data) && group.users == 0) {
         zombies_.erase(group.zombie);
      }
      ++group.users;
      hooks_.allocated(group.data);
      return group;
   }
   void point(Route& route, Group& group) {
      hooks_.point(route.data, group.data);
      route.group = &group;
   }
   void leave(Group& group) {
      if (--group.users != 0) return;
      group.zombie = {now_ + zombieTime, ++zombieSerial_};
      zombies_.emplace(group.zombie, &group);
      hooks_.left(group.data);
   }

   // Declared first, since the maps use it to the end.
   std::pmr::unsynchronized_pool_resource pool_;
   std::pmr::memory_resource* const memory_ =
         Maps::pool ? static_cast<std::pmr::memory_resource*>(&pool_)
                    : std::pmr::new_delete_resource();
   Hooks hooks_;

   Plan const& plan_;
   std::map<std::string, U32> vrfs_;
   typename Maps::template Map<Key, Route> routes_{memory_};
   typename Maps::template Map<U32, std::pair<Key, Route*>> byHandle_{memory_};
   typename Maps::template Map<MrouteLib::OifSet const*, Group> groups_{memory_};
   std::pmr::map<std::pair<Qor::Seconds, U32>, Group*> zombies_{memory_};
   U32 zombieSerial_ = 0;
   Qor::Seconds now_ = 0;
   std::vector<U32> handles_;
};

}  // namespace Bench
