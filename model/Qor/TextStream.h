// A text that operator<< prints. Headers print through this class, so that their users need not compile
// the standard library's string streams.
#pragma once

#include <iosfwd>
#include <memory>
#include <ostream>
#include <string_view>

#include "Qor/Export.h"
#include "Qor/Types.h"

namespace Qor {

class QOR_PUBLIC TextStream final {
 public:
   TextStream();
   ~TextStream();
   TextStream(TextStream const&) = delete;
   TextStream& operator=(TextStream const&) = delete;

   std::ostream& out();
   String text() const { return String(view()); }
   // Valid until the next output.
   std::string_view view() const;

 private:
   std::unique_ptr<std::ostringstream> const stream_;
};

// The text of one value.
template <class T>
String printed(T const& value) {
   TextStream stream;
   stream.out() << value;
   return stream.text();
}

}  // namespace Qor
