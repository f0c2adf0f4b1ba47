/// @file
/// Every public header. Public: may include only public headers.
#ifndef TARN_GENERIC_GENERIC_H
#define TARN_GENERIC_GENERIC_H

#include <Tarn/Generic/Api.h>
#include <Tarn/Generic/Framing.h>

#endif  // TARN_GENERIC_GENERIC_H
