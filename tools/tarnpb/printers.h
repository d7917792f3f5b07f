// Renders what the module stored in a value set: an indented tree for people
// and a JSON document for scripts. Both read the entries exactly as the module
// left them; the tool's own schema only adds the names of enum values.
#ifndef TARN_TOOLS_TARNPB_PRINTERS_H
#define TARN_TOOLS_TARNPB_PRINTERS_H

#include <cstdio>

#include "parse_view.h"

namespace tarnpb {

class JsonOut;

// Both print as they go, through a buffer handed to the output in pieces:
// output is linear in the entries and memory constant beside the value set.
// The elements of a packed field all carry the whole field's bytes; every
// element after the first names the first instead of repeating them.
void printTree(std::FILE* pOut_, const ParseView& view_);
// The parse as one JSON object, a value of the document out_ is writing.
void printJson(JsonOut& out_, const ParseView& view_);

}  // namespace tarnpb

#endif
