/* Records and steps that the drivers of this room share. Drivers decide on order and waiting; a step works on one supernode. */
#pragma once

#include <atomic>
#include <complex>
#include <cstdint>

#include "dense/dense.h"
#include "factor/factor.h"
#include "factor/idle_wait.h"
#include "state/matrix_types.h"

/* Sources of a target that are collected at most, to be applied together where that is cheaper. */
inline constexpr int64_t pending_limit = 128;

/* A source that waits to be applied to a thread's target. */
struct pending_update {
    int64_t source, rows; /* the last rows of its list */
    int64_t columns;      /* the rows among them that are columns of the target; this and the next ones are set when groups are made */
    int64_t group, next;  /* its group; the next member, -1 for the last one */
};

/* Shared by the threads of one factorization. */
template <typename value_t>
struct factor_run {
    const factor_input<value_t> *in;
    const supernodal_structure *s;
    double epsilon;             /* pivots of at most this magnitude are replaced */
    bool hermitian;             /* a transposed image is conjugated */
    bool two_sides;             /* a separate U: LU */
    int64_t most_pending;       /* sources that may be applied together, 1..pending_limit */
    int64_t total_entries;      /* entries of all blocks of lnz: 100 percent */
    std::atomic<int64_t> error; /* 0; the first failure stays */
    std::atomic<int64_t> done;  /* entries of the finished blocks */
    int64_t last_percent;       /* last value printed or reported; thread 1 only */
    int64_t failed_column;      /* new number; these are written under stats_lock, */
    int64_t stopped;            /* stopped by thread 1 alone */
    int64_t perturbed, positive, negative;
};

/* One supernode of a span: consecutive supernodes, each with the rows of the one before but for the columns of that. */
template <typename value_t>
struct span_block {
    int64_t before; /* columns of the span before its own */
    int64_t columns, rows;
    value_t *lower, *upper;
};
/* Columns of a span: what is packed of a source then serves several supernodes. The gain beyond is small. */
inline constexpr int64_t span_columns = 512, span_limit = 16;

/* The supernode being assembled, or the span of several. */
template <typename value_t>
struct target_block {
    int64_t number, first, columns, rows;
    const int64_t *row_list; /* [rows] */
    value_t *lower, *upper;  /* rows by columns; rows - columns by columns, LU only */
    bool mapped;             /* the thread's relative map holds the row list */
    bool front;              /* of a chain: columns of several supernodes, in the buffer; no row list */
    int64_t spanned;         /* blocks of a span, 0 for a single supernode; lower and upper are those of the first */
    const span_block<value_t> *span;
};

/* Private to one thread. */
template <typename value_t>
struct thread_space {
    int64_t id;            /* 1-based */
    int64_t *relative;     /* [n] row -> offset in the row list of the target; other rows hold leftovers */
    int64_t *row_position; /* [n] offsets of the rows of a source */
    value_t *buffer;       /* scaled panels */
    int64_t buffer_entries;
    void *work;   /* of the dense kernels; may be null */
    int64_t done; /* entries finished and not yet added to the shared count */
    int64_t perturbed, positive, negative;
    bool batched;                         /* factors in files: the targets of a batch are held by all threads */
    int64_t chainless_from, chainless_to; /* supernodes in this range begin no chain that is worth a front */
    int64_t pending_count;
    pending_update pending[pending_limit];
};

/* Remember a failure, unless there is an earlier one. */
template <typename value_t>
inline void fail(factor_run<value_t> *run, int64_t code)
{
    int64_t none = 0;
    run->error.compare_exchange_strong(none, code, std::memory_order_acq_rel);
}
template <typename value_t>
inline bool failed(const factor_run<value_t> *run)
{
    return run->error.load(std::memory_order_acquire) != 0;
}

/* ---- per-thread space ---- */
/* Point a thread's space into the arrays of the input. id counts from 1. work: nproc parts of dense_work_size() bytes, or null. */
template <typename value_t>
void bind_thread_space(const factor_run<value_t> *run, int64_t id, void *work, thread_space<value_t> *space);
/* The same for a thread that comes to a region, with the next id. */
template <typename value_t>
void enter_region(const factor_run<value_t> *run, int64_t *threads, void *work, thread_space<value_t> *space);
/* Add the thread's counts to the shared ones, under stats_lock. */
template <typename value_t>
void merge_counts(factor_run<value_t> *run, thread_space<value_t> *space);

/* ---- one supernode ---- */
/* Get the blocks of supernode number. Returns false after a pager failure, which is then recorded in run->error. */
template <typename value_t>
bool open_target(factor_run<value_t> *run, int64_t number, block_use use, target_block<value_t> *target);
template <typename value_t>
void close_target(const factor_run<value_t> *run, const target_block<value_t> *target, block_use use);

/* Zero the blocks and place the entries of the matrix, scaled where scaling is on. */
template <typename value_t>
void assemble_supernode(const factor_run<value_t> *run, const target_block<value_t> *target);
/* The same for all supernodes at once, in core. */
template <typename value_t>
void assemble_all(const factor_run<value_t> *run);

/* Apply the last `remaining` rows of the finished supernode `source`. Sources are collected; flush_updates applies what is collected and
   must follow the last call. Failures go to run->error: -2 when the rows are scattered and the
   product would not fit the update buffer, -1 from the pager. */
template <typename value_t, factor_kind kind, mirror sym>
void apply_update(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, int64_t source, int64_t remaining);
template <typename value_t, factor_kind kind, mirror sym>
void flush_updates(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target);

/* Factor the diagonal block and solve the panels. Counts go to the space, a failure to the run. */
template <typename value_t, factor_kind kind, mirror sym>
void factor_supernode(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target);

/* ---- lists of pending sources, private to one thread or one domain ----
   head[c-1] is the first source that waits for the supernode with first column c; once that supernode is finished the word is free and
   keeps how many of the supernode's own rows remain. next[s-1] links the sources. */
struct source_lists {
    int64_t *head; /* [n] zero before the supernode of the column is done */
    int64_t *next; /* [supernodes] */
};
/* Put source on the list of the supernode that owns row `row`, unless that lies past supernode `last`. */
inline void link_source(const supernodal_structure &s, const source_lists &lists, int64_t source, int64_t row, int64_t last)
{
    const int64_t target = s.snode[row - 1];
    if (target > last) return;
    int64_t &head = lists.head[s.xsuper[target - 1] - 1];
    lists.next[source - 1] = head;
    head = source;
}
/* Put a source on its next list, past the rows before end_column. */
inline void hang_on_next(const supernodal_structure &s, const source_lists &lists, int64_t source, int64_t end_column, int64_t last)
{
    int64_t &remaining = lists.head[s.xsuper[source - 1] - 1];
    const int64_t *list = supernode_row_list(s, source) + supernode_rows(s, source);
    while (remaining > 0 && list[-remaining] < end_column) --remaining;
    if (remaining > 0) link_source(s, lists, source, list[-remaining], last);
}
/* Assemble unless that is done, update from the lists, factor, and link supernode number to its next target, unless that lies past
   `last`. */
template <typename value_t, factor_kind kind, mirror sym>
void process_with_lists(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, int64_t number, int64_t last,
                        bool assembled = false);
/* The same for a supernode of at most narrow_columns columns, in core. */
inline constexpr int64_t narrow_columns = 4;
template <typename value_t, factor_kind kind, mirror sym>
void process_narrow(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, int64_t number, int64_t last);
/* Supernodes first..last, which nothing from outside updates, by one thread. progress: null, or a word that others read and that keeps the
   last finished one. always: as in report_block. */
template <typename value_t, factor_kind kind, mirror sym>
void process_range(factor_run<value_t> *run, thread_space<value_t> *space, int64_t first, int64_t last, int64_t *progress, bool always);

/* ---- spans ---- */
/* Supernodes from `number` on, up to `last`, that outside sources may update together: columns cut apart because of their count. */
template <typename value_t>
int64_t span_count_from(const factor_run<value_t> *run, const thread_space<value_t> &space, int64_t number, int64_t last);
/* Open and assemble the blocks of a span as one target. Returns false after a failure. Not for paged blocks. */
template <typename value_t>
bool open_span(factor_run<value_t> *run, int64_t number, int64_t count, span_block<value_t> *block, target_block<value_t> *target);

/* ---- progress ---- */
/* The call before and after the work; percent 0 or 100. A wish to stop sets error -1. */
template <typename value_t>
void report_percent(factor_run<value_t> *run, int64_t percent);
/* Add the thread's finished entries to the shared count; thread 1 then tells the hook. always: although the percentage did not rise. */
template <typename value_t>
void publish_blocks(factor_run<value_t> *run, thread_space<value_t> *space, bool always);
/* Note finished entries. The shared count is touched some hundred times a factorization, not once a block. */
inline constexpr int64_t report_steps = 128;
template <typename value_t>
inline void report_block(factor_run<value_t> *run, thread_space<value_t> *space, int64_t entries, bool always)
{
    space->done += entries;
    if (space->done * report_steps >= run->total_entries || (always && space->id == 1)) publish_blocks(run, space, always);
}

/* ---- drivers ---- */
template <typename value_t, factor_kind kind, mirror sym>
void serial_driver(factor_run<value_t> *run, void *work);
template <typename value_t, factor_kind kind, mirror sym>
void program_driver(factor_run<value_t> *run, void *work);
template <typename value_t>
void pushing_driver(factor_run<value_t> *run, void *work);
template <typename value_t, factor_kind kind, mirror sym>
void single_level_region(factor_run<value_t> *run, void *work);
template <typename value_t, factor_kind kind, mirror sym>
void two_level_region(factor_run<value_t> *run, void *work);
template <typename value_t, factor_kind kind, mirror sym>
void paged_region(factor_run<value_t> *run, void *work);

/* The members of the family that exist: real types have one LDL^T, complex types a Hermitian and a symmetric one. */
#define FOR_EACH_MEMBER(X)                                                                                                                 \
    X(double, factor_kind::cholesky, mirror::hermitian)                                                                                    \
    X(float, factor_kind::cholesky, mirror::hermitian)                                                                                     \
    X(std::complex<double>, factor_kind::cholesky, mirror::hermitian)                                                                      \
    X(std::complex<float>, factor_kind::cholesky, mirror::hermitian)                                                                       \
    X(double, factor_kind::ldlt, mirror::hermitian)                                                                                        \
    X(float, factor_kind::ldlt, mirror::hermitian)                                                                                         \
    X(std::complex<double>, factor_kind::ldlt, mirror::hermitian)                                                                          \
    X(std::complex<float>, factor_kind::ldlt, mirror::hermitian)                                                                           \
    X(std::complex<double>, factor_kind::ldlt, mirror::symmetric)                                                                          \
    X(std::complex<float>, factor_kind::ldlt, mirror::symmetric)                                                                           \
    X(double, factor_kind::lu, mirror::symmetric)                                                                                          \
    X(float, factor_kind::lu, mirror::symmetric)                                                                                           \
    X(std::complex<double>, factor_kind::lu, mirror::symmetric)                                                                            \
    X(std::complex<float>, factor_kind::lu, mirror::symmetric)
#define FOR_EACH_VALUE(X) X(double) X(float) X(std::complex<double>) X(std::complex<float>)
