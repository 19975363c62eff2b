/* Creation, lookup and release of the records behind a handle. */
#pragma once

#include <cstdint>

#include "state/records.h"
#include "state/structure.h"

/* Make the record of an empty handle: headers of all work arrays, control block, out-of-core record and tables for max_fac_store
   factorizations (at least 1). All words are 0, the file name is blank; memory_current and memory_peak are the bytes of the record.
   Returns null when memory ran out; *failed_bytes then says how much was asked. The caller gives it back with state_destroy. */
solver_state *state_create(int64_t max_fac_store, int64_t *failed_bytes);

/* Free the record and its tables; the work arrays must have been released. Accepts null. */
void state_destroy(solver_state *state);

/* Set max_fac_store (at least 1) and make the tables long enough. Only when no factorization is stored. Returns false when memory ran
   out, with *failed_bytes; the record is then as it was. */
bool state_resize_tables(solver_state *state, int64_t max_fac_store, int64_t *failed_bytes);

/* Point the current factor and diagonal entries at those of matrix_number, 1 to max_fac_store. */
void state_select(solver_state *state, int64_t matrix_number);

/* Data of work array number swtch: 1 to 10 and 12 to 58. Code 10 is array 9 advanced by neqns words. 47, 48 and 58 belong to the selected
   factorization. Null for an array that does not exist yet; any other code prints a message and gives null. */
void *get_from_c_structure(int64_t swtch, const solver_state *state);

/* The same without a call, for numbers whose header is the handle's own. */
inline void *state_array(const solver_state *state, int64_t number)
{
    const array_block *header = state->array[number];
    return header != nullptr ? header->data : get_from_c_structure(number, state);
}

/* The view of the analysis results that the numeric rooms read. */
supernodal_structure state_structure(const solver_state *state);
