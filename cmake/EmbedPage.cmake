# Makes one page of page.html, page.css and the scripts, and a C++ source with its text.
# usage: cmake -D DIRECTORY=... -D OUT=FILE.cpp -P EmbedPage.cmake
# page.html names the style and the scripts as files and states their places in its policy; the page
# has all inline, and their hashes in the policy. The text "{}" of the element of the data divides
# the page.

# Sets `result` to the source of a policy for this text: "'sha256-BASE64'".
function(hash_source text result)
   string(SHA256 hex "${text}")
   string(APPEND hex "0000")  # 33 bytes; the last one gives the padding
   set(alphabet ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
   set(base64 "")
   foreach(at RANGE 0 60 6)
      string(SUBSTRING "${hex}" ${at} 6 bytes)
      math(EXPR number "0x${bytes}")
      foreach(shift 18 12 6 0)
         math(EXPR digit "(${number} >> ${shift}) & 63")
         string(SUBSTRING ${alphabet} ${digit} 1 character)
         string(APPEND base64 ${character})
      endforeach()
   endforeach()
   string(SUBSTRING ${base64} 0 43 base64)
   set(${result} "'sha256-${base64}='" PARENT_SCOPE)
endfunction()

# Replaces a text that occurs exactly once.
macro(replace_once variable from to)
   string(FIND "${${variable}}" "${from}" first)
   string(FIND "${${variable}}" "${from}" last REVERSE)
   if(first EQUAL -1 OR NOT first EQUAL last)
      message(FATAL_ERROR "page.html does not have exactly once: ${from}")
   endif()
   string(REPLACE "${from}" "${to}" ${variable} "${${variable}}")
endmacro()

# A string literal of C++ for this text. Compilers limit the length of one literal.
function(literal text result)
   set(literals "")
   string(LENGTH "${text}" length)
   set(at 0)
   while(at LESS length)
      string(SUBSTRING "${text}" ${at} 8000 part)
      string(APPEND literals "   R\"~~~(${part})~~~\"\n")
      math(EXPR at "${at} + 8000")
   endwhile()
   set(${result} "${literals}" PARENT_SCOPE)
endfunction()

file(READ ${DIRECTORY}/page.html page)
file(READ ${DIRECTORY}/page.css style)
hash_source("${style}" style_source)
set(script_sources "")
foreach(name charts.js page.js)
   file(READ ${DIRECTORY}/${name} script)
   hash_source("${script}" script_source)
   list(APPEND script_sources ${script_source})
   replace_once(page "<script src=\"${name}\"></script>" "<script>${script}</script>")
endforeach()
list(JOIN script_sources " " script_sources)

replace_once(page "<link rel=\"stylesheet\" href=\"page.css\">" "<style>${style}</style>")
replace_once(page "style-src 'self'" "style-src ${style_source}")
replace_once(page "script-src 'self'" "script-src ${script_sources}")
if(NOT page MATCHES "http-equiv=\"Content-Security-Policy\" content=\"([^\"]*)\"")
   message(FATAL_ERROR "page.html has no policy")
endif()
literal("${CMAKE_MATCH_1}; frame-ancestors 'none'" policy)

set(data "<script type=\"application/json\" id=\"data\">")
string(FIND "${page}" "${data}{}" at)
if(at EQUAL -1)
   message(FATAL_ERROR "page.html has no place for the data")
endif()
string(LENGTH "${data}" length)
math(EXPR at "${at} + ${length}")
string(SUBSTRING "${page}" 0 ${at} begin)
math(EXPR at "${at} + 2")
string(SUBSTRING "${page}" ${at} -1 end)
literal("${begin}" begin)
literal("${end}" end)

file(WRITE ${OUT} "// Made by cmake/EmbedPage.cmake.
#include \"agent/page/PageText.h\"

namespace Agent {

constexpr std::string_view pageBegin =
${begin};
constexpr std::string_view pageEnd =
${end};
constexpr std::string_view pagePolicy =
${policy};

}  // namespace Agent
")
