#include <gtest/gtest.h>

#include "Qor/Strep.h"

namespace {

TEST(Strep, ARealReadsBackToTheSameValue) {
   for (double const value : {0.0, 3.0, 0.1, -2.5e-300, Qor::maxFinite, Qor::never, -Qor::never}) {
      std::string const text = Qor::valueToStrep(value);
      Qor::StrepReader reader("double", text);
      EXPECT_EQ(reader.real(), value) << text;
      reader.end();
   }
}

}  // namespace
