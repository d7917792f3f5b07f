// Renders a protobuf wire-format body as one line of trace text, guided by the
// message type's descriptors: "protobuf(" then the fields as
// {"name":value,...} then ")". It is a trace, not JSON: strings are copied
// unescaped, repeated fields repeat their key, and numbers are formatted by
// wire type (packed lists by field type). Nothing is validated and nothing is
// allocated; all text goes through one bounded stream, whose overflow
// exception unwinds the whole trace from any depth.
//
// Malformed input never leads to a read outside the body: a level ends, as it
// does at an unknown field number, when a tag or a value would run past its
// end, or when a message field would nest deeper than the wire rules allow
// (wire_format.h). A length that runs past the end is cut to what is left.
#ifndef TARN_PROTOBUF_TARN_PROTOBUF_V2_TRACER_H
#define TARN_PROTOBUF_TARN_PROTOBUF_V2_TRACER_H

#include <cstddef>
#include <cstdint>

#include "field_table.h"
#include "tarn_common.h"
#include "trace_output_stream.h"
#include "value_decoder.h"
#include "wire_format.h"

class tarn_protobuf_v2_tracer {
 public:
  tarn_protobuf_v2_tracer(const type_table* root_, tarn_trace_output_buffer* pOutput_)
      : _os(pOutput_), _root(root_), _body() {}

  // Writes the whole trace of pMessage_. Throws
  // trace_output_stream::trace_output_exception when the buffer is full.
  void trace(const tarn_trace_buffer* pMessage_);

 private:
  // One message level [pStart_, pEnd_) of the body, braces included; depth_
  // is its nesting level, the body's being 0. Positions rather than a
  // cursor cross the calls, so that each level's cursor stays in registers.
  void _traceLevel(const char* pStart_, const char* pEnd_, const type_table& table_,
                   unsigned depth_);
  // One packed block [pStart_, pEnd_), brackets included.
  void _tracePacked(const field_entry& field_, const char* pStart_, const char* pEnd_);
  template <value_decoder Decoder>
  void _traceElements(wire_cursor& block_);
  template <value_decoder Real, value_decoder Integer>
  bool _traceFixed(const field_entry& field_, uint32_t wireType_, wire_cursor& in_, bool first_);
  // Renders one field whose tag has been read; false ends the level.
  bool _traceField(const field_entry& field_, uint32_t wireType_, wire_cursor& in_, bool first_,
                   unsigned depth_);
  // A scalar's raw bits as decoder_ converts them: a float or a double with
  // a fraction, an integer signed or unsigned as the decoder says.
  void _scalar(unsigned decoder_, uint64_t bits_);
  trace_output_stream& _separator(bool first_);
  void _key(const field_entry& field_, bool first_);
  // The key written piece by piece: what fits of it when the whole does not.
  TARN_NOINLINE void _keyInPieces(const field_entry& field_, bool first_);

  trace_output_stream _os;
  const type_table* _root;
  wire_body _body;  // the body being traced, which every level's cursor reads
};

#endif
