#include "Qor/Strep.h"

#include <charconv>
#include <cmath>

namespace Qor {

namespace {

constexpr char hexDigits[] = "0123456789abcdef";

int hexValue(char c) {
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   return -1;
}

}  // namespace

void StrepReader::fail(char const* what) const {
   throwRange(String(type_) + ": expected " + what + " at position " + std::to_string(position_) +
              " of \"" + String(text_) + "\"");
}

void StrepReader::expect(std::string_view literal) {
   if (!accept(literal)) fail(String(literal).c_str());
}

bool StrepReader::accept(std::string_view literal) {
   if (text_.substr(position_, literal.size()) != literal) return false;
   position_ += literal.size();
   return true;
}

U64 StrepReader::number(U64 max) {
   U64 value = 0;
   char const* first = text_.data() + position_;
   auto const [end, error] = std::from_chars(first, text_.data() + text_.size(), value);
   if (error == std::errc::invalid_argument) fail("an unsigned number");
   // The other error is a number that does not fit into 64 bits.
   if (error != std::errc() || value > max) {
      fail(("a number of at most " + std::to_string(max)).c_str());
   }
   position_ += static_cast<std::size_t>(end - first);
   return value;
}

// Not a number is refused: no value type holds one, since it would not equal itself.
double StrepReader::real() {
   double value = 0;
   char const* first = text_.data() + position_;
   auto const [end, error] = std::from_chars(first, text_.data() + text_.size(), value);
   if (error != std::errc() || std::isnan(value)) fail("a number");
   position_ += static_cast<std::size_t>(end - first);
   return value;
}

bool StrepReader::boolean() {
   if (accept("True")) return true;
   if (accept("False")) return false;
   fail("True or False");
}

String StrepReader::quoted() {
   expect("'");
   String value;
   while (true) {
      if (position_ >= text_.size()) fail("a closing quote");
      char const c = text_[position_++];
      if (c == '\'') return value;
      // A backslash begins an escape: \\, \' or \xNN.
      if (c != '\\') {
         value += c;
      } else if (accept("\\")) {
         value += '\\';
      } else if (accept("'")) {
         value += '\'';
      } else {
         expect("x");
         int const high = position_ < text_.size() ? hexValue(text_[position_]) : -1;
         int const low = position_ + 1 < text_.size() ? hexValue(text_[position_ + 1]) : -1;
         if (high < 0 || low < 0) fail("two hexadecimal digits");
         value += static_cast<char>(high * 16 + low);
         position_ += 2;
      }
   }
}

void StrepReader::end() {
   if (position_ != text_.size()) fail("the end");
}

String quotedStrep(std::string_view text) {
   String out = "'";
   for (char const c : text) {
      auto const byte = static_cast<unsigned char>(c);
      if (c == '\'' || c == '\\') {
         out += '\\';
         out += c;
      } else if (byte < 0x20 || byte > 0x7e) {
         out += "\\x";
         out += hexDigits[byte >> 4];
         out += hexDigits[byte & 15];
      } else {
         out += c;
      }
   }
   return out + "'";
}

String realStrep(double value) {
   if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
   char buffer[32];
   auto const result = std::to_chars(buffer, buffer + sizeof buffer, value);
   String text(buffer, result.ptr);
   // Digits alone would read as an integer. 'e' stands for an exponent and 'n' for "nan".
   if (text.find_first_of(".en") == String::npos) text += ".0";
   return text;
}

}  // namespace Qor
