// qNoValuePriv.h: the answer of a query that has nothing to answer.
#pragma once

// What the index and position queries give when there is no answer: pixel_index outside the
// image, min_t_index without a transparent entry, a failed seek, row_bytes of a stride that has
// no value. The same number as ST_NO_MEMORY, but no status: these queries never fail.
constexpr int kNoValue = -1;
