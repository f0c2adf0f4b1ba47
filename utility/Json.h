// The wrapper of a cJSON node behind IJson.
#ifndef TARN_UTILITY_JSON_H
#define TARN_UTILITY_JSON_H

#include <Tarn/Generic/Json.h>

#include <vector>

struct cJSON;  // <cjson/cJSON.h>

namespace Tarn::Generic {

class TARN_API CJson : public IJson {
 public:
  /// A new empty array or object; empty when memory is short.
  CJson(JsonType type, int release);
  /// A wrapper of `node`, null for an empty one.
  CJson(cJSON* node, int release);
  ~CJson() override;
  CJson(const CJson&) = delete;
  CJson& operator=(const CJson&) = delete;

  char* ToString(int formatted) override;
  int GetItemCount() override;
  IJson* GetItem(int index) override;
  IJson* GetItem(const char* name) override;
  int GetInt() override;
  int GetInt(const char* name) override;
  double GetDouble() override;
  double GetDouble(const char* name) override;
  const char* GetString() override;
  const char* GetString(const char* name) override;
  void AddString(const char* name, const char* value) override;
  void AddNumber(const char* name, double value) override;
  void AddItem(IJson* item, int release) override;
  void AddItem(const char* name, IJson* item, int release) override;

  bool IsNull();
  cJSON* GetJsonNode();
  /// Replaces the node. The old one is not freed: it is whoever's who took it with GetJsonNode.
  void SetJsonNode(cJSON* node);

 private:
  IJson* Wrap(cJSON* child);
  bool CanTake(cJSON* node);
  template <typename Attach>
  void Take(IJson* item, int release, Attach attach);

  int m_release;                   // nonzero: the destructor frees the tree
  cJSON* m_pNode;                  // null: empty
  char* m_pText{nullptr};          // printed last, cJSON's; null: none
  std::vector<CJson*> m_children;  // made by GetItem, owned
};

}  // namespace Tarn::Generic

#endif  // TARN_UTILITY_JSON_H
