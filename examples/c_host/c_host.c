/* A plain C11 host for the protobuf message-type module, built from the
 * installed SDK alone:
 *
 *   cc -std=c11 $(pkg-config --cflags tarn-protobuf-message-type) c_host.c value_set.c \
 *      $(pkg-config --libs tarn-protobuf-message-type) -ldl -rdynamic -o c_host
 *   c_host $(pkg-config --variable=module tarn-protobuf-message-type) \
 *      EXAMPLES_DIR snapshot.bin update.bin
 *
 * It loads the module by path, starts it with a logger, configures the bundled
 * order-book example and runs the whole cycle on the two wire-format bodies:
 * parse, partial parse, trace, size + serialize, and the delta merge with its
 * room sized by tarn_protobuf_merge_room. Every result is checked against what
 * the example files say; the exit status is the number of mismatches (capped),
 * 0 when all agree. */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "message_type/tarn_message_type.h"
#include "protobuf/tarn_protobuf_merge_room.h"
#include "value_set.h"

/* The eleven entry points, resolved by name. */
typedef struct module_api {
  int (*init)(tarn_module_options, tarn_module_logger, tarn_module_allocator);
  int (*terminate)(void);
  tarn_message_type_context (*create_context)(const tarn_module_options);
  int (*destroy_context)(tarn_message_type_context);
  int (*supported_options)(tarn_message_type_context, const char**, size_t*);
  int (*parse)(tarn_input_message*, tarn_message_xpath_value_set);
  int (*partial_parse)(tarn_input_message*, const tarn_message_xpath_find_set,
                       tarn_message_xpath_value_set);
  int (*trace)(tarn_message_type_context, const tarn_trace_buffer*, tarn_trace_output_buffer*);
  int (*serialize_size)(tarn_output_message_data*);
  int (*serialize)(tarn_output_message_data*);
  int (*merge)(tarn_delta_message_data*);
} module_api;

static int mismatches = 0;

static void check(int ok, const char* what) {
  printf("  %-58s %s\n", what, ok ? "ok" : "MISMATCH");
  mismatches += !ok;
}

/* The module's log lines: one call per line, valid only during the call. A
 * line carries option values and file names as the configuration gave them, so
 * control characters (and the backslash) are written as \xNN: a newline or an
 * escape sequence in a file name must not forge or rewrite other lines. */
static void logger(int level, const char* text) {
  const unsigned char* p;
  fprintf(stderr, "[%3d] ", level);
  for (p = (const unsigned char*)text; *p != '\0'; ++p) {
    if (*p < 0x20 || *p == 0x7F || *p == '\\')
      fprintf(stderr, "\\x%02x", *p);
    else
      fputc(*p, stderr);
  }
  fputc('\n', stderr);
}

/* dlsym answers with an object pointer; copying its bytes into the function
 * pointer is the conversion POSIX promises to work. */
static int resolve(void* module, const char* name, void* slot, size_t size) {
  void* symbol = dlsym(module, name);
  if (symbol == NULL) {
    fprintf(stderr, "c_host: the module lacks %s\n", name);
    return 0;
  }
  memcpy(slot, &symbol, size);
  return 1;
}

#define RESOLVE(field, name) resolve(module, name, &api->field, sizeof api->field)

static int load(const char* path, module_api* api) {
  /* RTLD_NOW: a missing tarn_message_xpath_* function (a host linked without
   * -rdynamic) fails here, with the symbol's name, not in the middle of a parse. */
  void* module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (module == NULL) {
    fprintf(stderr, "c_host: %s\n", dlerror());
    return 0;
  }
  return RESOLVE(init, "tarn_module_init") && RESOLVE(terminate, "tarn_module_terminate") &&
         RESOLVE(create_context, "tarn_message_type_create_context") &&
         RESOLVE(destroy_context, "tarn_message_type_destroy_context") &&
         RESOLVE(supported_options, "tarn_message_type_get_supported_options") &&
         RESOLVE(parse, "tarn_message_type_parse_message") &&
         RESOLVE(partial_parse, "tarn_message_type_partial_parse_message") &&
         RESOLVE(trace, "tarn_message_type_trace_message") &&
         RESOLVE(serialize_size, "tarn_message_type_compute_serialize_size") &&
         RESOLVE(serialize, "tarn_message_type_serialize_message") &&
         RESOLVE(merge, "tarn_message_type_delta_publish_merge");
}

static char* read_file(const char* path, size_t* length) {
  FILE* file = fopen(path, "rb");
  char* data = NULL;
  long size;
  if (file == NULL || fseek(file, 0, SEEK_END) != 0 || (size = ftell(file)) < 0 ||
      fseek(file, 0, SEEK_SET) != 0 || (data = malloc((size_t)size + 1)) == NULL ||
      fread(data, 1, (size_t)size, file) != (size_t)size) {
    fprintf(stderr, "c_host: cannot read %s\n", path);
    exit(2);
  }
  fclose(file);
  *length = (size_t)size;
  return data;
}

/* Parses into an emptied set; a value set must be empty before a parse. */
static int parse(const module_api* api, tarn_message_type_context context, const char* body,
                 size_t length, const host_find_set* find, host_value_set* set) {
  tarn_input_message in;
  memset(&in, 0, sizeof in);
  in.message_type_context = context;
  in.data = body;
  in.byte_count = length;
  tarn_message_xpath_clear(host_value_set_handle(set));
  return find ? api->partial_parse(&in, find, host_value_set_handle(set))
              : api->parse(&in, host_value_set_handle(set));
}

static int has_long(const host_value_set* set, const char* path, long long value) {
  const tarn_message_value_set_entry* e = host_value_set_find(set, path);
  return e != NULL && e->value_mask == 18 && e->l == value;
}

static int has_text(const host_value_set* set, const char* path, const char* text) {
  const tarn_message_value_set_entry* e = host_value_set_find(set, path);
  return e != NULL && e->string_rep_length == strlen(text) &&
         memcmp(e->string_rep, text, e->string_rep_length) == 0;
}

/* Traces into a buffer that starts small and doubles until the module accepts
 * it: a trace refuses a buffer with less than 64 bytes free for any number. */
static char* trace(const module_api* api, tarn_message_type_context context, const char* body,
                   size_t length, size_t* text_length) {
  tarn_trace_buffer in;
  size_t capacity;
  in.data = body;
  in.length = length;
  for (capacity = 64; capacity <= ((size_t)1 << 24); capacity *= 2) {
    tarn_trace_output_buffer out;
    out.output = malloc(capacity);
    out.capacity = capacity;
    out.length = 0;
    if (out.output == NULL) break;
    if (api->trace(context, &in, &out) == TARN_SUCCESS) {
      *text_length = out.length; /* the text is not NUL-terminated */
      return out.output;
    }
    free(out.output);
  }
  return NULL;
}

/* Trace text holds the raw bytes of strings and bytes fields: non-printable
 * ones are shown as \xNN. */
static void print_escaped(const char* text, size_t length) {
  size_t i;
  printf("  ");
  for (i = 0; i < length; ++i) {
    const unsigned char c = (unsigned char)text[i];
    if (c >= 0x20 && c < 0x7F)
      putchar(c);
    else
      printf("\\x%02x", c);
  }
  putchar('\n');
}

/* The value list a host builds from a parsed message: every entry that has
 * bytes in the body, at its depth (top level 1). A nested message with members
 * listed opens a submessage and is written as its tag; one with none (all its
 * fields absent or schema defaults) is a plain value, copied whole. The
 * elements of a packed field all carry the whole field: it is listed once. */
static size_t value_list(const host_value_set* set, uint32_t first, uint32_t depth,
                         tarn_message_value* values, size_t count, size_t* documents) {
  const tarn_message_value_set_entry* previous = NULL;
  uint32_t i;
  for (i = first; i != tarn_message_value_invalid_index;) {
    const tarn_message_value_set_entry* e = &set->storage.values[i];
    int packed_again = previous != NULL && previous->raw_bytes == e->raw_bytes;
    if (e->raw_bytes != NULL && !packed_again) {
      tarn_message_value* v = &values[count++];
      size_t inner = count;
      memset(v, 0, sizeof *v);
      v->depth = depth;
      v->xpath_value.raw_bytes = e->raw_bytes;
      v->xpath_value.raw_bytes_length = e->raw_bytes_length;
      v->xpath_value.type_hint = e->type_hint;
      if (e->first_child != tarn_message_value_invalid_index) {
        count = value_list(set, e->first_child, depth + 1, values, count, documents);
        if (count > inner) {
          v->xpath_value.type_hint = tarn_message_xpath_value_type_document;
          ++*documents;
        }
      }
    }
    previous = e;
    i = e->next_sibling;
  }
  return count;
}

int main(int argc, char** argv) {
  module_api api;
  host_value_set *stored, *update, *scratch;
  tarn_module_option options[4];
  tarn_message_type_context context;
  char options_path[4096];
  size_t stored_length, update_length, text_length, documents = 0, count;
  char *stored_body, *update_body, *text;
  const char* supported;
  size_t supported_length;

  if (argc != 5) {
    fprintf(stderr, "usage: c_host MODULE EXAMPLES_DIR SNAPSHOT.bin UPDATE.bin\n");
    return 2;
  }
  if (!load(argv[1], &api)) return 2;
  stored_body = read_file(argv[3], &stored_length);
  update_body = read_file(argv[4], &update_length);
  stored = host_value_set_create();
  update = host_value_set_create();
  scratch = host_value_set_create();
  if (!stored || !update || !scratch) return 2;

  printf("module %s\n", argv[1]);
  api.init(NULL, logger, malloc);
  api.supported_options(NULL, &supported, &supported_length);
  check(supported_length == 5 && memcmp(supported, "delta", 5) == 0, "supported options: delta");

  /* ProtoPath is "virtual;disk": an empty virtual part makes the directory an
   * ordinary include directory. */
  snprintf(options_path, sizeof options_path, ";%s", argv[2]);
  options[0].key = "ProtoPath";
  options[0].value = options_path;
  options[1].key = "ProtoFile";
  options[1].value = "market_data.proto";
  options[2].key = "Type";
  options[2].value = "tarn.example.BookSnapshot";
  options[3].key = NULL;
  options[3].value = NULL;
  context = api.create_context(options);
  check(context != NULL, "context for tarn.example.BookSnapshot");
  if (context == NULL) return 1;

  printf("parse (%zu bytes)\n", stored_length);
  check(parse(&api, context, stored_body, stored_length, NULL, stored) == TARN_SUCCESS, "status");
  check(has_text(stored, "instrument.symbol", "ACME"), "instrument.symbol \"ACME\"");
  check(has_text(stored, "instrument.venue", "XTRN"), "instrument.venue \"XTRN\" (default)");
  check(has_long(stored, "sequence", 88231), "sequence 88231");
  check(host_value_set_count(stored, "bids") == 2, "two bids");
  check(has_long(stored, "bids.price.mantissa", 1012500), "first bid at 1012500");
  check(host_value_set_count(stored, "recent_changes") == 4, "four packed recent_changes");
  check(has_long(stored, "recent_changes", -300), "recent_changes first -300");

  printf("partial parse of last_trade.price\n");
  {
    uint32_t wanted = host_path_hash(scratch, "last_trade.price");
    host_find_set find;
    find.hashes = &wanted;
    find.count = 1;
    check(parse(&api, context, stored_body, stored_length, &find, scratch) == TARN_SUCCESS,
          "status");
    check(scratch->storage.store_count == 3, "three entries: price, mantissa, exponent");
    check(has_long(scratch, "last_trade.price.mantissa", 1012500), "mantissa 1012500");
    check(has_long(scratch, "last_trade.price.exponent", -4), "exponent -4 (default)");
  }

  printf("trace\n");
  text = trace(&api, context, stored_body, stored_length, &text_length);
  check(text != NULL, "trace accepted");
  if (text != NULL) {
    print_escaped(text, text_length);
    check(text_length > 10 && memcmp(text, "protobuf({", 10) == 0 && text[text_length - 1] == ')',
          "protobuf({...})");
    free(text);
  }

  printf("size + serialize from the parsed values\n");
  {
    tarn_message_value* values = calloc(stored->storage.store_count, sizeof *values);
    tarn_message_value_list list;
    tarn_output_message_data out;
    size_t room;
    int size;
    count = values ? value_list(stored, 0, 1, values, 0, &documents) : 0;
    list.count = count;
    list.values = values;
    memset(&out, 0, sizeof out);
    out.body_type = 5; /* the only body type the module builds */
    out.value_list = &list;
    size = api.serialize_size(&out);
    /* A submessage's length always takes 4 bytes, where the body had fewer. */
    room = (size_t)size + 4 * documents;
    out.message.data = malloc(room);
    check(out.message.data != NULL && api.serialize(&out) == TARN_SUCCESS &&
              out.message.byte_count <= room,
          "serialized within the room");
    check(parse(&api, context, out.message.data, out.message.byte_count, NULL, scratch) ==
                  TARN_SUCCESS &&
              scratch->storage.store_count == stored->storage.store_count &&
              has_long(scratch, "bids.price.mantissa", 1012500) &&
              has_text(scratch, "instrument.symbol", "ACME"),
          "rebuilt message parses to the same values");
    printf("  %zu values, size answer %d, %u bytes written\n", count, size, out.message.byte_count);
    free(out.message.data);
    free(values);
  }

  printf("delta merge (update %zu bytes)\n", update_length);
  check(parse(&api, context, update_body, update_length, NULL, update) == TARN_SUCCESS,
        "update parsed");
  {
    /* The merge checks no capacity: the room comes from the same walk. */
    const size_t room = (size_t)tarn_protobuf_merge_room(host_value_set_handle(update),
                                                         host_value_set_handle(stored));
    const size_t guard = 16;
    tarn_delta_message_data delta;
    char* output = malloc(room + guard);
    int written, intact = 1;
    size_t i;
    if (output == NULL) return 2;
    memset(output, 0x5A, room + guard);
    memset(&delta, 0, sizeof delta);
    delta.output.data = output;
    delta.update_value_set = host_value_set_handle(update);
    delta.source_value_set = host_value_set_handle(stored);
    written = api.merge(&delta);
    for (i = room; i < room + guard; ++i) intact &= output[i] == 0x5A;
    printf("  room %zu, merged %d bytes\n", room, written);
    check(written > 0 && (size_t)written <= room && intact, "written inside the room");
    check(update->storage.store_count == 0, "update set cleared by the merge");
    check(parse(&api, context, output, (size_t)written, NULL, scratch) == TARN_SUCCESS,
          "merged message parses");
    check(has_long(scratch, "sequence", 88232), "sequence 88232 (update)");
    check(has_long(scratch, "phase", 2), "phase AUCTION (update)");
    check(has_long(scratch, "last_trade.quantity", 250), "last_trade.quantity 250 (update)");
    check(has_long(scratch, "last_trade.aggressor", 1), "last_trade.aggressor ASK (stored)");
    check(has_long(scratch, "last_trade.trade_id", 4400917), "last_trade.trade_id (stored)");
    check(host_value_set_count(scratch, "asks") == 1 && has_long(scratch, "asks.quantity", 900),
          "asks replaced by the update's one level");
    check(host_value_set_count(scratch, "bids") == 2, "both stored bids kept");
    check(has_text(scratch, "instrument.symbol", "ACME"), "instrument kept");
    free(output);
  }

  api.destroy_context(context);
  api.terminate();
  host_value_set_destroy(stored);
  host_value_set_destroy(update);
  host_value_set_destroy(scratch);
  free(stored_body);
  free(update_body);
  printf("%s: %d mismatches\n", mismatches ? "FAILED" : "all results as expected", mismatches);
  return mismatches > 100 ? 100 : mismatches;
}
