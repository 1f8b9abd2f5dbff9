// Measures a property list before the library that parses it is asked, because that library builds and frees its tree
// by recursion and copies an object once for every reference to it.
//
// Refused: nesting beyond 64 levels; a binary list whose expanded tree has more than 65,536 nodes or 8 MiB of text (a
// few hundred bytes of shared references can stand for terabytes), that refers outside itself, or that holds a text
// with a 0 inside (as a key it makes the library end the process); an XML list with a document type of its own
// (entities that expand into each other). What passes need not be well formed: the parser decides that.
#pragma once

#include <string_view>

namespace info_plist_guard {

bool isBinary(std::string_view content);
bool binaryIsHarmless(std::string_view content);
bool xmlIsHarmless(std::string_view content);

}  // namespace info_plist_guard
