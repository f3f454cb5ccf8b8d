/* The C interface compiles on its own as strict C99. */
#include <quov/quov.h>

int quov_header_check_c(void) { return QUOV_OK; }
