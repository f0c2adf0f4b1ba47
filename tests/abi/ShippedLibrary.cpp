#include "tests/abi/ShippedLibrary.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace tarn_test {
namespace {

constexpr size_t kWordsBeforeSlots = 2;  // the offset to the whole object, the type information

std::vector<char> ContentOf(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

template <typename Record>
std::vector<Record> RecordsAt(const std::vector<char>& content, size_t offset, size_t count) {
  if (offset + count * sizeof(Record) > content.size())
    throw std::runtime_error("a cut library file");
  std::vector<Record> records(count);
  std::memcpy(records.data(), content.data() + offset, count * sizeof(Record));
  return records;
}

std::string Demangled(const std::string& mangled) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), &std::free);
  return status == 0 ? text.get() : mangled;
}

std::string Described(const std::string& mangled) {
  if (mangled.ends_with("D1Ev")) return Demangled(mangled) + " [complete]";
  if (mangled.ends_with("D0Ev")) return Demangled(mangled) + " [deleting]";
  return Demangled(mangled);
}

const char* LoadedAt(const char* path) {
  void* const handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) throw std::runtime_error(dlerror());
  const link_map* map = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) throw std::runtime_error(dlerror());
  return reinterpret_cast<const char*>(map->l_addr);
}

}  // namespace

const ShippedLibrary& ShippedLibrary::Get() {
  static const ShippedLibrary library(TARN_LIBRARY);
  return library;
}

ShippedLibrary::ShippedLibrary(const char* path) {
  const char* const base = LoadedAt(path);
  const std::vector<char> content = ContentOf(path);
  const Elf64_Ehdr head = RecordsAt<Elf64_Ehdr>(content, 0, 1)[0];
  const auto sections = RecordsAt<Elf64_Shdr>(content, head.e_shoff, head.e_shnum);
  for (const Elf64_Shdr& section : sections) {
    if (section.sh_type != SHT_DYNSYM) continue;
    const char* const names = content.data() + sections.at(section.sh_link).sh_offset;
    const size_t count = section.sh_size / sizeof(Elf64_Sym);
    for (const Elf64_Sym& symbol : RecordsAt<Elf64_Sym>(content, section.sh_offset, count)) {
      if (symbol.st_shndx == SHN_UNDEF) continue;
      symbols_[names + symbol.st_name] = {base + symbol.st_value, symbol.st_size};
    }
  }
}

std::set<std::string> ShippedLibrary::NamesAt(const void* address) const {
  std::set<std::string> names;
  for (const auto& [mangled, symbol] : symbols_) {
    if (symbol.address == address) names.insert(Described(mangled));
  }
  return names;
}

const void* ShippedLibrary::Address(const std::string& mangled) const {
  return symbols_.at(mangled).address;
}

const void* const* ShippedLibrary::TableOf(const std::string& mangledClass) const {
  return static_cast<const void* const*>(Address("_ZTV" + mangledClass));
}

std::vector<const void*> ShippedLibrary::VirtualTable(const std::string& mangledClass) const {
  const void* const* const table = TableOf(mangledClass);
  const size_t words = symbols_.at("_ZTV" + mangledClass).size / sizeof(void*);
  return std::vector<const void*>(table + kWordsBeforeSlots, table + words);
}

const void* ShippedLibrary::TypeInformationIn(const std::string& mangledClass) const {
  return TableOf(mangledClass)[1];
}

std::set<std::string> ShippedLibrary::PolymorphicClasses() const {
  std::set<std::string> classes;
  for (const auto& [mangled, symbol] : symbols_) {
    if (mangled.starts_with("_ZTV")) classes.insert(mangled.substr(4));
  }
  return classes;
}

}  // namespace tarn_test
