/// @file
/// JSON objects and arrays. Public: may include only public headers.
#ifndef TARN_GENERIC_JSON_H
#define TARN_GENERIC_JSON_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// What a new node is; values other than JSON_TYPE_ARRAY make an object.
enum JsonType : int { JSON_TYPE_OBJECT = 0, JSON_TYPE_ARRAY = 1 };

/// A node of a JSON tree (RFC 8259): an object, an array or a value in one of them. Parsing,
/// printing and the lookup of names, which ignores the case of ASCII letters, are libcjson's.
///
/// Not thread safe: a wrapper and all wrappers made by its GetItem belong to one thread at a time.
/// Different trees may be used by different threads.
///
/// Ownership: a tree is freed by one wrapper, the one that was created with a nonzero `release`.
/// Create what is to be attached to another tree with 0: AddItem moves it into that tree, which
/// frees it from then on. Texts that are passed in are copied.
///
/// A wrapper without a node is empty: readers answer neutrally and writers do nothing. When memory
/// is short a writer leaves the tree as it was.
class TARN_API IJson {
 public:
  virtual ~IJson();

  /// The tree as text, valid until this wrapper's next ToString or its end.
  /// @param formatted  nonzero: indented, on several lines; 0: without any white space
  /// @return null for an empty wrapper or when memory is short
  virtual char* ToString(int formatted) = 0;

  /// The number of elements of an array or of members of an object; else 0.
  virtual int GetItemCount() = 0;
  /// The child at a position, from 0 on; objects have positions, too. Each call makes a wrapper
  /// that lives as long as this one, which deletes it: do not delete it. For many values, prefer
  /// the getters by name, which make none.
  /// @return null when there is none or memory is short
  virtual IJson* GetItem(int index) = 0;
  /// As GetItem(int), for the first member of that name.
  virtual IJson* GetItem(const char* name) = 0;

  // Getters look at no type: they give what the node holds for that kind, whatever it is.

  /// The number cut to a whole one and to the range of int; 1 for true; else 0.
  virtual int GetInt() = 0;
  /// That of a member; 0 when there is none.
  virtual int GetInt(const char* name) = 0;
  /// The number; 0.0 for what is not a number.
  virtual double GetDouble() = 0;
  /// That of a member; 0.0 when there is none.
  virtual double GetDouble(const char* name) = 0;
  /// The text, valid as long as the node; null for what is not a text, "" for an empty wrapper.
  virtual const char* GetString() = 0;
  /// That of a member; "" when there is none.
  virtual const char* GetString(const char* name) = 0;

  /// Adds a member behind the others, also when there is one of that name. Null adds nothing.
  virtual void AddString(const char* name, const char* value) = 0;
  /// As AddString. Infinities and NaN are printed as null.
  virtual void AddNumber(const char* name, double value) = 0;

  /// Appends the item's node to this array. The item's wrapper stays usable and refers to the node
  /// in its new place. Does nothing for a null item; a node that is part of a tree already, or
  /// whose tree this node is in, is not attached. A node that could not be attached for another
  /// reason (no name, memory is short) is its wrapper's to free, whatever its `release` was.
  /// @param release  nonzero: deletes the item's wrapper afterwards
  virtual void AddItem(IJson* item, int release) = 0;
  /// As AddItem(IJson*, int), as a member behind the others.
  virtual void AddItem(const char* name, IJson* item, int release) = 0;

  /// An empty object. Null when memory is short.
  /// @param release  nonzero: Delete of the result frees the tree
  static IJson* CreateObject(int release);
  /// An empty array. Null when memory is short.
  static IJson* CreateArray(int release);
  /// The tree that a text describes, whatever its outermost kind. What follows its end in the text
  /// is ignored.
  /// @return null when it cannot be parsed, nests deeper than 1000 levels, or memory is short
  static IJson* CreateObject(const char* text, int release);
  /// Destroys a wrapper and those that its GetItem made; null is ignored.
  static void Delete(IJson* json);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_JSON_H
