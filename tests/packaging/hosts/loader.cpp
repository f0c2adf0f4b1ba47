// A host that is linked to nothing of ours: loads the library given as the first argument, finds
// what it needs by mangled name, runs services through the interfaces' virtual tables, calls cJSON,
// unloads the library once no service runs, and does it all once more.
#include <Tarn/Generic/Deque.h>
#include <Tarn/Generic/TcpClient.h>
#include <cjson/cJSON.h>
#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using Tarn::Generic::ConnType;
using Tarn::Generic::IDeque;
using Tarn::Generic::ITcpClient;

static void Expect(bool holds, const char* what) {
  if (holds) return;
  std::printf("not so: %s\n", what);
  std::exit(1);
}

template <typename Function>
static Function* Named(void* library, const char* name) {
  void* found = dlsym(library, name);
  Expect(found != nullptr, name);
  return reinterpret_cast<Function*>(found);
}

static int Threads() {
  int count = 0;
  DIR* tasks = opendir("/proc/self/task");
  while (const dirent* entry = readdir(tasks))
    count += entry->d_name[0] != '.' ? 1 : 0;
  closedir(tasks);
  return count;
}

/// A thread that has been joined may stay listed for a moment.
static void ExpectOneThread() {
  for (int i = 0; i < 2000 && Threads() > 1; ++i)
    usleep(10000);
  Expect(Threads() == 1, "no thread is left");
}

static void CallFunctionsAndReadData(void* library) {
  char stateless = 0;
  auto* crc = Named<unsigned int(void*, const unsigned char*, unsigned int)>(
      library, "_ZN4Tarn7Generic3CRC6CRC_32EPKhj");
  const unsigned char* digits = reinterpret_cast<const unsigned char*>("123456789");
  Expect(crc(&stateless, digits, 9) == 0xCBF43926u, "the CRC of nine digits");

  unsigned char digest[32];
  auto* sha256 =
      Named<void(unsigned char*, const unsigned char*, size_t)>(library, "_Z11sha256_hashPhPKhm");
  sha256(digest, digits, 0);
  Expect(digest[0] == 0xe3 && digest[31] == 0x55, "the SHA-256 of nothing");

  Expect(Named<unsigned char>(library, "Table_CRC8")[1] == 0x7F, "the table of the CRC");
  Expect(*Named<int>(library, "g_nOutLevel") == 4, "the level of the echo");
}

static void Count(void* counter, void* item) {
  *static_cast<std::atomic<int>*>(counter) += *static_cast<int*>(item);
}

static void RunQueue(void* library) {
  auto* create = Named<IDeque*(const char*)>(library, "_ZN4Tarn7Generic6IDeque6CreateEPKc");
  auto* destroy = Named<void(IDeque*)>(library, "_ZN4Tarn7Generic6IDeque6DeleteEPS1_");
  std::atomic<int> sum(0);
  int one = 1;
  IDeque* queue = create("loader");
  queue->RegisterEvent(&sum, Count);
  Expect(queue->Start(2), "the queue starts");
  for (int i = 0; i < 100; ++i)
    queue->PushOneData(&one);
  for (int i = 0; i < 2000 && sum < 100; ++i)
    usleep(10000);
  queue->Stop();
  Expect(sum == 100, "the queue serves every item");
  destroy(queue);
  destroy(nullptr);
}

static void Store(void* event, ConnType type) {
  *static_cast<std::atomic<int>*>(event) = type;
}

/// A connect on a thread of its own, to a port where nobody listens.
static void RunClient(void* library) {
  auto* create = Named<ITcpClient*()>(library, "_ZN4Tarn7Generic10ITcpClient6CreateEv");
  std::atomic<int> event(-1);
  ITcpClient* client = create();
  client->RegisterEvent(&event, Store, nullptr);
  Expect(client->Connect("127.0.0.1", 1, -1) == 1, "the connect begins");
  for (int i = 0; i < 2000 && event == -1; ++i)
    usleep(10000);
  Expect(event == Tarn::Generic::CONN_FAILED, "the connect fails");
  client->Disconnect();
  // Through the slot of the destructor, as compilers do it.
  delete client;
}

static void CallJson(void* library) {
  auto* parse = Named<decltype(cJSON_Parse)>(library, "cJSON_Parse");
  auto* item = Named<decltype(cJSON_GetObjectItem)>(library, "cJSON_GetObjectItem");
  auto* print = Named<decltype(cJSON_PrintUnformatted)>(library, "cJSON_PrintUnformatted");
  cJSON* tree = parse("{\"err\": 0, \"file\": \"a\"}");
  Expect(tree != nullptr && std::strcmp(item(tree, "file")->valuestring, "a") == 0, "the member");
  char* text = print(tree);
  Expect(std::strcmp(text, "{\"err\":0,\"file\":\"a\"}") == 0, "the printed text");
  Named<decltype(cJSON_free)>(library, "cJSON_free")(text);
  Named<decltype(cJSON_Delete)>(library, "cJSON_Delete")(tree);
}

int main(int, char** argv) {
  Expect(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr, "the library is not there yet");
  for (int round = 0; round < 2; ++round) {
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    Expect(library != nullptr, library == nullptr ? dlerror() : "");
    CallFunctionsAndReadData(library);
    RunQueue(library);
    RunClient(library);
    CallJson(library);
    ExpectOneThread();
    Expect(dlclose(library) == 0, "the library is given back");
    // Its code stays mapped all the same, so that a thread on its last steps never loses it.
    void* kept = dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD);
    Expect(kept != nullptr && dlclose(kept) == 0, "the library stays mapped");
  }
  return 0;
}
