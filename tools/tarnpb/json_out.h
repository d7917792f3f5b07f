// The one way the tool writes JSON: RapidJSON's Writer over a buffer handed to
// a FILE* in pieces, so that a document is written as it is built (memory
// constant beside what it describes) and is well-formed by construction:
// members, commas, quotes and escapes are the writer's. The tool adds its own
// rules for what JSON cannot hold as such: text that is not UTF-8, integers
// beyond a double's precision, and nan and inf.
#ifndef TARN_TOOLS_TARNPB_JSON_OUT_H
#define TARN_TOOLS_TARNPB_JSON_OUT_H

#include <rapidjson/writer.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tarnpb {

// RapidJSON's output stream: characters gathered in a fixed buffer and handed
// to the FILE* whenever it fills, and at the end of each document.
class JsonStream {
 public:
  typedef char Ch;
  explicit JsonStream(std::FILE* pOut_) : _pOut(pOut_) {}
  JsonStream(const JsonStream&) = delete;
  JsonStream& operator=(const JsonStream&) = delete;
  ~JsonStream() { Flush(); }

  void Put(char c_) {
    if (_p == _buffer + sizeof _buffer) Flush();
    *_p++ = c_;
  }
  void write(const char* pText_, size_t length_);
  void Flush();

 private:
  std::FILE* _pOut;
  char _buffer[size_t{1} << 16];
  char* _p = _buffer;
};

// RapidJSON's Writer with one addition: a value whose text the tool writes
// itself (a number in the tool's form, a hex string) between begin and end,
// in pieces rather than a character at a time.
class JsonWriter : public rapidjson::Writer<JsonStream> {
 public:
  explicit JsonWriter(JsonStream& stream_) : Writer(stream_) {}
  JsonStream& beginValue(rapidjson::Type type_) {
    Prefix(type_);
    return *os_;
  }
  void endValue() { EndValue(true); }
};

// One JSON document written to pOut_ as it is built; the destructor ends it
// with a newline.
class JsonOut {
 public:
  explicit JsonOut(std::FILE* pOut_) : _stream(pOut_), _writer(_stream) {}
  JsonOut(const JsonOut&) = delete;
  JsonOut& operator=(const JsonOut&) = delete;
  ~JsonOut();

  void beginObject() { _writer.StartObject(); }
  void endObject() { _writer.EndObject(); }
  void beginArray() { _writer.StartArray(); }
  void endArray() { _writer.EndArray(); }
  // A member name; the tool's names are ASCII.
  JsonOut& key(const char* name_) {
    _writer.Key(name_);
    return *this;
  }

  void null() { _writer.Null(); }
  void boolean(bool value_) { _writer.Bool(value_); }
  // Integers exactly, all 64 bits: 18446744073709551615 stays so.
  void integer(int64_t value_) { _writer.Int64(value_); }
  void unsignedInteger(uint64_t value_) { _writer.Uint64(value_); }
  // The shortest text that reads back as the same double, or float: 1.5e-07
  // of a float, not the 1.500000053056283e-07 of its widened double. nan and
  // inf, which are no JSON numbers, go as the strings "nan", "inf", "-inf".
  void number(double value_);
  void number(float value_);
  // A string of UTF-8 text. A byte that is no part of well-formed UTF-8 goes
  // as U+FFFD; the result says whether any did.
  bool string(const char* pText_, size_t length_);
  bool string(const std::string& text_) { return string(text_.data(), text_.size()); }
  void strings(const std::vector<std::string>& values_);
  // Bytes that may not be text: key_ holds them as a string, and when they
  // are not UTF-8, hexKey_ holds their exact bytes as well.
  void bytes(const char* key_, const char* hexKey_, const char* pData_, size_t length_);
  // "089601": bytes as lowercase hex digits.
  void hex(const char* pData_, size_t length_);

 private:
  JsonStream _stream;
  JsonWriter _writer;
  std::string _scratch;
};

}  // namespace tarnpb

#endif
