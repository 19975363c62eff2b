/* Stage 4 and the file layer's view of a call. */
#include "solver/stage_arrays.h"

ooc_request stage_ooc_request(const solver_call *call, const supernodal_structure *structure)
{
    const solver_state *s = call->state;
    const array_block *tables = s->array[array_ooc_tree];
    ooc_request request = {s->ooc,
                           s->transfer,
                           s->ooc_file_name,
                           structure,
                           call->matrix_number,
                           s->symmetric_structure,
                           call->ooc->element_bytes,
                           s->nproc,
                           s->control->message_flag,
                           static_cast<int64_t *>(tables->data),
                           {s->ooc_buffer_u, s->ooc_buffer_v},
                           {}};
    const position_map map = stage_position_map(s);
    const auto add = [&request](ooc_file_number number, const int64_t *data, int64_t count) { request.index[number - 1] = {data, count}; };
    add(ooc_file_lindx, structure->lindx, s->lindx_size);
    add(ooc_file_map_src_l, map.src_l, map.length_l);
    add(ooc_file_map_src_u, map.src_u, map.length_u);
    add(ooc_file_map_dest_l, map.dest_l, map.length_l);
    add(ooc_file_map_dest_u, map.dest_u, map.length_u);
    add(ooc_file_map_col_l, map.col_l, map.length_l);
    add(ooc_file_map_col_u, map.col_u, map.length_u);
    add(ooc_file_list_source, stage_words(s, array_list_source), s->task_count);
    add(ooc_file_list_rows, stage_words(s, array_list_rows), s->task_count);
    return request;
}

int64_t stage_prepare_ooc(solver_call *call)
{
    const supernodal_structure structure = state_structure(call->state);
    const ooc_request request = stage_ooc_request(call, &structure);
    return ooc_prepare(&request);
}
