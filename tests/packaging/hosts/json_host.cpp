// A host that calls cJSON through libTarn.Generic.so: it is linked to nothing else.
#include <cjson/cJSON.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

static int allocations = 0;
static int releases = 0;

static void* CountingMalloc(size_t size) {
  ++allocations;
  return std::malloc(size);
}

static void CountingFree(void* block) {
  if (block != nullptr) ++releases;
  std::free(block);
}

static int Check(bool holds, const char* what) {
  if (!holds) std::printf("not so: %s\n", what);
  return holds ? 0 : 1;
}

int main() {
  int failures = 0;
  cJSON_Hooks hooks = {CountingMalloc, CountingFree};
  cJSON_InitHooks(&hooks);

  cJSON* tree = cJSON_Parse("{\"err\":0,\"file\":\"a.txt\"}");
  failures += Check(tree != nullptr && cJSON_GetArraySize(tree) == 2, "the text is parsed");
  failures += Check(allocations > 0, "the hooks reach the implementation");
  const cJSON* file = cJSON_GetObjectItem(tree, "FILE");
  failures += Check(cJSON_IsString(file) && std::strcmp(file->valuestring, "a.txt") == 0,
                    "a member is found whatever its case");
  cJSON_AddItemToObject(tree, "n", cJSON_CreateNumber(2.5));
  failures += Check(cJSON_GetNumberValue(cJSON_GetObjectItem(tree, "n")) == 2.5,
                    "a double goes through unchanged");
  char* text = cJSON_PrintUnformatted(tree);
  failures += Check(std::strcmp(text, "{\"err\":0,\"file\":\"a.txt\",\"n\":2.5}") == 0,
                    "the tree is printed");
  cJSON_free(text);
  char buffer[64];
  failures +=
      Check(cJSON_PrintPreallocated(tree, buffer, sizeof buffer, 0) != 0, "four arguments arrive");
  cJSON_Delete(tree);
  failures += Check(releases == allocations, "everything goes back through the hooks");

  failures += Check(cJSON_Parse("{") == nullptr && cJSON_GetErrorPtr() != nullptr,
                    "the error pointer is the implementation's");
  failures += Check(std::strcmp(cJSON_Version(), "1.7") > 0, "the version is libcjson's");
  cJSON_InitHooks(nullptr);
  return failures;
}
