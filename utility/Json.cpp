// JSON trees by way of libcjson.
#include "utility/Json.h"

#include <cjson/cJSON.h>

#include <memory>
#include <new>

namespace Tarn::Generic {

namespace {

// Whether `node` is somewhere below `tree`.
bool Contains(const cJSON* tree, const cJSON* node) {
  for (const cJSON* child = tree->child; child != nullptr; child = child->next) {
    if (child == node || Contains(child, node)) return true;
  }
  return false;
}

// A node in a tree has a neighbour in front of it; the first one has the last one there.
bool IsAttached(const cJSON* node) {
  return node->prev != nullptr;
}

int IntOf(const cJSON* node) {
  return node == nullptr ? 0 : node->valueint;
}

double DoubleOf(const cJSON* node) {
  return node == nullptr ? 0.0 : node->valuedouble;
}

const char* StringOf(const cJSON* node) {
  return node == nullptr ? "" : node->valuestring;
}

// The wrapper, unless there was no memory for its node.
IJson* Filled(CJson* json) {
  if (json == nullptr || !json->IsNull()) return json;
  delete json;
  return nullptr;
}

}  // namespace

IJson::~IJson() = default;

CJson::CJson(JsonType type, int release)
    : CJson(type == JSON_TYPE_ARRAY ? cJSON_CreateArray() : cJSON_CreateObject(), release) {}

CJson::CJson(cJSON* node, int release) : m_release(release), m_pNode(node) {}

CJson::~CJson() {
  for (CJson* const child : m_children)
    delete child;
  if (m_release != 0) cJSON_Delete(m_pNode);
  cJSON_free(m_pText);
}

char* CJson::ToString(int formatted) {
  char* text = nullptr;
  if (m_pNode != nullptr) {
    text = formatted != 0 ? cJSON_Print(m_pNode) : cJSON_PrintUnformatted(m_pNode);
  }
  cJSON_free(m_pText);  // only now: the new text never stands in the place of the old one
  return m_pText = text;
}

int CJson::GetItemCount() {
  return cJSON_GetArraySize(m_pNode);
}

IJson* CJson::GetItem(int index) {
  return Wrap(cJSON_GetArrayItem(m_pNode, index));
}

IJson* CJson::GetItem(const char* name) {
  return Wrap(cJSON_GetObjectItem(m_pNode, name));
}

int CJson::GetInt() {
  return IntOf(m_pNode);
}

int CJson::GetInt(const char* name) {
  return IntOf(cJSON_GetObjectItem(m_pNode, name));
}

double CJson::GetDouble() {
  return DoubleOf(m_pNode);
}

double CJson::GetDouble(const char* name) {
  return DoubleOf(cJSON_GetObjectItem(m_pNode, name));
}

const char* CJson::GetString() {
  return StringOf(m_pNode);
}

const char* CJson::GetString(const char* name) {
  return StringOf(cJSON_GetObjectItem(m_pNode, name));
}

void CJson::AddString(const char* name, const char* value) {
  cJSON_AddStringToObject(m_pNode, name, value);
}

void CJson::AddNumber(const char* name, double value) {
  cJSON_AddNumberToObject(m_pNode, name, value);
}

void CJson::AddItem(IJson* item, int release) {
  Take(item, release, [this](cJSON* node) { return cJSON_AddItemToArray(m_pNode, node); });
}

void CJson::AddItem(const char* name, IJson* item, int release) {
  Take(item, release,
       [this, name](cJSON* node) { return cJSON_AddItemToObject(m_pNode, name, node); });
}

bool CJson::IsNull() {
  return m_pNode == nullptr;
}

cJSON* CJson::GetJsonNode() {
  return m_pNode;
}

void CJson::SetJsonNode(cJSON* node) {
  m_pNode = node;
}

// A wrapper of a child, recorded so that it ends with this one.
IJson* CJson::Wrap(cJSON* child) {
  if (child == nullptr) return nullptr;
  try {
    auto wrapper = std::make_unique<CJson>(child, 0);
    m_children.push_back(wrapper.get());
    return wrapper.release();
  } catch (...) {
    return nullptr;
  }
}

// A node has one place in one tree, and no tree is a part of itself. A node that is in no tree
// cannot be in that of `node`, which spares most calls the search.
bool CJson::CanTake(cJSON* node) {
  if (node == nullptr || node == m_pNode || IsAttached(node)) return false;
  return !IsAttached(m_pNode) || !Contains(node, m_pNode);
}

// Moves the item's node into this tree with attach(node), then deletes its wrapper on demand. The
// tree frees the node from then on; one that it could not take is freed with the wrapper.
template <typename Attach>
void CJson::Take(IJson* item, int release, Attach attach) {
  if (m_pNode == nullptr || item == nullptr) return;
  auto* const json = dynamic_cast<CJson*>(item);
  if (json != nullptr && CanTake(json->m_pNode)) {
    json->m_release = attach(json->m_pNode) != 0 ? 0 : 1;
  }
  if (release != 0) IJson::Delete(item);
}

IJson* IJson::CreateObject(int release) {
  return Filled(new (std::nothrow) CJson(JSON_TYPE_OBJECT, release));
}

IJson* IJson::CreateArray(int release) {
  return Filled(new (std::nothrow) CJson(JSON_TYPE_ARRAY, release));
}

IJson* IJson::CreateObject(const char* text, int release) {
  cJSON* const tree = cJSON_Parse(text);
  if (tree == nullptr) return nullptr;
  auto* const json = new (std::nothrow) CJson(tree, release);
  if (json == nullptr) cJSON_Delete(tree);
  return json;
}

void IJson::Delete(IJson* json) {
  delete json;
}

}  // namespace Tarn::Generic
