// The message shapes of the benchmark corpus: for each, the root type, a stored
// body and a delta update, generated deterministically at start-up with the
// protoc-generated classes of shapes.proto, and an empty generated message
// that the generated-code contender parses into.
#ifndef TARN_BENCH_SHAPES_H
#define TARN_BENCH_SHAPES_H

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

namespace tarn_bench {

struct Shape {
  std::string name;      // short label in the table
  std::string typeName;  // full name of the root message type
  std::string body;      // the stored message
  std::string update;    // a delta for the stored message
  std::unique_ptr<google::protobuf::Message> generated;
};

std::vector<Shape> makeShapes();

}  // namespace tarn_bench

#endif
