/* Only compiled: the C header alone, and where its structures have their members, as applications have compiled it in. */
#include "zorvalis.h"

#include <stddef.h>

#define AT(structure, member, offset) \
    typedef char structure##_##member##_has_moved[offsetof(structure, member) == (offset) ? 1 : -1]

AT(ZorvalisCallbacks, size, 0);
AT(ZorvalisCallbacks, user, 8);
AT(ZorvalisCallbacks, testData, 16);
AT(ZorvalisCallbacks, text, 24);
AT(ZorvalisCallbacks, flag, 32);
AT(ZorvalisCallbacks, integer, 40);
AT(ZorvalisOptions, size, 0);
AT(ZorvalisOptions, waitMilliseconds, 4);
AT(ZorvalisOptions, limitMilliseconds, 8);
AT(ZorvalisOptions, endpoint, 16);
