// Loads the library given as the first argument and calls cJSON by name; the hooks set through the
// library must serve libcjson itself, too: there is one implementation in a process.
#include <cjson/cJSON.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

static int allocations = 0;

static void* CountingMalloc(size_t size) {
  ++allocations;
  return std::malloc(size);
}

template <typename Function>
static Function* Named(void* library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library, name));
}

static int SetHooksThroughOneAndUseTheOther(void* ours, void* theirs) {
  cJSON_Hooks hooks = {CountingMalloc, std::free};
  Named<decltype(cJSON_InitHooks)>(ours, "cJSON_InitHooks")(&hooks);
  cJSON* item = Named<decltype(cJSON_CreateNull)>(theirs, "cJSON_CreateNull")();
  const bool reached = allocations == 1;
  Named<decltype(cJSON_Delete)>(ours, "cJSON_Delete")(item);
  Named<decltype(cJSON_InitHooks)>(ours, "cJSON_InitHooks")(nullptr);
  return reached ? 0 : 1;
}

static int CallFirstOnManyThreads(void* library) {
  auto* create = Named<decltype(cJSON_CreateString)>(library, "cJSON_CreateString");
  auto* destroy = Named<decltype(cJSON_Delete)>(library, "cJSON_Delete");
  std::vector<int> failures(8, 1);
  std::vector<std::thread> threads;
  for (int& failed : failures) {
    threads.emplace_back([create, destroy, &failed] {
      cJSON* item = create("x");
      failed = item != nullptr && item->valuestring[0] == 'x' ? 0 : 1;
      destroy(item);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  int sum = 0;
  for (const int failed : failures)
    sum += failed;
  return sum;
}

int main(int, char** argv) {
  void* ours = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (ours == nullptr) {
    std::puts(dlerror());
    return 1;
  }
  const int threadFailures = CallFirstOnManyThreads(ours);
  void* theirs = dlopen("libcjson.so.1", RTLD_NOW | RTLD_NOLOAD);
  if (theirs == nullptr) return 2;
  if (dlsym(ours, "cJSON_Parse") == dlsym(theirs, "cJSON_Parse")) return 3;
  return threadFailures + SetHooksThroughOneAndUseTheOther(ours, theirs);
}
