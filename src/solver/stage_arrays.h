/* Private to this room: the views of the handle's arrays that the stages pass to the rooms below. */
#pragma once

#include "ooc/ooc.h"
#include "solver/control.h"
#include "state/structure.h"

/* Array `number` as words; null when it does not exist. */
inline int64_t *stage_words(const solver_state *state, int64_t number)
{
    return static_cast<int64_t *>(state_array(state, number));
}

/* The row order in array number (44, or a slice of 46), or null when the type has none. */
const int64_t *stage_row_order(const solver_state *state, int64_t number);
position_map stage_position_map(const solver_state *state);

/* The file layer's view of this call; structure stays the caller's. */
ooc_request stage_ooc_request(const solver_call *call, const supernodal_structure *structure);
int64_t stage_prepare_ooc(solver_call *call); /* stage 4: 0 or -2; a fault of the files is in stage_error */
