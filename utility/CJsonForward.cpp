// The cJSON functions under their own names, so that a host which links only this library finds
// them.
//
// Each one hands on to libcjson.so.1's definition: a process has one cJSON with one set of hooks
// and one error pointer, whether a caller comes through this library or through libcjson itself.

// Makes the header declare its functions with default visibility; ours hides everything else.
#define CJSON_API_VISIBILITY
#include <cjson/cJSON.h>
#include <dlfcn.h>

#include <atomic>
#include <tuple>

namespace {

/// The result and the parameters of a function, by its type.
template <typename Function>
struct Signature;
template <typename Result, typename... Parameters>
struct Signature<Result(Parameters...)> {
  using ResultType = Result;
  using ParameterTypes = std::tuple<Parameters...>;
};

template <typename Function>
using Result = typename Signature<Function>::ResultType;
template <size_t Index, typename Function>
using Parameter = std::tuple_element_t<Index, typename Signature<Function>::ParameterTypes>;

/// Looks in libcjson.so.1 only, never in the process's global scope, where our own function would
/// be found. The handle is kept for ever: a function pointer of it may be in use at any time.
void* FindInCJson(const char* name) noexcept {
  static std::atomic<void*> library{nullptr};
  void* handle = library.load(std::memory_order_acquire);
  if (handle == nullptr) {
    handle = dlopen("libcjson.so.1", RTLD_LAZY | RTLD_LOCAL);
    if (handle == nullptr) return nullptr;
    library.store(handle, std::memory_order_release);
  }
  return dlsym(handle, name);
}

/// libcjson's `name`, looked up on the first call; null when there is none. Threads that meet here
/// look it up twice at worst. A file of that name that is this very library counts as none, or the
/// call would come back to `self` for ever.
template <typename Function>
Function* Resolve(std::atomic<Function*>& known, Function* self, const char* name) noexcept {
  Function* target = known.load(std::memory_order_acquire);
  if (target != nullptr) return target;
  target = reinterpret_cast<Function*>(FindInCJson(name));
  if (target == self) return nullptr;
  known.store(target, std::memory_order_release);
  return target;
}

}  // namespace

// TARN_FORWARD_<number of arguments>(name) defines the function `name` exactly as the header
// declares it. One that libcjson does not have gives null or 0 and does nothing.
#define TARN_FORWARD(name, parameters, arguments)                         \
  Result<decltype(name)> name parameters {                                \
    static std::atomic<decltype(name)*> known{nullptr};                   \
    auto* const target = Resolve(known, &name, #name);                    \
    if (target == nullptr) return static_cast<Result<decltype(name)>>(0); \
    return target arguments;                                              \
  }
#define TARN_FORWARD_0(name) TARN_FORWARD(name, (), ())
#define TARN_FORWARD_1(name) TARN_FORWARD(name, (Parameter<0, decltype(name)> a), (a))
#define TARN_FORWARD_2(name) \
  TARN_FORWARD(name, (Parameter<0, decltype(name)> a, Parameter<1, decltype(name)> b), (a, b))
#define TARN_FORWARD_3(name)                                                    \
  TARN_FORWARD(name,                                                            \
               (Parameter<0, decltype(name)> a, Parameter<1, decltype(name)> b, \
                Parameter<2, decltype(name)> c),                                \
               (a, b, c))
#define TARN_FORWARD_4(name)                                                     \
  TARN_FORWARD(name,                                                             \
               (Parameter<0, decltype(name)> a, Parameter<1, decltype(name)> b,  \
                Parameter<2, decltype(name)> c, Parameter<3, decltype(name)> d), \
               (a, b, c, d))

extern "C" {

// The library and its memory
TARN_FORWARD_0(cJSON_Version)
TARN_FORWARD_1(cJSON_InitHooks)
TARN_FORWARD_1(cJSON_malloc)
TARN_FORWARD_1(cJSON_free)

// Parsing and printing
TARN_FORWARD_1(cJSON_Parse)
TARN_FORWARD_2(cJSON_ParseWithLength)
TARN_FORWARD_3(cJSON_ParseWithOpts)
TARN_FORWARD_4(cJSON_ParseWithLengthOpts)
TARN_FORWARD_0(cJSON_GetErrorPtr)
TARN_FORWARD_1(cJSON_Print)
TARN_FORWARD_1(cJSON_PrintUnformatted)
TARN_FORWARD_3(cJSON_PrintBuffered)
TARN_FORWARD_4(cJSON_PrintPreallocated)
TARN_FORWARD_1(cJSON_Minify)
TARN_FORWARD_1(cJSON_Delete)

// Looking into a tree
TARN_FORWARD_1(cJSON_GetArraySize)
TARN_FORWARD_2(cJSON_GetArrayItem)
TARN_FORWARD_2(cJSON_GetObjectItem)
TARN_FORWARD_2(cJSON_GetObjectItemCaseSensitive)
TARN_FORWARD_2(cJSON_HasObjectItem)
TARN_FORWARD_1(cJSON_GetStringValue)
TARN_FORWARD_1(cJSON_GetNumberValue)
TARN_FORWARD_1(cJSON_IsInvalid)
TARN_FORWARD_1(cJSON_IsFalse)
TARN_FORWARD_1(cJSON_IsTrue)
TARN_FORWARD_1(cJSON_IsBool)
TARN_FORWARD_1(cJSON_IsNull)
TARN_FORWARD_1(cJSON_IsNumber)
TARN_FORWARD_1(cJSON_IsString)
TARN_FORWARD_1(cJSON_IsArray)
TARN_FORWARD_1(cJSON_IsObject)
TARN_FORWARD_1(cJSON_IsRaw)
TARN_FORWARD_3(cJSON_Compare)

// Making items
TARN_FORWARD_0(cJSON_CreateNull)
TARN_FORWARD_0(cJSON_CreateTrue)
TARN_FORWARD_0(cJSON_CreateFalse)
TARN_FORWARD_1(cJSON_CreateBool)
TARN_FORWARD_1(cJSON_CreateNumber)
TARN_FORWARD_1(cJSON_CreateString)
TARN_FORWARD_1(cJSON_CreateRaw)
TARN_FORWARD_0(cJSON_CreateArray)
TARN_FORWARD_0(cJSON_CreateObject)
TARN_FORWARD_1(cJSON_CreateStringReference)
TARN_FORWARD_1(cJSON_CreateObjectReference)
TARN_FORWARD_1(cJSON_CreateArrayReference)
TARN_FORWARD_2(cJSON_CreateIntArray)
TARN_FORWARD_2(cJSON_CreateFloatArray)
TARN_FORWARD_2(cJSON_CreateDoubleArray)
TARN_FORWARD_2(cJSON_CreateStringArray)
TARN_FORWARD_2(cJSON_Duplicate)

// Changing a tree
TARN_FORWARD_2(cJSON_AddItemToArray)
TARN_FORWARD_3(cJSON_AddItemToObject)
TARN_FORWARD_3(cJSON_AddItemToObjectCS)
TARN_FORWARD_2(cJSON_AddItemReferenceToArray)
TARN_FORWARD_3(cJSON_AddItemReferenceToObject)
TARN_FORWARD_2(cJSON_DetachItemViaPointer)
TARN_FORWARD_2(cJSON_DetachItemFromArray)
TARN_FORWARD_2(cJSON_DeleteItemFromArray)
TARN_FORWARD_2(cJSON_DetachItemFromObject)
TARN_FORWARD_2(cJSON_DetachItemFromObjectCaseSensitive)
TARN_FORWARD_2(cJSON_DeleteItemFromObject)
TARN_FORWARD_2(cJSON_DeleteItemFromObjectCaseSensitive)
TARN_FORWARD_3(cJSON_InsertItemInArray)
TARN_FORWARD_3(cJSON_ReplaceItemViaPointer)
TARN_FORWARD_3(cJSON_ReplaceItemInArray)
TARN_FORWARD_3(cJSON_ReplaceItemInObject)
TARN_FORWARD_3(cJSON_ReplaceItemInObjectCaseSensitive)
TARN_FORWARD_2(cJSON_AddNullToObject)
TARN_FORWARD_2(cJSON_AddTrueToObject)
TARN_FORWARD_2(cJSON_AddFalseToObject)
TARN_FORWARD_3(cJSON_AddBoolToObject)
TARN_FORWARD_3(cJSON_AddNumberToObject)
TARN_FORWARD_3(cJSON_AddStringToObject)
TARN_FORWARD_3(cJSON_AddRawToObject)
TARN_FORWARD_2(cJSON_AddObjectToObject)
TARN_FORWARD_2(cJSON_AddArrayToObject)
TARN_FORWARD_2(cJSON_SetNumberHelper)
TARN_FORWARD_2(cJSON_SetValuestring)

}  // extern "C"
