// The library file as it ships, opened as a plug-in is, with its list of exported symbols.
#ifndef TARN_TESTS_ABI_SHIPPEDLIBRARY_H
#define TARN_TESTS_ABI_SHIPPEDLIBRARY_H

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tarn_test {

class ShippedLibrary {
 public:
  /// The library file of this build, opened on the first call.
  static const ShippedLibrary& Get();

  /// The names of the functions at an address, as C++ spells them. The entries of a destructor say
  /// which they are: "CTcpClient::~CTcpClient() [complete]" or "[deleting]".
  [[nodiscard]] std::set<std::string> NamesAt(const void* address) const;
  /// A class's virtual table from its first slot on, by the class's mangled name.
  [[nodiscard]] std::vector<const void*> VirtualTable(const std::string& mangledClass) const;
  /// The address that the table holds in front of its slots.
  [[nodiscard]] const void* TypeInformationIn(const std::string& mangledClass) const;
  [[nodiscard]] const void* Address(const std::string& mangled) const;
  /// The mangled names of all classes that have a virtual table.
  [[nodiscard]] std::set<std::string> PolymorphicClasses() const;

 private:
  struct Symbol {
    const char* address;
    size_t size;
  };

  explicit ShippedLibrary(const char* path);
  [[nodiscard]] const void* const* TableOf(const std::string& mangledClass) const;

  std::map<std::string, Symbol> symbols_;  // by mangled name
};

}  // namespace tarn_test

#endif  // TARN_TESTS_ABI_SHIPPEDLIBRARY_H
