// Loads the library given as the first argument twice, calls it by mangled names and unloads it.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>

typedef unsigned int Crc32(void* self, const unsigned char* data, unsigned int length);
typedef void* Create();
typedef void Delete(void*);

static int CallByName(void* library) {
  Crc32* crc = reinterpret_cast<Crc32*>(dlsym(library, "_ZN4Tarn7Generic3CRC6CRC_32EPKhj"));
  Create* create =
      reinterpret_cast<Create*>(dlsym(library, "_ZN4Tarn7Generic10ITcpClient6CreateEv"));
  Delete* destroy =
      reinterpret_cast<Delete*>(dlsym(library, "_ZN4Tarn7Generic10ITcpClient6DeleteEPS1_"));
  const unsigned char* table = static_cast<unsigned char*>(dlsym(library, "Table_CRC8"));
  if (crc == nullptr || create == nullptr || destroy == nullptr || table == nullptr) return 2;
  char stateless = 0;
  if (crc(&stateless, reinterpret_cast<const unsigned char*>("123456789"), 9) != 0xCBF43926u)
    return 3;
  if (table[0] != 0x21) return 4;
  void* client = create();
  if (client == nullptr) return 5;
  destroy(client);
  destroy(nullptr);
  return 0;
}

int main(int, char** argv) {
  for (int round = 0; round < 2; ++round) {
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
      std::puts(dlerror());
      return 1;
    }
    const int failure = CallByName(library);
    if (failure != 0) return failure;
    if (dlclose(library) != 0) return 6;
  }
  return 0;
}
