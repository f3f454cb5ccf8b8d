// The C interface compiles as C++ too, beside the C++ headers.
#include <quov/quov.h>
#include <quov/QuovAd.h>

int quovHeaderCheckCxx() { return QUOV_OK; }
