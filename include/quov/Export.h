#pragma once

// Symbols of libquovsdk are hidden unless marked; QUOV_EXPORT marks the public API.
#if defined(QUOV_BUILDING_LIBRARY)
#define QUOV_EXPORT __attribute__((visibility("default")))
#else
#define QUOV_EXPORT
#endif
