/* The layouts as a C++ program sees them. */
#include "query/layout_asserts.h"
