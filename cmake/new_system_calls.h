/* System calls that libseccomp may be too old to know. Since Linux 5.1 a new call has the same
 * number on every table, but for the bit that marks x32. For C as well: tests make these calls. */
#pragma once

#include <stdint.h>

enum { kOpenTreeAttr = 467 };

struct NewSystemCall {
    const char* name;
    uint32_t number;
};

static const struct NewSystemCall kNewSystemCalls[] = {{"open_tree_attr", kOpenTreeAttr}};
