// Copies a whole list, or the whole segment, out as one agreed look.
#pragma once

#include <cstddef>

#include <hbs_db.h>

#include "query/walk.h"

// As hostbase_get_clients documents it, for any list.
int hbs_query_copy_list(hbs_pool pool, void *elements, size_t capacity, size_t *count);

// As hostbase_snapshot documents it.
int hbs_query_copy_all(hbs_db *db);
