// The one way the tool writes JSON: RapidJSON's Writer over a buffer handed to
// a FILE* in pieces, so that a document is written as it is built (memory
// constant beside what it describes) and is well-formed by construction:
// members, commas, quotes and escapes are the writer's. The tool adds its own
// rules for what JSON cannot hold as such: text that is not UTF-8, integers
// beyond a double's precision, and nan and inf.
#ifndef TARN_TOOLS_TARNPB_JSON_OUT_H
#define TARN_TOOLS_TARNPB_JSON_OUT_H

#include <rapidjson/writer.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
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
  void write(const char* pText_, size_t length_) {
    if (length_ <= static_cast<size_t>(_buffer + sizeof _buffer - _p)) {
      std::memcpy(_p, pText_, length_);
      _p += length_;
    } else {
      _writeLong(pText_, length_);
    }
  }
  // An integer's decimal digits, written in place.
  template <typename T>
  void decimal(T value_) {
    if (_buffer + sizeof _buffer - _p < 24) Flush();
    _p = std::to_chars(_p, _buffer + sizeof _buffer, value_).ptr;
  }
  // The text between double quotes, which it must not need to escape.
  void writeQuoted(const char* pText_, size_t length_) {
    if (length_ + 2 > static_cast<size_t>(_buffer + sizeof _buffer - _p)) {
      Put('"');
      write(pText_, length_);
      Put('"');
      return;
    }
    *_p++ = '"';
    std::memcpy(_p, pText_, length_);
    _p += length_;
    *_p++ = '"';
  }
  void Flush();

 private:
  void _writeLong(const char* pText_, size_t length_);

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

  // Out of line: these push onto the writer's stack (json_out.cc says why).
  void beginObject();
  void endObject() { _writer.EndObject(); }
  void beginArray();
  void endArray() { _writer.EndArray(); }
  // A member name: the tool's names are ASCII letters and underscores, so
  // they go in one piece.
  template <size_t N>
  JsonOut& key(const char (&name_)[N]) {
    return _key(name_, N - 1);
  }
  JsonOut& key(const std::string& name_) { return _key(name_.data(), name_.size()); }

  void null() { _ready("null", 4, rapidjson::kNullType); }
  void boolean(bool value_) {
    _ready(value_ ? "true" : "false", value_ ? 4 : 5,
           value_ ? rapidjson::kTrueType : rapidjson::kFalseType);
  }
  // Integers exactly, all 64 bits: 18446744073709551615 stays so.
  void integer(int64_t value_) { _integer(value_); }
  void unsignedInteger(uint64_t value_) { _integer(value_); }
  // The shortest text that reads back as the same double, or float: 1.5e-07
  // of a float, not the 1.500000053056283e-07 of its widened double. nan and
  // inf, which are no JSON numbers, go as the strings "nan", "inf", "-inf".
  void number(double value_);
  void number(float value_);
  // A string of UTF-8 text. A byte that is no part of well-formed UTF-8 goes
  // as U+FFFD; the result says whether any did.
  bool string(const char* pText_, size_t length_);
  bool string(const std::string& text_) { return string(text_.data(), text_.size()); }
  bool string(const char* pText_) { return string(pText_, std::strlen(pText_)); }
  // A string the tool spells itself, which needs no escape (e.g. "int").
  void word(const char* pWord_) { _key(pWord_, std::strlen(pWord_)); }
  void strings(const std::vector<std::string>& values_);
  // Bytes that may not be text: key_ holds them as a string, and when they
  // are not UTF-8, hexKey_ holds their exact bytes as well.
  void bytes(const char* key_, const char* hexKey_, const char* pData_, size_t length_);
  // "089601": bytes as lowercase hex digits.
  void hex(const char* pData_, size_t length_);

 private:
  // Inlined where a name's length is known, so that it is copied as a
  // constant: a parse view writes fourteen names for every entry.
  __attribute__((always_inline)) JsonOut& _key(const char* pName_, size_t length_) {
    _writer.beginValue(rapidjson::kStringType).writeQuoted(pName_, length_);
    _writer.endValue();
    return *this;
  }
  template <typename T>
  void _integer(T value_) {
    _writer.beginValue(rapidjson::kNumberType).decimal(value_);
    _writer.endValue();
  }
  template <typename T>
  void _floating(T value_);
  // A value whose text is ready.
  void _ready(const char* pText_, size_t length_, rapidjson::Type type_) {
    _writer.beginValue(type_).write(pText_, length_);
    _writer.endValue();
  }

  JsonStream _stream;
  JsonWriter _writer;
  std::string _scratch;
};

}  // namespace tarnpb

#endif
