/// @file
/// The export mark. Public: may include only public headers.
#ifndef TARN_GENERIC_API_H
#define TARN_GENERIC_API_H

/// Marks a class, function or variable that the shared library exports.
/// Everything else is hidden.
#define TARN_API __attribute__((visibility("default")))

#endif  // TARN_GENERIC_API_H
