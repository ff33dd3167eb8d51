# Turns one string list (one entry per line, UTF-8) into a C++ source that
# defines the list's accessor over a constant array.
#   cmake -DINPUT=<list.txt> -DOUTPUT=<list.cc> -DNAME=<accessor> -P EmbedStringList.cmake
# Entries are copied byte for byte into raw string literals; characters that
# would not survive that (or CMake's list handling) are refused with the file
# and line named, so a bad entry fails the build instead of changing meaning.
cmake_minimum_required(VERSION 3.22)

foreach(var INPUT OUTPUT NAME)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "EmbedStringList.cmake: ${var} is not set")
  endif()
endforeach()

file(READ "${INPUT}" content)
string(REPLACE "\r" "" content "${content}")
foreach(forbidden SEMICOLON OPEN CLOSE BACKSLASH)
  if(forbidden STREQUAL "SEMICOLON")
    string(FIND "${content}" ";" at)
  elseif(forbidden STREQUAL "OPEN")
    string(FIND "${content}" "[" at)
  elseif(forbidden STREQUAL "CLOSE")
    string(FIND "${content}" "]" at)
  else()
    string(FIND "${content}" "\\" at)
  endif()
  if(NOT at EQUAL -1)
    message(FATAL_ERROR "${INPUT}: entries must not contain ';', '[', ']' or a backslash")
  endif()
endforeach()
# One trailing line feed ends the last entry; it does not start another.
string(REGEX REPLACE "\n$" "" content "${content}")
if(content STREQUAL "")
  message(FATAL_ERROR "${INPUT}: the list is empty")
endif()
string(REPLACE "\n" ";" lines "${content}")

set(body "")
set(lineno 0)
foreach(entry IN LISTS lines)
  math(EXPR lineno "${lineno} + 1")
  if(entry STREQUAL "")
    message(FATAL_ERROR "${INPUT}:${lineno}: empty entry")
  endif()
  if(entry MATCHES "\\)lvdata\"")
    message(FATAL_ERROR "${INPUT}:${lineno}: entry contains the literal delimiter")
  endif()
  string(APPEND body "    R\"lvdata(${entry})lvdata\",\n")
endforeach()

get_filename_component(input_path "${INPUT}" ABSOLUTE)
file(RELATIVE_PATH source "${CMAKE_CURRENT_LIST_DIR}/../../.." "${input_path}")
set(text "// Generated at build time from ${source}; edit that file instead.
#include \"lumvane/filter/LVStringLists.h\"

namespace lumvane {
namespace {

constexpr std::string_view kEntries[] = {
${body}};

}  // namespace

LVStringList ${NAME}() { return LVStringList(kEntries, sizeof(kEntries) / sizeof(kEntries[0])); }

}  // namespace lumvane
")

# Rewrite only on change so that an unrelated reconfigure rebuilds nothing.
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" old)
  if(old STREQUAL text)
    return()
  endif()
endif()
file(WRITE "${OUTPUT}" "${text}")
