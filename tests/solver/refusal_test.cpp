/* Every refusal of an argument, to the letter, in both index bases, silent and talking; the handle works afterwards. */
#include <gtest/gtest.h>

#include "session.h"

namespace
{
/* On the upper triangle of a grid of 3 by 3: 9 equations, 21 entries. */
struct refusal {
    const char *name;
    int64_t before; /* ido that succeeds first, 0 none */
    int64_t ido;
    void (*spoil)(session *); /* what the caller gets wrong, on 1-based arrays */
    int64_t code;
    const char *words, *zero_based_words;
    bool recap;
};

const char *const matrix_class = "incorrect input matrix  ", *const input_class = " sequence_ido,parameters";

const refusal refusals[] = {
    {"ido above 33", 0, 34, [](session *) {}, 1, "*** Input check: ido_new 34 (out of bounds)", nullptr, true},
    {"ido 334", 11, 334, [](session *) {}, 1, "*** Input check: ido_new 334 (out of bounds)", nullptr, true},
    {"more factorizations than stored", 11, 22, [](session *s) { s->max_fac_store = 3; }, 2,
     "*** Input check: max_fac_store_new 3 _old 1 are incompatible", nullptr, true},
    {"matrix number above the store", 0, 11, [](session *s) { s->matrix_number = 2; }, 3,
     "*** Input check: max_fac_store_in 1 matrix_number_in 2", nullptr, true},
    {"matrix number 0 to factor", 11, 22, [](session *s) { s->matrix_number = 0; }, 4,
     "*** Input check: matrix_number_new 0 ido 22 are incompatible", nullptr, true},
    {"matrix number 0 in one call", 0, 13, [](session *s) { s->matrix_number = 0; }, 4,
     "*** Input check: matrix_number_new 0 ido 13 are incompatible", nullptr, true},
    {"another matrix type", 11, 22, [](session *s) { s->matrix_type = 4; }, 5, "*** Input check: matrix_type_new 4 _old 2 are incompatible",
     nullptr, true},
    {"a type of another layout", 11, 22, [](session *s) { s->matrix_type = 3; }, 5,
     "*** Input check: matrix_type_new 3 _old 2 are incompatible", nullptr, true},
    {"fewer equations than before", 11, 22, [](session *s) { s->neqns = 8; }, 6, "*** Input check: neqns_new 8 _old 9 are incompatible",
     nullptr, true},
    {"no right-hand side", 12, 33, [](session *s) { s->nb = 0; }, 9, "*** Input check: nb_new 0 ido 33 are incompatible", nullptr, true},
    {"iparam(6) 2", 0, 11, [](session *s) { s->parameter(iparam_overwrite_rhs) = 2; }, 10, "*** Input check: iparam(6) 2 (out of bounds)",
     "*** Input check: iparam[5] 2 (out of bounds)", true},
    {"iparam(2) 4", 0, 11, [](session *s) { s->parameter(iparam_preprocessing) = 4; }, 11,
     "*** Input check: preprocessing 2 (out of bounds)", nullptr, true},
    {"type 0", 0, 11, [](session *s) { s->matrix_type = 0; }, 15, "*** Input check: matrix_type_new 0 (out of bounds)", nullptr, true},
    {"type -13", 0, 11, [](session *s) { s->matrix_type = -13; }, 15, "*** Input check: matrix_type_new -13 (out of bounds)", nullptr,
     true},
    {"factors of a type without a numeric form", 0, 12, [](session *s) { s->matrix_type = 5; }, 15,
     "*** Input check: matrix_type_new 5 (out of bounds)", nullptr, true},
    {"no values", 11, 22, [](session *s) { s->a.clear(), s->a.shrink_to_fit(); }, 16, "*** Input check: empty input arrays ia and/or ja",
     nullptr, false},
    {"no permutation", 0, 11, [](session *s) { s->perm.clear(), s->perm.shrink_to_fit(), s->parameter(iparam_perm_mode) = 1; }, 19,
     "*** Error in SOLVARA: unclassified error", nullptr, false},
    {"ido 5", 11, 5, [](session *) {}, 20, "*** wrong control step parameter ido 5", nullptr, false},
    {"ido 21", 11, 21, [](session *) {}, 20, "*** wrong control step parameter ido 21", nullptr, false},
    {"factorization on an empty handle", 0, 22, [](session *) {}, 20, "*** wrong control step parameter ido 22", nullptr, false},
    {"solve on an empty handle", 0, 331, [](session *) {}, 20, "*** wrong control step parameter ido 33", nullptr, false},
    {"solve with a number never factored", 11, 33, [](session *) {}, 20, "*** wrong control step parameter ido 33", nullptr, false},
    {"empty row", 0, 11, [](session *s) { s->parameter(iparam_matrix_checker) = 1, s->ia[3] = s->ia[2]; }, 21,
     "*** Input check: i=3, ia(i)=7, ia(i+1)=7 are incompatible", "*** Input check: i=2, ia[i]=6, ia[i+1]=6 are incompatible", false},
    {"first row pointer", 0, 11, [](session *s) { s->parameter(iparam_matrix_checker) = 1, s->ia[0] = 2; }, 21,
     "*** Input check: i=1, ia(i)=2, ia(i+1)=4 are incompatible", "*** Input check: i=0, ia[i]=1, ia[i+1]=3 are incompatible", false},
    {"column past the end", 0, 11, [](session *s) { s->parameter(iparam_matrix_checker) = 1, s->ja[2] = 10; }, 22,
     "*** Input check: i=3, ja(i)=10, neqns=9 are incompatible", "*** Input check: i=2, ja[i]=9, neqns=8 are incompatible", false},
    {"row that starts below the diagonal", 0, 11, [](session *s) { s->parameter(iparam_matrix_checker) = 1, s->ja[3] = 1; }, 23,
     "*** Input check: i=2, j=ia(i)=4, ja(j)=1 are incompatible", "*** Input check: i=1, j=ia[i]=3, ja[j]=0 are incompatible", false},
    {"columns that do not rise", 0, 11, [](session *s) { s->parameter(iparam_matrix_checker) = 1, s->ja[2] = 2; }, 24,
     "*** Input check: j=2, ja(j)=2, ja(j+1)=2 are incompatible", "*** Input check: j=1, ja[j]=1, ja[j+1]=1 are incompatible", false},
    {"two levels with files", 0, 11, [](session *s) { s->parameter(iparam_scheme) = s->parameter(iparam_core_mode) = 1; }, 31,
     "*** Input check: Two-level factorization algorithm does not work in OOC mode.", nullptr, false},
    {"files after a sequential analysis", 11, 22, [](session *s) { s->parameter(iparam_core_mode) = 1; }, 32,
     "*** Input check: Sequential OOC mode of factorization is incompatible with sequential IC mode of reordering", nullptr, false},
    {"fewer entries than equations", 0, 11, [](session *s) { s->ia[9] = 9; }, 8,
     "*** Input check: ia(neqns+1)_new 8 _old 0 are incompatible", "*** Input check: ia[neqns]_new 7 _old -1 are incompatible", true},
    {"release of a number that is not", 12, 0, [](session *s) { s->matrix_number = 0; }, 100,
     "*** Error in SOLVARA: wrong matrix number, clean 0", nullptr, false},
    {"release on an empty handle", 0, 0, [](session *) {}, 1000,
     "*** Error in SOLVARA: ido<1 and initialization\n - contradiction (set ido>0) 0", nullptr, false},
    {"ido -4", 11, -4, [](session *) {}, 10000, "*** Error in SOLVARA: ido<-1", nullptr, false},
};

void load(session *s, bool zero_based)
{
    load_grid(s, 2, 3);
    s->parameter(iparam_use_defaults) = 1;
    s->parameter(iparam_preprocessing) = 2;
    if (zero_based) s->to_zero_based();
}

/* The lines of a refusal, in their order. */
std::string expected_text(const refusal &what, const session &s, bool zero_based)
{
    const int64_t nnz = s.ia[static_cast<size_t>(s.neqns)] - (zero_based ? 0 : 1);
    const auto number = [](int64_t value) { return std::to_string(value); };
    const bool in_matrix = what.code >= 21 && what.code <= 30;
    std::string text =
        std::string("*** Error in SOLVARA  (") + (in_matrix ? matrix_class : input_class) + ") error_num= " + number(what.code) + "\n";
    text += std::string(zero_based && what.zero_based_words != nullptr ? what.zero_based_words : what.words) + "\n";
    if (!what.recap) return text;
    text += "*** Input parameters: inconsistent error= " + number(what.code) + " max_fac_store_in: " + number(s.max_fac_store) + "\n";
    text += "          matrix_number_in: " + number(s.matrix_number) + " matrix_type_in: " + number(s.matrix_type) + "\n";
    text += "          ido_in          : " + number(what.ido) + " neqns_in      : " + number(s.neqns) + "\n";
    text += zero_based ? "          ia[neqns_in]-1  : " + number(nnz - 1) : "          ia(neqns_in+1)-1: " + number(nnz);
    return text + " nb_in         : " + number(s.nb) + "\n";
}

void expect_refusal(const refusal &what, bool zero_based)
{
    session s;
    load(&s, zero_based);
    if (what.before != 0) { ASSERT_EQ(s.call(what.before), 0); }
    if (zero_based) { /* spoil the arrays as the 1-based caller does */
        for (int64_t &i : s.ia) ++i;
        for (int64_t &j : s.ja) ++j;
    }
    what.spoil(&s);
    if (zero_based) s.to_zero_based();
    s.msglvl = 1;
    const std::string text = s.printed(what.ido);
    EXPECT_EQ(s.error, -1);
    EXPECT_EQ(text, expected_text(what, s, zero_based));

    s.msglvl = 0;
    EXPECT_EQ(s.printed(what.ido), "") << "a silent call";
    EXPECT_EQ(s.error, -1);

    s.max_fac_store = s.matrix_number = 1;
    for (int64_t &word : s.iparam) word = 0;
    load(&s, zero_based);
    EXPECT_EQ(s.call(13), 0) << "the handle after the refusal";
    if (zero_based) {
        for (int64_t &i : s.ia) ++i;
        for (int64_t &j : s.ja) ++j;
    }
    EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-13);
}
} // namespace

TEST(refusal, arrays_and_sizes_that_are_not_there)
{
    const std::string head = "*** Error in SOLVARA  ( sequence_ido,parameters) error_num= ";
    for (const bool zero_based : {false, true}) {
        session s;
        load(&s, zero_based);
        s.msglvl = 1;
        s.neqns = -1;
        const std::string negative = s.printed(11);
        EXPECT_EQ(negative.substr(0, negative.find("*** Input par")),
                  zero_based ? head + "17\n*** Input check: neqns -1 or ia[neqns_in] 0 are invalid\n"
                             : head + "7\n*** Input check: neqns_new -1 \n");
        load(&s, zero_based);
        s.ja.clear();
        s.ja.shrink_to_fit();
        EXPECT_EQ(s.printed(11), zero_based ? head + "16\n*** Input check: empty input arrays ia and/or ja\n"
                                            : head + "18\n*** Input check: unexpected error with working arrays ia and/or ja\n");
        load(&s, zero_based);
        s.ia[9] = -3;
        if (zero_based) { EXPECT_EQ(s.printed(11), head + "17\n*** Input check: neqns 9 or ia[neqns_in] -3 are invalid\n"); }
        s.msglvl = 0;
        load(&s, zero_based);
        s.nb = INT64_MAX; /* products with it wrap around */
        EXPECT_EQ(s.call(13), -2);
        s.nb = 1;
        EXPECT_EQ(s.call(13), 0);
    }
}

TEST(refusal, words_of_every_code_in_both_bases)
{
    for (const refusal &what : refusals) {
        for (const bool zero_based : {false, true}) {
            SCOPED_TRACE(std::string(what.name) + (zero_based ? ", from 0" : ", from 1"));
            const service_memory before = memory_in_use();
            expect_refusal(what, zero_based);
            EXPECT_EQ(memory_in_use().direct_blocks, before.direct_blocks);
        }
    }
}
