/* A sequence of calls on one handle, read from a string of bytes: shared by the random test and the fuzzer. Arrays are allocated to the
   size that their user may rely on and not a word more. With the matrix checker on, ia and ja hold anything within their bounds. */
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "session.h"
#include "solver/control.h"

struct byte_source {
    const uint8_t *data;
    size_t size, at = 0;

    /* low when the bytes are used up; low <= high */
    int64_t within(int64_t low, int64_t high)
    {
        uint64_t value = 0;
        for (int64_t range = high - low; range > 0; range >>= 8) value = value << 8 | (at < size ? data[at++] : 0);
        return low + static_cast<int64_t>(value % static_cast<uint64_t>(high - low + 1));
    }
    template <typename item_t, size_t count>
    item_t one_of(const item_t (&items)[count])
    {
        return items[within(0, count - 1)];
    }
    bool chance(int64_t one_in)
    {
        return within(1, one_in) == one_in;
    }
};

constexpr int64_t hostile_extremes[] = {INT64_MIN, INT64_MAX, -1, 0, 1, 2, 3, 1000000};

/* The field of the values is the one of the whole run; types that are refused come with it. */
inline int64_t hostile_type(byte_source *bytes, bool pairs)
{
    constexpr int64_t of_reals[] = {1, 2, -2, 11}, of_pairs[] = {3, 4, -4, 6, 13};
    constexpr int64_t odd[] = {5, -1, -3, -5, -6, -11, 0, 7, -13, INT64_MIN, INT64_MAX};
    if (bytes->chance(24)) return bytes->one_of(odd);
    return pairs ? bytes->one_of(of_pairs) : bytes->one_of(of_reals);
}

/* A pattern that is as the type wants it: a band of some width, the rest thin. */
inline void hostile_pattern(byte_source *bytes, session *s, int64_t base)
{
    const int64_t n = bytes->within(1, 30), band = bytes->within(0, 6), thin = bytes->within(1, 12);
    const bool upper = s->matrix_type < 0 || s->matrix_type % 2 == 0, gaps = bytes->chance(4);
    uint64_t mix = static_cast<uint64_t>(bytes->within(0, 255));
    s->neqns = n;
    s->ia.assign(1, base);
    s->ja.clear();
    for (int64_t i = 0; i < n; ++i) {
        const size_t before = s->ja.size();
        for (int64_t j = upper ? i : 0; j < n; ++j) {
            mix = mix * 6364136223846793005ULL + 1442695040888963407ULL;
            const bool missing = gaps && mix >> 60 == 0;
            if ((std::abs(i - j) <= band && !missing) || (mix >> 33) % static_cast<uint64_t>(4 * thin) == 0) s->ja.push_back(j + base);
        }
        if (s->ja.size() == before) s->ja.push_back(i + base);
        s->ia.push_back(static_cast<int64_t>(s->ja.size()) + base);
    }
    s->parameter(iparam_zero_based) = 1 - base;
}

inline void spoil_pattern(byte_source *bytes, session *s)
{
    const auto length = static_cast<int64_t>(s->ja.size());
    for (int64_t edits = bytes->within(0, 3); edits > 0; --edits) {
        const auto place = static_cast<size_t>(bytes->within(0, length - 1)), row = static_cast<size_t>(bytes->within(0, s->neqns - 1));
        const int64_t value = bytes->chance(3) ? bytes->one_of(hostile_extremes) : bytes->within(-1, 34);
        (bytes->chance(2) ? s->ja[place] : s->ia[row]) = value;
    }
    if (bytes->chance(8)) s->ia[static_cast<size_t>(s->neqns)] = bytes->within(-2, length);
    s->ja.shrink_to_fit();
}

/* Values and right-hand sides; false when they hold what no arithmetic survives. */
inline bool hostile_values(byte_source *bytes, session *s)
{
    constexpr double odd[] = {0.0, 1e-13, 1e300, 1e-300, 5e-324, HUGE_VAL, -HUGE_VAL, std::numeric_limits<double>::quiet_NaN()};
    uint64_t mix = static_cast<uint64_t>(bytes->within(0, 255));
    const auto draw = [&] {
        mix = mix * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(mix >> 60) - 5.0;
    };
    const double weight = bytes->chance(2) ? 30.0 : 0.0;
    bool sound = true;
    s->values.clear();
    for (size_t i = 0; i + 1 < s->ia.size() && s->values.size() < s->ja.size(); ++i) s->values.emplace_back(weight + draw(), draw());
    while (s->values.size() < s->ja.size()) s->values.emplace_back(draw(), draw());
    if (weight > 0) /* the diagonal first, where the pattern is as it should be */
        for (size_t i = 0, p = 0; i + 1 < s->ia.size() && p < s->ja.size(); ++i) {
            for (; p < s->ja.size() && static_cast<int64_t>(p) + s->ia[0] < s->ia[i + 1]; ++p) {
                const bool diagonal = s->ja[p] == static_cast<int64_t>(i) + s->ia[0];
                s->values[p] = {diagonal ? weight : draw(), diagonal ? 0.0 : draw()};
            }
        }
    s->rhs.assign(static_cast<size_t>(s->neqns * std::max<int64_t>(s->nb, 1)), {1.0, 0.5});
    for (int64_t edits = bytes->within(0, 3); edits > 0; --edits) {
        auto &field = bytes->chance(4) ? s->rhs : s->values;
        const double value = bytes->one_of(odd);
        sound = sound && std::abs(value) < 1e3;
        field[static_cast<size_t>(bytes->within(0, static_cast<int64_t>(field.size()) - 1))] = {value, value};
    }
    return sound;
}

inline void hostile_parameters(byte_source *bytes, session *s)
{
    const int64_t zero_based = s->parameter(iparam_zero_based), single = s->parameter(iparam_single_precision);
    const int64_t checker = s->parameter(iparam_matrix_checker);
    constexpr iparam_position settings[] = {iparam_preprocessing,      iparam_preprocessing, iparam_refinement_request,
                                            iparam_overwrite_rhs,      iparam_transpose,     iparam_scaling,
                                            iparam_matching,           iparam_scheme,        iparam_core_mode,
                                            iparam_reproducible_units, iparam_pivoting,      iparam_perm_mode};
    iparam_defaults(s->iparam, s->matrix_type);
    for (int64_t edits = bytes->within(0, 5); edits > 0; --edits) s->parameter(bytes->one_of(settings)) = bytes->within(-1, 3);
    if (bytes->chance(5)) s->parameter(iparam_hybrid) = bytes->within(-93, 93);
    if (bytes->chance(6)) s->parameter(iparam_partial_solve) = bytes->within(1, 4);
    if (bytes->chance(6)) s->parameter(iparam_partial_window) = bytes->within(-10, 30);
    for (int64_t edits = bytes->chance(4) ? bytes->within(1, 4) : 0; edits > 0; --edits) {
        const int64_t value = bytes->chance(2) ? bytes->one_of(hostile_extremes) : bytes->within(-64, 191);
        s->iparam[bytes->within(0, iparam_count - 1)] = value;
    }
    /* these say what the arrays are */
    s->parameter(iparam_use_defaults) = 1;
    s->parameter(iparam_zero_based) = zero_based;
    s->parameter(iparam_single_precision) = single;
    s->parameter(iparam_matrix_checker) = checker;
}

/* Is there a NaN in a solution that was reported as whole and unperturbed? */
inline bool false_success(session *s, int64_t ido)
{
    const bool whole = s->parameter(iparam_partial_solve) == 0 && s->parameter(iparam_partial_window) == 0;
    if (s->error != 0 || s->nb < 1 || (ido != 13 && ido != 23 && ido != 33) || !whole || s->parameter(iparam_perturbed_pivots) != 0)
        return false;
    const auto x = s->unpack(s->parameter(iparam_overwrite_rhs) == 1 ? s->b : s->x);
    return std::any_of(x.begin(), x.begin() + s->neqns * s->nb, [](auto v) { return std::isnan(v.real()) || std::isnan(v.imag()); });
}

/* Run the calls. Returns what is wrong, or null. The handle stays live. */
inline const char *hostile_calls(session *s, byte_source *bytes)
{
    const bool pairs = bytes->chance(2);
    s->parameter(iparam_single_precision) = bytes->chance(4) ? 1 : 0;
    constexpr int64_t steps[] = {13, 11, 12, 22, 23, 33, 331, 332, 333, 0, 13, 33, 23};
    constexpr int64_t odd_steps[] = {334, 1, 5, 14, 21, 32, 34, 100, -4, -1, -2, -3, INT64_MAX, INT64_MIN + 1};
    bool sound = true, spoiled = false; /* spoiled: the checker stays on, a call that reads its own copies leaves the arrays as they are */
    for (int64_t calls = bytes->within(1, 6); calls > 0; --calls) {
        const bool same_matrix = s->neqns > 0 && !bytes->chance(3);
        s->max_fac_store = bytes->within(1, 3);
        s->matrix_number = bytes->chance(9) ? bytes->within(-1, 4) : bytes->within(1, s->max_fac_store);
        s->nb = bytes->chance(20) ? bytes->one_of<int64_t>({INT64_MIN, -1, 0}) : bytes->within(1, 3);
        s->msglvl = bytes->chance(10) ? bytes->within(-1, 3) : 0;
        if (!same_matrix) {
            s->parameter(iparam_matrix_checker) = bytes->chance(3) ? 1 : 0;
            s->matrix_type = hostile_type(bytes, pairs);
            hostile_pattern(bytes, s, bytes->within(0, 1));
            spoiled = s->parameter(iparam_matrix_checker) == 1;
            if (spoiled) spoil_pattern(bytes, s);
        }
        sound = hostile_values(bytes, s) && sound;
        hostile_parameters(bytes, s);
        if (spoiled) s->parameter(iparam_matrix_checker) = 1;
        s->perm.clear();
        for (int64_t i = 0; i < s->neqns; ++i)
            s->perm.push_back(bytes->chance(20) ? bytes->within(-1, 31) : s->neqns - i - s->parameter(iparam_zero_based));
        s->pack(s->values, &s->a);
        s->pack(s->rhs, &s->b);
        if (!s->is_complex() && s->matrix_type != 11 &&
            (s->matrix_type > 2 || s->matrix_type < -2)) { /* complex on a diagonal, refused elsewhere */
            s->a.resize(s->values.size() * 16);
            s->b.resize(s->rhs.size() * 16);
        }
        s->x.assign(s->b.size(), 0xff);
        const int64_t ido = bytes->chance(16) ? bytes->one_of(odd_steps) : bytes->one_of(steps), n = s->neqns;
        if (bytes->chance(40)) s->neqns = bytes->one_of<int64_t>({INT64_MIN, -1, 0});
        s->call(ido);
        const bool all_rows = s->neqns == n;
        s->neqns = n;
        const bool query = ido == ido_query_limits || ido == ido_query_parameters;
        if (!query && !((s->error <= 0 && s->error >= -11) || s->error == 1)) return "an error without a meaning";
        if (sound && all_rows && false_success(s, ido)) return "a solution that is not a number, reported as a success";
    }
    return nullptr;
}
