/// @file
/// INI profile files, key by key, and their text helpers. Public: may include only public headers.
///
/// A file is read line by line, each line in pieces of at most 254 characters; every piece counts
/// as a line of its own and loses its leading and trailing white space. A line that begins with ";"
/// is a comment. "[name]" begins a section whose name is everything between the brackets, blanks
/// included. Inside a section, "key=value" is an entry: the key ends at the first "=", white space
/// around key and value does not count, and one pair of enclosing ' or " is taken off the value.
/// Names compare without regard to case; the first matching section and the first matching key in
/// it win.
///
/// Threads: all functions may be called from any thread. Rewrites by one process never lose each
/// other's changes; rewrites by different processes may, and a reader may meet one half done. No
/// call throws; without memory a file counts as one that cannot be opened.
#ifndef TARN_GENERIC_PROFILE_H
#define TARN_GENERIC_PROFILE_H

#include <Tarn/Generic/Api.h>

#include <cstddef>
#include <cstdio>

/// Reads a value, or lists the names of a section's keys or of the file's sections.
///
/// - section and key given: the value, cut to size - 1 characters.
/// - key null: the names of the section's keys; an empty line repeats the key name before it.
/// - section null: the names of all sections.
///
/// A list is a run of NUL-ended names with a further NUL at the end. A list that does not fit is
/// cut: its last name and NUL end one byte before the end of the buffer, whose last byte is not
/// touched.
///
/// @param def     used when the section or the key is missing or the file cannot be read: copied,
///                cut, trimmed and freed of quotes; null for none
/// @param buffer  receives the text; always terminated when size is not 0
/// @param size    bytes in `buffer`; with 0 nothing is read or written
/// @param file    path of the file
/// @return the number of characters in the buffer without the last NUL; a list's inner NULs count.
///         0 when buffer or file is null.
TARN_API size_t GetPrivateProfileString(const char* section, const char* key, const char* def,
                                        char* buffer, size_t size, const char* file);

/// Lists the names of all sections: GetPrivateProfileString with section, key and def null.
TARN_API size_t GetPrivateProfileSectionNames(char* buffer, size_t size, const char* file);

/// Sets or deletes an entry, or deletes a section, and rewrites the file in place (same owner, mode
/// and links). Every line loses its leading and trailing white space; a line that begins with "["
/// but is no header is dropped, as long as the change is not made yet. A failure leaves the old
/// text.
///
/// - key and value given: replaces the first entry of that name, or adds the entry at the end of
///   the section, or adds section and entry at the end of the file, or creates the file.
/// - value null: deletes the entry; a section that does not exist is added, empty.
/// - key null: deletes the section; its comment lines stay.
///
/// @return 1 when something was set, replaced or deleted, else 0. Two results are odd: deleting the
///         last section of a file gives 0 although it is done, and deleting an entry that does not
///         exist gives 1 when another section follows.
TARN_API int WritePrivateProfileString(const char* section, const char* key, const char* value,
                                       const char* file);

/// Drops leading white space, in place. Null is ignored, as by all helpers below.
TARN_API void rmlead(char* text);

/// Drops trailing white space, in place.
TARN_API void rmtrail(char* text);

/// Takes off one enclosing pair of ' or ", in place. @return 1 when it did, else 0
TARN_API int rmquotes(char* text);

/// Takes off one enclosing "[" "]" pair, in place. @return 1 when it did, else 0
TARN_API int rmbrackets(char* text);

/// Copies `src` to `dst` up to the first of `delimiters` or size - 1 characters, and terminates.
/// @return the place behind the delimiters that follow, or null at the end of `src`. An empty `src`
///         gives null and leaves `dst` as it was.
TARN_API char* stptok(const char* src, char* dst, size_t size, const char* delimiters);

/// Copies the rest of `src` to `dest`; neither is closed.
TARN_API void filecopy(FILE* dest, FILE* src);

#endif  // TARN_GENERIC_PROFILE_H
