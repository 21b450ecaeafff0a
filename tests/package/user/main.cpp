// A user of the installed library: it calls across the border and catches what comes back.
#include <iostream>

#include "Qor/Strep.h"

int main() {
   std::cout << Qor::valueToStrep(0.1) << '\n';
   try {
      Qor::StrepReader("Answer", "41").expect("42");
   } catch (Qor::RangeException const& e) {
      std::cout << e.what() << '\n';
   }
}
