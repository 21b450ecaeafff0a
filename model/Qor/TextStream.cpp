#include "Qor/TextStream.h"

#include <sstream>

namespace Qor {

TextStream::TextStream() : stream_(std::make_unique<std::ostringstream>()) {}

TextStream::~TextStream() = default;

std::ostream& TextStream::out() {
   return *stream_;
}

std::string_view TextStream::view() const {
   return stream_->view();
}

}  // namespace Qor
