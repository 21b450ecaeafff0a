#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>

#include "Qor/Type.h"
#include "TestSupport.h"

namespace {

using Qor::Generic;

std::vector<std::string> namesOf(char const* module) {
   std::vector<std::string> names;
   for (Qor::Type const* const type : Qor::types()) {
      if (type->module() == module) names.push_back(type->name());
   }
   return names;
}

TEST(TypeRegistry, TheLibraryRegistersItsTypesWhenItIsLoaded) {
   std::vector<std::string> const expected = {
         "Vel::Boundary", "Vel::Mroute::AsyncMrouteSwitch", "Vel::Mroute::AsyncMrouteSwitchSm",
         "Vel::Mroute::AsyncMtableOifSet", "Vel::Mroute::AsyncMtableOifSetPtr",
         "Vel::Mroute::InUseRouteHandleKey", "Vel::Mroute::RecoverySm", "Vel::Mroute::ZombieKey",
         "Vel::MrouteSm", "Vel::MrouteSwitch", "Vel::MrouteSwitchSm", "Vel::MtableOifSet",
         "Vel::MtableOifSetPtr", "Vel::Route", "Vel::RouteKeyVlanId", "Vel::ZombieKey",
         "VelHelper::AsyncMrouteHelper", "VelHelper::MrouteSmHelper", "VelHelper::MrouteXactType"};
   EXPECT_EQ(namesOf("VelMroute"), expected);
}

}  // namespace
