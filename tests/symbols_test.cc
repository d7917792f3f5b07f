// The module's dynamic symbol table: exactly the eleven entry points, by their
// plain C names, and nothing else defined. Read straight from the ELF file.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "host/module_loader.h"

namespace {

struct DynamicSymbols {
  std::set<std::string> definedFunctions, definedOther, undefined;
};

DynamicSymbols readDynamicSymbols(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string image((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  DynamicSymbols out;
  if (image.size() < sizeof(Elf64_Ehdr)) return out;
  const char* base = image.data();
  auto header = reinterpret_cast<const Elf64_Ehdr*>(base);
  auto sections = reinterpret_cast<const Elf64_Shdr*>(base + header->e_shoff);
  for (int i = 0; i < header->e_shnum; ++i) {
    if (sections[i].sh_type != SHT_DYNSYM) continue;
    const char* names = base + sections[sections[i].sh_link].sh_offset;
    auto symbols = reinterpret_cast<const Elf64_Sym*>(base + sections[i].sh_offset);
    size_t count = sections[i].sh_size / sizeof(Elf64_Sym);
    for (size_t k = 1; k < count; ++k) {
      std::string name = names + symbols[k].st_name;
      int bind = ELF64_ST_BIND(symbols[k].st_info);
      if (bind == STB_LOCAL) continue;
      if (symbols[k].st_shndx == SHN_UNDEF)
        out.undefined.insert(name);
      else if (ELF64_ST_TYPE(symbols[k].st_info) == STT_FUNC)
        out.definedFunctions.insert(name);
      else
        out.definedOther.insert(name);
    }
  }
  return out;
}

TEST(Symbols, ExactlyTheElevenEntryPointsAreExported) {
  DynamicSymbols symbols = readDynamicSymbols(TARN_MODULE_PATH);
  const auto& names = tarn_host::entryPointNames();
  EXPECT_THAT(symbols.definedFunctions, ::testing::UnorderedElementsAreArray(names));
  EXPECT_THAT(symbols.definedOther, ::testing::IsEmpty());
}

TEST(Symbols, HostFunctionsAreLeftForTheHostToProvide) {
  DynamicSymbols symbols = readDynamicSymbols(TARN_MODULE_PATH);
  for (const char* host : {"tarn_message_xpath_update", "tarn_message_xpath_get",
                           "tarn_message_xpath_hash_string", "tarn_message_xpath_hash_add_separator",
                           "tarn_message_xpath_hash_get_base"})
    EXPECT_EQ(1u, symbols.undefined.count(host)) << host;
}

TEST(Symbols, LoaderNamesTheMissingPiece) {
  tarn_host::LoadedModule missingFile;
  std::string error;
  EXPECT_FALSE(missingFile.open("/nonexistent/libnothing.so", error));
  EXPECT_THAT(error, ::testing::StartsWith("cannot load module /nonexistent/libnothing.so: "));

  // The host library itself is a loadable object without the entry points.
  tarn_host::LoadedModule notAModule;
  EXPECT_FALSE(notAModule.open(TARN_HOST_LIBRARY_PATH, error));
  EXPECT_THAT(error, ::testing::EndsWith("lacks the entry point tarn_module_init"));
}

}  // namespace
