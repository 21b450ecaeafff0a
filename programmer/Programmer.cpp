#include "programmer/Programmer.h"

#include <utility>

#include "programmer/internal/ProgrammerWork.h"

namespace VelMroute {

// ---- One route. ----

L3::VrfName const& RouteView::vrf() const {
   return route_->vrf.name;
}

RouteKey const& RouteView::key() const {
   return route_->key;
}

WantedRoute const& RouteView::wanted() const {
   return route_->wish->wanted();
}

RouteState RouteView::state() const {
   return route_->state;
}

Qor::String RouteView::reason() const {
   return route_->vrf.work.reasonOf(*route_);
}

Qor::Seconds RouteView::since() const {
   return route_->since;
}

Qor::U32 RouteView::failures() const {
   RouteWork const* const work = route_->workIfAny();
   return work ? work->attempts : 0;
}

MrouteLib::RouteHandle RouteView::handle() const {
   return route_->handle;
}

MrouteLib::MtableOifSetPtr const& RouteView::record() const {
   return route_->record;
}

Bridging::VlanIdOrNone RouteView::vlan() const {
   PlacementPtr const at = route_->vrf.work.resolve(*route_).placement;
   return at ? at->vlan : Bridging::VlanIdOrNone();
}

// The wish keeps its placement, so the set outlasts the local pointer.
MrouteLib::PortVlanSet const* RouteView::set() const {
   PlacementPtr const at = route_->vrf.work.resolve(*route_).placement;
   return at ? &at->set : nullptr;
}

std::optional<RouteView::Place> RouteView::place() const {
   return route_->vrf.work.placeInLine(*route_);
}

RouteStatus RouteView::status() const {
   RouteStatus status;
   status.state = state();
   status.reason = reason();
   status.since = since();
   status.handle = handle();
   if (record()) status.group = route_->vrf.work.table().facts(record()).index;
   status.failures = failures();
   if (auto const inLine = place()) status.before = inLine->before;
   return status;
}

// ---- All routes. ----

void Programmer::Counters::add(Counters const& other) {
   resurrections += other.resurrections;
   purges += other.purges;
   failedWrites += other.failedWrites;
   unchanged += other.unchanged;
   refusals += other.refusals;
   adopted += other.adopted;
   swept += other.swept;
   thrown += other.thrown;
}

Programmer::Programmer(Inputs inputs) : Programmer(std::move(inputs), Options{}) {}

Programmer::Programmer(Inputs inputs, Options options)
      : work_(std::make_unique<ProgrammerWork>(std::move(inputs), options)) {}

Programmer::~Programmer() = default;

Qor::Seconds Programmer::nextDeadline() const {
   return work_->loop().nextDeadline();
}

Qor::U32 Programmer::runDue() {
   return work_->loop().runDue();
}

bool Programmer::routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted) {
   return work_->routeIs(vrf, key, std::move(wanted));
}

bool Programmer::routeDel(L3::VrfName const& vrf, RouteKey const& key) {
   return work_->routeDel(vrf, key);
}

void Programmer::resyncBegin() {
   work_->resyncBegin();
}

void Programmer::resyncEnd() {
   work_->resyncEnd();
}

bool Programmer::resyncing() const {
   return work_->resyncing();
}

bool Programmer::recovering() const {
   return work_->recovering();
}

void Programmer::onReroute(std::function<void(Lnet::IntfId)> handler) {
   work_->onReroute(std::move(handler));
}

std::optional<RouteView> Programmer::view(L3::VrfName const& vrf, RouteKey const& key) const {
   ProgrammedRoute const* const route = work_->find(vrf, key);
   if (!route) return std::nullopt;
   return RouteView(route);
}

std::optional<RouteStatus> Programmer::route(L3::VrfName const& vrf, RouteKey const& key) const {
   auto const there = view(vrf, key);
   if (!there) return std::nullopt;
   return there->status();
}

void Programmer::forEach(std::function<void(RouteView const&)> const& visit) const {
   work_->forEach([&](ProgrammedRoute const& route) { visit(RouteView(&route)); });
}

Qor::U32 Programmer::routes() const {
   return work_->routes();
}

Qor::U32 Programmer::waiting() const {
   return work_->waiting();
}

Programmer::Counters Programmer::counters() const {
   return work_->counters();
}

bool Programmer::settled() const {
   return work_->settled();
}

bool Programmer::placedAll() const {
   return work_->placedAll();
}

bool Programmer::changes(Qor::U32 most,
                         std::function<void(L3::VrfName const&, RouteKey const&)> const& visit) {
   return work_->changes(most, visit);
}

void Programmer::onChanges(std::function<void()> wake) {
   work_->onChanges(std::move(wake));
}

void Programmer::observerIs(Observer* observer) {
   work_->observerIs(observer);
}

void Programmer::end(End how) {
   work_->end(how);
}

bool Programmer::ended() const {
   return work_->ended();
}

RouteTable& Programmer::table() {
   return work_->table();
}

RouteTable const& Programmer::table() const {
   return work_->table();
}

}  // namespace VelMroute
