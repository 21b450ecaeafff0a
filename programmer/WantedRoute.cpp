#include "programmer/WantedRoute.h"

#include <algorithm>

#include "Qor/Exception.h"

namespace VelMroute {

bool operator==(WantedRoute const& a, WantedRoute const& b) {
   bool const sameOutputs =
         a.outputs == b.outputs || (a.outputs && b.outputs && *a.outputs == *b.outputs);
   return a.iif == b.iif && sameOutputs && a.protectedIntf == b.protectedIntf &&
          a.fastdrop == b.fastdrop && a.bridge == b.bridge && a.noRpf == b.noRpf &&
          a.rpaId == b.rpaId;
}

void checkWanted(WantedRoute const& wanted) {
   auto const refuse = [](bool wrong, char const* text) {
      if (wrong) Qor::throwRange(Qor::String("VelMroute::WantedRoute::") + text + " not allowed");
   };
   bool const backup = wanted.outputs && !wanted.outputs->backup().empty();
   refuse(wanted.noRpf && !backup && !wanted.iif.isNull(), "iif with noRpf");
   refuse((!wanted.noRpf || backup) && wanted.iif.isNull(), "iif empty");
   refuse(!wanted.protectedIntf.isNull() && !backup, "protectedIntf without backup");
   refuse(wanted.bridge && wanted.noRpf, "bridge with noRpf");
   for (Lnet::IntfId const intf : wanted.fastdrop) {
      refuse(intf.isNull(), "fastdrop empty interface");
      refuse(intf == wanted.iif, "fastdrop of the input");
   }
}

}  // namespace VelMroute
